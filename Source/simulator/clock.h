// SPDX-License-Identifier: Apache-2.0
// The time of the simulated bus.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace tovix::simulator {

enum class Pace : std::uint8_t {
    kRealTime,       // a second is a second
    kStepped,        // time stands still until somebody steps it or sleeps
    kAsFastAsItGoes  // whoever waits for the next frame jumps to it; else time passes as usual
};

inline constexpr std::int64_t kNever = INT64_MAX;

/// Microseconds since the bus came up. Any thread.
class Clock {
  public:
    explicit Clock(Pace pace) : pace_(pace) {}

    Pace pace() const { return pace_; }
    bool jumps() const { return pace_ != Pace::kRealTime; }

    std::int64_t now_us() const {
        const std::int64_t jumped = jumped_us_.load();
        if (pace_ == Pace::kStepped) return jumped;
        const auto passed = std::chrono::steady_clock::now() - start_;
        return jumped + std::chrono::duration_cast<std::chrono::microseconds>(passed).count();
    }

    /// Let time pass: by waiting for it, or by moving it.
    void sleep_us(std::int64_t microseconds) {
        if (jumps()) {
            jump(microseconds);
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
        }
    }

    void jump(std::int64_t microseconds) {
        if (microseconds > 0) jumped_us_ += microseconds;
    }

  private:
    const Pace pace_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::atomic<std::int64_t> jumped_us_{0};
};

}  // namespace tovix::simulator
