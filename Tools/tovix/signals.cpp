// SPDX-License-Identifier: Apache-2.0
#include "signals.h"

#include <atomic>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> signal_came{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

void note_signal(int) {
    signal_came = true;
}

}  // namespace

StopSignals::StopSignals() {
    signal_came = false;
    struct sigaction action {};
    action.sa_handler = note_signal;
    // A write under way goes on, so that a frame in a pipe or a file is whole.
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    for (std::size_t i = 0; i < before_.size(); ++i) {
        sigaction(kSignals[i], nullptr, &before_[i]);
        if (before_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
    }
}

StopSignals::~StopSignals() {
    for (std::size_t i = 0; i < before_.size(); ++i)
        sigaction(kSignals[i], &before_[i], nullptr);
}

bool StopSignals::came() {
    return signal_came;
}
