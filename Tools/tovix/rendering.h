// SPDX-License-Identifier: Apache-2.0
// How a raw frame becomes a picture.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "camera.h"

/// Rows top to bottom, unpadded, 8 bits a channel.
struct Picture {
    std::uint32_t width, height;
    std::uint32_t channels;  // 1: grey, 3: red, green, blue
    std::vector<std::uint8_t> pixels;
};

/// The raw samples as they are, as levels of grey: on a colour sensor the mosaic shows.
Picture render(std::span<const std::uint8_t> samples, const FrameLayout& layout);
