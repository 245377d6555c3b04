// SPDX-License-Identifier: Apache-2.0
// What is measured: a function from a frame to an image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct FrameSize {
    std::uint32_t width, height;
    std::size_t pixels() const { return std::size_t{width} * height; }
};

struct Case {
    std::string name;
    FrameSize size;
    std::size_t sample_bytes, pixel_bytes;
    std::function<bool(unsigned char* image, const unsigned char* frame)> convert;
};

/// What other libraries do with such frames, as their users would write it; and the floor: no conversion, only the memory
/// that one has to read and to write. Adds nothing where the program was built without them.
void add_peers(std::vector<Case>& cases, FrameSize size);
