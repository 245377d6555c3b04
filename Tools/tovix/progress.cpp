// SPDX-License-Identifier: Apache-2.0
#include "progress.h"

namespace {
constexpr std::uint32_t kBarWidth = 40;
constexpr char kClearLine[] = "\r\x1b[K";
}  // namespace

void Progress::note(const std::string& words) {
    if (out_ == nullptr) return;
    std::fprintf(out_, "%s%s", kClearLine, words.c_str());
    std::fflush(out_);
    drawn_ = true;
}

void Progress::bar(std::uint32_t done, std::uint32_t total) {
    if (total < 2) return;
    const auto filled = static_cast<std::uint32_t>(std::uint64_t{kBarWidth} * done / total);
    note("[" + std::string(filled, '#') + std::string(kBarWidth - filled, ' ') + "] " +
         text("%u/%u frames", done, total));
}

void Progress::clear() {
    if (drawn_) std::fprintf(out_, "%s", kClearLine), std::fflush(out_);
    drawn_ = false;
}
