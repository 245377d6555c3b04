// SPDX-License-Identifier: Apache-2.0
// Which kernel converts which frame.
#pragma once

#include <optional>

#include "sweep.h"

namespace tovix::vorm {

/// The arguments of a kernel; each takes those that it knows. Flags are 0 or 1.
struct KernelCall {
    unsigned char* image;  // of words at an even address for 48-bit images
    unsigned char const* frame;
    unsigned width, height;
    int red_row_first, green_first;
    int flip_x, top_down;
    int interlaced;
    int msb_first;
    unsigned char const* table8;    // null: none
    unsigned short const* table16;  // null: none
};

struct Kernel {
    void (*run)(const KernelCall& call) = nullptr;  // null: there is none
    unsigned row_alignment = 1;                     // rows of the image are padded to a multiple of so many bytes
};

/// How one sweep makes the same image, the matrix included.
struct Sweeping {
    std::optional<color::Method> method;  // none: it does not
    color::RuleOrder order = color::RuleOrder::kImage;
};

struct Conversion {
    Kernel kernel;
    Sweeping sweeping;
};

/// Methods for frames with a colour filter; monochrome frames take those of TOVIX_DEMOSAIC_NONE, which alone makes
/// 8-bit images.
/// @param sample_bits  8 or 16
/// @param pixel_bits   8, 24, 32 or 48
Conversion find_conversion(unsigned method, unsigned sample_bits, unsigned pixel_bits, bool interlaced, bool has_table);

}  // namespace tovix::vorm
