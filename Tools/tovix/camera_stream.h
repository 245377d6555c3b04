// SPDX-License-Identifier: Apache-2.0
// A running stream that ends when it should: after a signal, after too long a wait, with the command.
//
// The library's wait for a frame has no time limit. A watchdog thread looks at the clock and at the signals,
// and stops the stream, which ends the wait. It is the only one that stops the stream while the command may
// be waiting; once it has been joined, the destructor stops what is still running.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <span>
#include <thread>
#include <utility>

#include "camera.h"
#include "signals.h"

/// A frame in the library's ring, held until this is destroyed. The stream outlives it.
class HeldFrame {
  public:
    HeldFrame(_tovix* camera, std::int32_t index) : camera_(camera), index_(index) {}
    HeldFrame(HeldFrame&& other) noexcept : camera_(std::exchange(other.camera_, nullptr)), index_(other.index_) {}
    HeldFrame& operator=(HeldFrame&&) = delete;
    ~HeldFrame() {
        if (camera_ != nullptr) tovix_release_buffer(camera_, index_);
    }
    std::span<const std::uint8_t> samples() const {
        return {tovix_get_buffer_address(camera_, index_), tovix_get_video_frame_size(camera_)};
    }

  private:
    _tovix* camera_;
    std::int32_t index_;
};

class CameraStream {
  public:
    using Clock = std::chrono::steady_clock;

    /// Why no more frames come.
    enum class End { kNone, kSignal, kTooLong, kCameraGone };

    /// Start the stream; `frame_limit_s` is the longest wait for one frame, beyond the time that it is exposed. Throws
    /// Failure. The camera outlives it.
    CameraStream(const Camera& camera, double frame_limit_s);
    ~CameraStream();
    CameraStream(const CameraStream&) = delete;
    CameraStream& operator=(const CameraStream&) = delete;

    /// Wait for the next frame, always the newest. Nothing when the stream has ended; end() says why.
    std::optional<HeldFrame> next();

    /// The exposure has changed, and so may the wait for a frame. Frames under way may have the former one.
    void allow_for_exposure();

    End end() const { return end_; }
    /// end() as the failure of a command; `done` says what came before.
    Failure failure(const std::string& done) const;

  private:
    void watch(const std::stop_token& finished);

    const Camera& camera_;
    const double frame_limit_s_;
    double exposure_s_ = 0, longest_exposure_s_ = 0;  // now, and of the frames under way
    StopSignals signals_;
    std::atomic<End> end_{End::kNone};
    /// The latest end of the wait under way.
    std::atomic<Clock::time_point> wait_ends_{Clock::time_point::max()};
    std::string why_late_;  // the watchdog's; the command reads it after kTooLong
    bool stopped_ = false;  // the watchdog's; the command reads it after joining it
    std::jthread watchdog_;
};
