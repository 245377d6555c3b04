// SPDX-License-Identifier: Apache-2.0
// Automatic adjustment as a loop over a running stream: measure a frame, change a setting, and again with a frame that
// was exposed after the change, until nothing has to be changed.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "camera_stream.h"
#include "frame_measure.h"

enum class Adjustment { kExposure, kGain, kWhiteBalance, kOneShotWhiteBalance, kDigitalWhiteBalance, kFocus };

/// As on the command line.
const char* name_of(Adjustment what);

struct AdjustmentOptions {
    std::optional<Rectangle> area;            // else the middle of the frame
    std::uint32_t target = 64;                // wanted mean; leaves room for what is four times as bright
    std::optional<std::uint32_t> most_steps;  // frames that are measured; else what should be enough

    /// The rectangle for such frames. Throws Failure when it does not lie in them.
    Rectangle area_in(const FrameLayout& layout) const;
};

/// What a frame showed and the settings that it was taken with, by name.
using Figures = std::vector<std::pair<std::string, double>>;
using OnStep = std::function<void(std::uint32_t step, const Figures& figures)>;

/// Run until settled: from then on, frames are taken with the settled settings. `on_step` is told of each frame that
/// was measured; steps count from 1. Throws Failure that says why, when it cannot settle or the stream ends.
void adjust(Adjustment what, const AdjustmentOptions& options, const Camera& camera, CameraStream& stream,
            const OnStep& on_step);

/// The next frame that was exposed as a whole after now. Throws Failure when the stream ends.
HeldFrame fresh_frame(CameraStream& stream, const std::string& done);

/// Throw Failure when no white balance can be measured there.
void check_balanceable(const FrameLayout& layout, const Rectangle& area);
void check_balanceable(const Levels& levels);
