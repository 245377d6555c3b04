// SPDX-License-Identifier: Apache-2.0
#include "kernel_table.h"

#include "tovixapi/kernels.h"
#include "tovixapi/tovixapi.h"

namespace tovix::vorm {
namespace {

// ---------------------------------------------------------------------------------------------------------
// One form for the parameter lists of all kernels. run<Name> is the one that fits the list of that name, also
// where the name is overloaded. Kernels for frames in one field do not ask for the fields.

using Byte = unsigned char;
using Word = unsigned short;
using Size = unsigned int;

Word* words(unsigned char* image) {
    return reinterpret_cast<Word*>(image);
}
Word const* words(unsigned char const* frame) {
    return reinterpret_cast<Word const*>(frame);
}

// Grey: flips, fields, byte order, table.
template <void (*kKernel)(Byte*, Byte const*, Size, Size, int, int, Byte const*)>
void run(const KernelCall& c) {
    kKernel(c.image, c.frame, c.width, c.height, c.flip_x, c.top_down, c.table8);
}
template <void (*kKernel)(Byte*, Byte const*, Size, Size, int, int, int, Byte const*)>
void run(const KernelCall& c) {
    kKernel(c.image, c.frame, c.width, c.height, c.flip_x, c.top_down, c.interlaced, c.table8);
}
template <void (*kKernel)(Byte*, Word const*, Size, Size, int, int, int, Word const*)>
void run(const KernelCall& c) {
    kKernel(c.image, words(c.frame), c.width, c.height, c.flip_x, c.top_down, c.msb_first, c.table16);
}
template <void (*kKernel)(Byte*, Word const*, Size, Size, int, int, int, int, Word const*)>
void run(const KernelCall& c) {
    kKernel(c.image, words(c.frame), c.width, c.height, c.flip_x, c.top_down, c.interlaced, c.msb_first, c.table16);
}
template <void (*kKernel)(Word*, Word const*, Size, Size, int, int, int, int, Word const*)>
void run(const KernelCall& c) {
    kKernel(words(c.image), words(c.frame), c.width, c.height, c.flip_x, c.top_down, c.interlaced, c.msb_first,
            c.table16);
}

// Colour: the phase of the mosaic before all these.
template <void (*kKernel)(Byte*, Byte const*, Size, Size, int, int, int, int, Byte const*)>
void run(const KernelCall& c) {
    kKernel(c.image, c.frame, c.width, c.height, c.red_row_first, c.green_first, c.flip_x, c.top_down, c.table8);
}
template <void (*kKernel)(Byte*, Byte const*, Size, Size, int, int, int, int, int, Byte const*)>
void run(const KernelCall& c) {
    kKernel(c.image, c.frame, c.width, c.height, c.red_row_first, c.green_first, c.flip_x, c.top_down, c.interlaced,
            c.table8);
}
template <void (*kKernel)(Byte*, Word const*, Size, Size, int, int, int, int, int, Word const*)>
void run(const KernelCall& c) {
    kKernel(c.image, words(c.frame), c.width, c.height, c.red_row_first, c.green_first, c.flip_x, c.top_down,
            c.msb_first, c.table16);
}
template <void (*kKernel)(Byte*, Word const*, Size, Size, int, int, int, int, int, int, Word const*)>
void run(const KernelCall& c) {
    kKernel(c.image, words(c.frame), c.width, c.height, c.red_row_first, c.green_first, c.flip_x, c.top_down,
            c.interlaced, c.msb_first, c.table16);
}
template <void (*kKernel)(Word*, Word const*, Size, Size, int, int, int, int, int, int, Word const*)>
void run(const KernelCall& c) {
    kKernel(words(c.image), words(c.frame), c.width, c.height, c.red_row_first, c.green_first, c.flip_x, c.top_down,
            c.interlaced, c.msb_first, c.table16);
}

// ---------------------------------------------------------------------------------------------------------

constexpr unsigned kPadded = 4;

struct KernelRow {
    unsigned method, sample_bits, pixel_bits;
    Kernel progressive, interlaced;
    Sweeping sweeping = {};
};

// Kernels that read the frame directly have its order: those for progressive frames without a table.
using enum color::Method;
constexpr Sweeping image_order(color::Method method) {
    return {method, color::RuleOrder::kImage};
}
constexpr Sweeping frame_order(color::Method method) {
    return {method, color::RuleOrder::kFrame};
}

// clang-format off
constexpr KernelRow kKernels[] = {
    // method                  bits: sample, pixel; progressive frames     interlaced frames
    {TOVIX_DEMOSAIC_NONE,         8,  8, {run<MonoToMonoMove>, kPadded},        {run<MonoToMonoMoveDeinterl>}},
    {TOVIX_DEMOSAIC_NONE,        16,  8, {run<MonoToMonoMove16to8>, kPadded},   {run<MonoToMonoMove16to8Deinterl>}},
    {TOVIX_DEMOSAIC_NONE,         8, 24, {run<NoneMove>, kPadded},              {run<NoneMoveInPlace>}, image_order(kGrey)},
    {TOVIX_DEMOSAIC_NONE,         8, 32, {run<NoneMove32>},                     {run<NoneMove32InPlace>}},
    {TOVIX_DEMOSAIC_NONE,        16, 24, {run<NoneMove16to8>, kPadded},         {run<NoneMove16to8InPlace>}, image_order(kGrey)},
    {TOVIX_DEMOSAIC_NONE,        16, 32, {run<NoneMove16to832>},                {run<NoneMove16to832InPlace>}, image_order(kGrey)},
    {TOVIX_DEMOSAIC_NONE,        16, 48, {run<NoneMove16InPlace>},              {run<NoneMove16InPlace>}, image_order(kGrey)},
    {TOVIX_DEMOSAIC_NEAREST,      8, 24, {run<NearestNeighbor>},                {run<NearestNeighborInPlace>}, frame_order(kNearest)},
    {TOVIX_DEMOSAIC_NEAREST,      8, 32, {run<NearestNeighbor32>},              {run<NearestNeighbor32InPlace>}, frame_order(kNearest)},
    {TOVIX_DEMOSAIC_NEAREST,     16, 24, {run<NearestNeighbor16to8>},           {run<NearestNeighbor16to8InPlace>}, frame_order(kNearest)},
    {TOVIX_DEMOSAIC_NEAREST,     16, 32, {run<NearestNeighbor16to832>},         {run<NearestNeighbor16to832InPlace>}, frame_order(kNearest)},
    {TOVIX_DEMOSAIC_NEAREST,     16, 48, {run<NearestNeighbor16InPlace>},       {run<NearestNeighbor16InPlace>}, image_order(kNearest)},
    {TOVIX_DEMOSAIC_EDGE,         8, 24, {run<EdgeDetectMove>},                 {run<EdgeDetectMoveInPlace>}, frame_order(kEdgeDirected)},
    {TOVIX_DEMOSAIC_EDGE,         8, 32, {run<EdgeDetectMove32>},               {run<EdgeDetectMove32InPlace>}, frame_order(kEdgeDirected)},
    {TOVIX_DEMOSAIC_EDGE,        16, 24, {run<EdgeDetectMove16to8>},            {run<EdgeDetectMove16to8InPlace>}, frame_order(kEdgeDirected)},
    {TOVIX_DEMOSAIC_EDGE,        16, 32, {run<EdgeDetectMove16to832>},          {run<EdgeDetectMove16to832InPlace>}, frame_order(kEdgeDirected)},
    {TOVIX_DEMOSAIC_EDGE,        16, 48, {run<EdgeDetectMove16InPlace>},        {run<EdgeDetectMove16InPlace>}, image_order(kEdgeDirected)},
    {TOVIX_DEMOSAIC_ZURNO,        8, 24, {run<ZurnoMove>},                      {run<ZurnoMove>}, image_order(kZurno)},
    {TOVIX_DEMOSAIC_ZURNO,        8, 32, {run<ZurnoMove32>},                    {run<ZurnoMove32>}, image_order(kZurno)},
    {TOVIX_DEMOSAIC_ZURNO,       16, 24, {run<ZurnoMove16to8>},                 {run<ZurnoMove16to8>}, image_order(kZurno)},
    {TOVIX_DEMOSAIC_ZURNO,       16, 32, {run<ZurnoMove16to832>},               {run<ZurnoMove16to832>}, image_order(kZurno)},
    {TOVIX_DEMOSAIC_ZURNO,       16, 48, {run<ZurnoMove16>},                    {run<ZurnoMove16>}, image_order(kZurno)},
    {TOVIX_DEMOSAIC_QUELT,        8, 24, {run<QueltMoveInPlace>},               {run<QueltMoveInPlace>}, image_order(kQuelt)},
    {TOVIX_DEMOSAIC_QUELT,        8, 32, {run<QueltMove32InPlace>},             {run<QueltMove32InPlace>}, image_order(kQuelt)},
    {TOVIX_DEMOSAIC_QUELT,       16, 24, {run<QueltMove16to8InPlace>},          {run<QueltMove16to8InPlace>}, image_order(kQuelt)},
    {TOVIX_DEMOSAIC_QUELT,       16, 32, {run<QueltMove16to832InPlace>},        {run<QueltMove16to832InPlace>}, image_order(kQuelt)},
    {TOVIX_DEMOSAIC_QUELT,       16, 48, {run<QueltMove16InPlace>},             {run<QueltMove16InPlace>}, image_order(kQuelt)},
    {TOVIX_DEMOSAIC_FOUR_COLOUR,  8, 24, {run<QueltMoveInPlace>},               {}, image_order(kQuelt)},
    {TOVIX_DEMOSAIC_FOUR_COLOUR,  8, 32, {run<FourColorsInterMove32InPlace>},   {run<FourColorsInterMove32InPlace>}},
    {TOVIX_DEMOSAIC_FOUR_COLOUR, 16, 24, {run<QueltMove16to8InPlace>},          {run<QueltMove16to8InPlace>}, image_order(kQuelt)},
    {TOVIX_DEMOSAIC_FOUR_COLOUR, 16, 32, {run<QueltMove16to832InPlace>},        {run<QueltMove16to832InPlace>}, image_order(kQuelt)},
};
// clang-format on

}  // namespace

Conversion find_conversion(unsigned method, unsigned sample_bits, unsigned pixel_bits, bool interlaced,
                           bool has_table) {
    for (const KernelRow& row : kKernels) {
        if (row.method != method || row.sample_bits != sample_bits || row.pixel_bits != pixel_bits) continue;
        Conversion found{interlaced ? row.interlaced : row.progressive, row.sweeping};
        if (interlaced || has_table) found.sweeping.order = color::RuleOrder::kImage;
        return found;
    }
    return {};
}

}  // namespace tovix::vorm
