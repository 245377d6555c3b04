// SPDX-License-Identifier: Apache-2.0
// How the rectangle of a frame is walked. Places are numbers of pixels from the start of the frame.
//
//   plain frame     row 0, row 1, row 2, ...
//   field layout    rows 0, 2, 4, ..., then rows 1, 3, 5, ...
#pragma once

#include "focus_state.h"

namespace tovix::measure {

/// The pixels of a frame, one byte of each.
class Pixels {
  public:
    Pixels(const _FrameDesc& desc, const std::uint8_t* frame)
        : first_(frame + (desc.sample_16bit != 0 && desc.sample_msb_second != 0 ? 1 : 0)),
          size_(desc.sample_16bit != 0 ? 2 : 1),
          count_(desc.frame_width * desc.frame_height) {}

    int operator[](std::int64_t place) const { return first_[place * size_]; }
    std::int64_t count() const { return count_; }

  private:
    const std::uint8_t* first_;
    std::int64_t size_;  // bytes from one pixel to the next
    std::int64_t count_;
};

/// Calls visit(place of the first pixel, whether it is an odd row of the rectangle) for each row of the rectangle.
/// @param rows  of a plain frame; a field has half of the rectangle's, rounded down
/// @param step  from the start of one row to that of the next
void for_each_row(const _FrameDesc& desc, std::int64_t rows, std::int64_t step, const auto& visit) {
    if (desc.field_layout == 0) {
        std::int64_t place = desc.frame_width * desc.win_y + desc.win_x;
        for (std::int64_t row = 0; row < rows; ++row, place += step)
            visit(place, (row & 1) != 0);
        return;
    }
    std::int64_t place = desc.frame_width * desc.win_y / 2 + desc.win_x;
    for (const bool odd : {false, true}) {
        for (std::int64_t row = 0; row < desc.win_height / 2; ++row, place += step)
            visit(place, odd);
        place += (desc.frame_height - desc.win_height) / 2 * desc.frame_width;
    }
}

}  // namespace tovix::measure
