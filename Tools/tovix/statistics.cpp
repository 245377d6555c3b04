// SPDX-License-Identifier: Apache-2.0
#include "statistics.h"

#include <algorithm>

namespace {
constexpr std::size_t kMaxSample = 1 << 16;
}

void StreamStatistics::add(Clock::time_point arrival, std::uint64_t bytes, const std::optional<FrameMark>& mark) {
    if (frames_ == 0) {
        first_ = arrival;
    } else {
        add_interval(std::chrono::duration<float, std::milli>(arrival - last_).count());
    }
    last_ = arrival;
    ++frames_;
    bytes_ += bytes;
    if (!mark) return;
    marked_ = true;
    if (!mark->whole) {
        ++torn_;
        return;
    }
    // A torn frame in between was not skipped, but which one it was cannot be told: it counts as both.
    if (last_serial_ && mark->serial > *last_serial_) skipped_ += mark->serial - *last_serial_ - 1;
    last_serial_ = mark->serial;
}

void StreamStatistics::add_interval(float interval_ms) {
    min_ms_ = frames_ == 1 ? interval_ms : std::min(min_ms_, interval_ms);
    max_ms_ = std::max(max_ms_, interval_ms);
    if (frames_ % sample_step_ != 0) return;
    sample_ms_.push_back(interval_ms);
    if (sample_ms_.size() < kMaxSample) return;
    for (std::size_t i = 0; i < kMaxSample / 2; ++i)
        sample_ms_[i] = sample_ms_[2 * i + 1];
    sample_ms_.resize(kMaxSample / 2);
    sample_step_ *= 2;
}

double StreamStatistics::seconds() const {
    return frames_ > 0 ? std::chrono::duration<double>(last_ - first_).count() : 0;
}

double StreamStatistics::frames_per_second() const {
    return seconds() > 0 ? static_cast<double>(frames_ - 1) / seconds() : 0;
}

double StreamStatistics::bytes_per_second() const {
    return frames_ > 0 ? frames_per_second() * static_cast<double>(bytes_) / static_cast<double>(frames_) : 0;
}

std::optional<StreamStatistics::Intervals> StreamStatistics::intervals() const {
    if (sample_ms_.empty()) return {};
    std::vector<float> sorted = sample_ms_;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    return Intervals{double{min_ms_}, double{*middle}, double{max_ms_}};
}
