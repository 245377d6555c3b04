// SPDX-License-Identifier: Apache-2.0
#include "waits.h"

#include "injector.h"

namespace tovix::faults {

void Waits::begin(const void* what) {
    const Uncounted own;
    const std::lock_guard lock(mutex_);
    waited_for_.insert(what);
    begun_.notify_all();
}

void Waits::end(const void* what) {
    const std::lock_guard lock(mutex_);
    waited_for_.erase(what);
}

bool Waits::wait_for_one(const std::stop_token& over) {
    std::unique_lock lock(mutex_);
    return begun_.wait(lock, over, [this] { return !waited_for_.empty(); }) && !over.stop_requested();
}

Waits& waits() {
    static Waits the_waits;
    return the_waits;
}

}  // namespace tovix::faults
