// SPDX-License-Identifier: Apache-2.0
// One frame into one image in a single sweep: samples are fetched, demosaiced, mirrored, corrected by the colour matrix
// and stored row by row, while they are in the processor's nearest cache. The bytes are those of the kernels and of the
// matrix after them.
#pragma once

#include <cstdint>

#include "mosaic.h"
#include "samples.h"

namespace tovix::color {

enum class Method { kGrey, kNearest, kEdgeDirected, kZurno, kQuelt };
enum class Layout { kRgb24, kRgb32, kRgb48 };

/// In whose order a rule sees its neighbours, where that makes a difference.
enum class RuleOrder {
    kImage,  // of the stored image: what is left and above there
    kFrame   // of the raw frame: of what a mirrored image holds on the right
};

struct Sweep {
    Method method;
    RuleOrder order;
    Layout layout;
    void* image;  // rows unpadded
    Placement place;
    Site origin;           // of the picture
    const short* weights;  // of the colour matrix; null: none
};

template <class Pixel>
constexpr Layout kLayoutOf = Pixel::size == 4                       ? Layout::kRgb32
                             : sizeof(typename Pixel::Channel) == 2 ? Layout::kRgb48
                                                                    : Layout::kRgb24;

/// False, and nothing has happened, when there is no such form on this processor, or the picture is too small for it.
[[nodiscard]] bool sweep(const Sweep& what, const ByteFrame& frame);
[[nodiscard]] bool sweep(const Sweep& what, const WordFrame& frame);

}  // namespace tovix::color
