// SPDX-License-Identifier: Apache-2.0
// One kind of adjustment, as the loop drives it.
#pragma once

#include <memory>
#include <span>

#include "adjustment.h"
#include "properties.h"

class AdjustmentControl {
  public:
    virtual ~AdjustmentControl() = default;

    /// Measure the frame, and read the settings. Throws Failure.
    virtual Figures look(std::span<const std::uint8_t> frame) = 0;
    /// Change settings by the frame that was looked at last. False when nothing has to be: it has settled. Throws
    /// Failure when it cannot settle.
    virtual bool change(std::span<const std::uint8_t> frame) = 0;
    /// Whether a change shows only in frames that are exposed after it.
    virtual bool needs_fresh_frames() const { return true; }
    /// Frames that are measured before something must be wrong.
    virtual std::uint32_t enough_steps() const { return 50; }
};

/// What the controls share: the camera, its frames, and the rectangle that is measured.
struct MeasuredArea {
    const Camera& camera;
    FrameLayout layout;
    Rectangle area;

    int x() const { return static_cast<int>(area.x); }
    int y() const { return static_cast<int>(area.y); }
    int width() const { return static_cast<int>(area.width); }
    int height() const { return static_cast<int>(area.height); }
    Levels levels(std::span<const std::uint8_t> frame) const { return measure(frame, layout, area); }
};

std::unique_ptr<AdjustmentControl> make_exposure_control(const MeasuredArea& measured, std::uint32_t target);
std::unique_ptr<AdjustmentControl> make_gain_control(const MeasuredArea& measured, std::uint32_t target);
std::unique_ptr<AdjustmentControl> make_white_balance_control(const MeasuredArea& measured);
std::unique_ptr<AdjustmentControl> make_one_shot_white_balance_control(const MeasuredArea& measured);
std::unique_ptr<AdjustmentControl> make_digital_white_balance_control(const MeasuredArea& measured);
std::unique_ptr<AdjustmentControl> make_focus_control(const MeasuredArea& measured);
