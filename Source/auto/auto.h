// SPDX-License-Identifier: Apache-2.0
// What the automatic adjustment shares: the rectangle of a camera's frame, and its colour levels. Results are those of
// the C interface. Rectangles are in pixels of the frame; any numbers are safe.
#pragma once

#include <cstdint>

#include "focus_state.h"
#include "tovixapi/tovixapi.h"

/// Describe the camera's frames in the format in force, and a rectangle, which is trimmed to lie `border` pixels inside.
/// @return 0; TOVIX_EINVAL when it is not inside the frame, or nothing is left of it; TOVIX_ENOTSUP for a pixel format
///         that cannot be measured. After a failure `desc` is as it was.
[[nodiscard]] std::int32_t fill_FrameDesc(_tovix* camera, int unused, _FrameDesc* desc, int x, int y, int width,
                                          int height, int border);

/// Levels of a grey subject as white balance compares them: red and blue divided by their ratios, and no level so small
/// that a gain would get out of hand.
[[nodiscard]] std::int32_t tovix_get_whitebalance_adjustment_ex(_tovix* camera, const std::uint8_t* frame,
                                                                float red_ratio, float blue_ratio, int x, int y,
                                                                int width, int height, float* red, float* green,
                                                                float* blue);

/// CVorm::AdjustWhiteBalanceForRGBvalues() of the camera's conversion object, which is made when there is none.
[[nodiscard]] std::int32_t AdjustWhiteBalanceForRGBvalues(_tovix* camera, double red, double green, double blue);

/// True for models whose greens in red rows and in blue rows respond differently.
bool IsCameraDifferentGreenResponses(std::uint32_t product_id);
