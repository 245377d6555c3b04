// SPDX-License-Identifier: Apache-2.0
// An open camera: what it can do, what it is set to, and its settings. Numbers that a camera says of itself are checked
// before they are used.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "camera_list.h"
#include "frame_layout.h"
#include "quiet_stderr.h"

/// What the sensor can do, in sensor pixels. The granularities are at least 1.
struct SensorLimits {
    std::uint32_t width, height;
    std::uint32_t unit_width, unit_height;  // sizes are multiples of these
    std::uint32_t max_subsampling;          // 1: none
};

class Camera {
  public:
    /// Throws Failure when the camera cannot be opened.
    Camera(const ListedCamera& listed, QuietStderr& quiet);

    _tovix* handle() const { return handle_.get(); }
    const ListedCamera& listed() const { return listed_; }
    QuietStderr& quiet() const { return quiet_; }

    // Each of these throws Failure when the camera does not answer, or answers nonsense.
    SensorLimits sensor() const;
    FrameLayout frame_layout() const;
    _tovix_frame_format area() const;
    std::vector<std::uint32_t> data_rates() const;
    std::uint32_t data_rate() const;
    /// Whether the camera bends the tones of its frames; else the conversion has to.
    bool takes_tone_curve() const;

    /// Choose the area and the subsampling. Throws Failure also when the camera takes another area than that.
    void set_area(const _tovix_frame_format& area) const;
    /// Choose one of data_rates(). Throws Failure for another one.
    void set_data_rate(std::uint32_t rate) const;

  private:
    struct Close {
        void operator()(_tovix* handle) const { tovix_camera_close(&handle); }
    };
    /// Throw Failure when `result` is one.
    void check(std::int32_t result, const char* what) const;
    /// A register that holds two 16-bit values.
    std::pair<std::uint16_t, std::uint16_t> pair_at(std::uint32_t address, const char* what) const;

    ListedCamera listed_;
    QuietStderr& quiet_;
    std::unique_ptr<_tovix, Close> handle_;
};
