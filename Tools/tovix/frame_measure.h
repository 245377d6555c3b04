// SPDX-License-Identifier: Apache-2.0
// What a rectangle of a raw frame shows.
#pragma once

#include <cstdint>
#include <span>

#include "frame_layout.h"

/// In pixels of the frame.
struct Rectangle {
    std::uint32_t x, y, width, height;
};

struct Levels {
    double mean;              // of all samples, 0 to 255
    double red, green, blue;  // means; of a monochrome frame all are that of all samples
    double clipped;           // share of the samples that are at the top, of the colour that has most of them

    /// The same with these for 1.
    double red_to_green() const { return red / green; }
    double blue_to_green() const { return blue / green; }
};

/// `area` lies in the frame, whose samples are bytes, and holds at least one of them.
Levels measure(std::span<const std::uint8_t> samples, const FrameLayout& layout, const Rectangle& area);

/// The middle third of the frame each way, in whole cells of the colour filter.
Rectangle middle_of(const FrameLayout& layout);
