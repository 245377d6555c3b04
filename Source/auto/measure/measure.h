// SPDX-License-Identifier: Apache-2.0
// What a raw frame is measured for. Every call reads `frame_width` x `frame_height` pixels at most, and of a two-byte
// pixel one byte. The rectangle lies inside the frame, whose sides are below 2^30.
#pragma once

#include "focus_state.h"

/// Four sums of the rectangle's pixels, by place in the 2 x 2 cell of the colour filter, counted from its corner: (even
/// row, even column), (even, odd), (odd, even), (odd, odd). They wrap.
///
/// Pixels are added in whole cells. A rectangle of odd width takes in one more column, and each of its rows begins one
/// pixel further right than the row above; one of odd height takes in one more row, or in the field layout one less.
/// What is beyond the frame's end counts as 0.
void BayerOrMonoComputeSums(const _FrameDesc* desc, const std::uint8_t* frame, std::uint32_t unused,
                            std::uint32_t sums[4]);

/// Sharpness: mean square of the difference between a pixel, times four, and the sum of its four neighbours of the same
/// colour. Grows with contrast and with light. The rectangle lies 2 pixels inside the frame: rows that have no neighbour
/// above or below count as perfectly blurred. 0 for an empty rectangle.
double tovix_autofocus_calculation(const _FrameDesc* desc, const std::uint8_t* frame);
