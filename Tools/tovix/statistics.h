// SPDX-License-Identifier: Apache-2.0
// Figures of a running stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

/// What the serial that a simulated camera writes into its frames tells of one.
struct FrameMark {
    bool whole;            // false: rows of different frames, or changed on the way
    std::uint32_t serial;  // rises by one with every frame taken; means nothing unless whole
};

class StreamStatistics {
  public:
    using Clock = std::chrono::steady_clock;
    struct Intervals {
        double min_ms, median_ms, max_ms;
    };

    void add(Clock::time_point arrival, std::uint64_t bytes, const std::optional<FrameMark>& mark);

    std::uint64_t frames() const { return frames_; }
    double seconds() const;  ///< from the first frame to the last
    double frames_per_second() const;
    double bytes_per_second() const;
    /// Frames that the camera took and nobody saw, and frames that are not whole. Nothing for frames without marks.
    std::optional<std::uint64_t> skipped() const { return marked_ ? std::optional(skipped_) : std::nullopt; }
    std::optional<std::uint64_t> torn() const { return marked_ ? std::optional(torn_) : std::nullopt; }
    /// Time between frames; nothing before the second.
    std::optional<Intervals> intervals() const;

  private:
    void add_interval(float interval_ms);

    std::uint64_t frames_ = 0, bytes_ = 0, skipped_ = 0, torn_ = 0;
    bool marked_ = false;
    std::optional<std::uint32_t> last_serial_;
    Clock::time_point first_, last_;
    float min_ms_ = 0, max_ms_ = 0;
    // For the median, a sample of bounded size: every interval, and from each time that the sample is full on
    // half as many, the older ones thinned out alike.
    std::vector<float> sample_ms_;
    std::uint64_t sample_step_ = 1;
};
