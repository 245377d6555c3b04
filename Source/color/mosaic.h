// SPDX-License-Identifier: Apache-2.0
// The vocabulary of every kernel: pixels, sites of the colour filter, and where a picture lies in memory.
#pragma once

#include <cstdint>

namespace tovix::color {

// Pixel layouts. A size counts channels, and so does every stride of an image.
struct Grey8 {
    using Channel = std::uint8_t;
    static constexpr int size = 1;
};
struct Rgb24 {
    using Channel = std::uint8_t;
    static constexpr int size = 3;
};
struct Rgb32 {  // only kernels that say so write byte 3
    using Channel = std::uint8_t;
    static constexpr int size = 4;
};
struct Rgb48 {
    using Channel = std::uint16_t;
    static constexpr int size = 3;
};

constexpr int kRed = 0, kGreen = 1, kBlue = 2;  // channels of a colour pixel

/// What a site of the mosaic holds. Greens stand on a checkerboard, and red and blue rows take turns, so the
/// site in a corner tells all others: it is the phase of a picture, or of a row.
struct Site {
    bool red_row;  // its row holds red and green, not blue and green
    bool green;

    constexpr Site beside() const { return {red_row, !green}; }
    constexpr Site below() const { return {!red_row, !green}; }
    constexpr Site in_row(std::int64_t y) const { return y % 2 == 0 ? *this : below(); }

    constexpr int row_colour() const { return red_row ? kRed : kBlue; }
    constexpr int cross_colour() const { return red_row ? kBlue : kRed; }
    constexpr int colour() const { return green ? kGreen : row_colour(); }
    /// Where four-colour pixels keep it: 0 red, 1 green of red rows, 2 blue, 3 green of blue rows.
    constexpr int plane() const { return row_colour() + (green ? 1 : 0); }
};

/// Which neighbours of a site lie inside the picture.
struct Around {
    bool left, right, above, below;
};
constexpr Around kInside{true, true, true, true};

/// Columns and rows of a picture, wide enough that no product of them wraps.
struct Size {
    std::int64_t width, height;

    /// Kernels work on 2 x 2 cells of the mosaic; they leave pictures alone that do not consist of cells.
    bool has_cells() const { return width >= 2 && height >= 2 && width % 2 == 0 && height % 2 == 0; }
};

/// Where the rows and columns of a picture lie: in the raw frame, and in the image that is made of it.
struct Placement {
    Size size;
    bool mirrored;    // column 0 is stored last
    bool top_down;    // row 0 is stored first, not last
    bool two_fields;  // the frame holds the even rows of the picture, then the odd ones

    std::int64_t frame_row(std::int64_t y) const { return two_fields ? y / 2 + y % 2 * (size.height / 2) : y; }
    std::int64_t image_row(std::int64_t y) const { return top_down ? y : size.height - 1 - y; }

    /// The phase of the stored image, given that of the picture. Sizes are even, so the last row and the last column
    /// have the other one.
    Site stored(Site origin) const {
        if (mirrored) origin = origin.beside();
        return top_down ? origin : origin.below();
    }
};

}  // namespace tovix::color
