// SPDX-License-Identifier: Apache-2.0
// A raw frame as the adjustment routines measure it, and how far a focus search has come. Both are part of the camera
// handle; what works on them stands above it.
#pragma once

#include <cstdint>

/// A raw frame and a rectangle of interest.
struct _FrameDesc {
    std::int64_t frame_width, frame_height;  // of the frame, in pixels
    std::uint32_t sample_16bit;              // 1: two bytes a pixel
    std::uint32_t sample_msb_second;         // 1: the second byte of a pixel is the one to measure
    std::uint32_t field_layout;              // 1: all even rows stand first, then all odd ones
    std::int64_t win_x, win_y;               // the rectangle, in pixels
    std::int64_t win_width, win_height;
};

struct FocusState {
    _FrameDesc af_desc;
    std::uint32_t af_settled;           // the lens has passed its target, or stood still for a frame longer
    std::int64_t af_position;           // focus value read at the latest call
    std::int64_t af_previous_position;  // and at the one before
    std::int64_t af_target;             // focus value last requested
    std::int64_t af_peak_position;      // where the search finally goes
    std::int64_t af_start_position;
    std::int64_t af_step;           // at least 1
    std::int64_t af_state;          // 0 to 9, see focus_search.h
    std::int32_t af_direction;      // af_step with a sign
    double af_measure_last;         // sharpness at the previous measuring call
    double af_measure_before;       // and at the one before that
    double af_start_measure;        // sharpness at the start position
    std::int64_t af_best_position;  // best peak that interpolation has found
    double af_best_measure;         // sharpness there; 0: none yet
    std::int32_t coarse_steps;      // measuring calls of the coarse search
    std::int32_t fine_steps;        // and of the fine search
};
