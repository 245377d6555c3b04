// SPDX-License-Identifier: Apache-2.0
// Frame formats of the tests.
#pragma once

#include <tovixapi/tovixapi.h>

namespace tovix::test {

/// A format of that size with nothing left out; at the sensor's corner unless told otherwise.
constexpr _tovix_frame_format format_of(std::uint32_t width, std::uint32_t height, std::uint32_t x = 0,
                                        std::uint32_t y = 0) {
    return {.x_offset = x,
            .y_offset = y,
            .width = width,
            .height = height,
            .pixel_format = 0,
            .subsample_x = 1,
            .reserved_x = 0,
            .subsample_y = 1,
            .reserved_y = 0};
}

}  // namespace tovix::test
