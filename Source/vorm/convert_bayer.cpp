// SPDX-License-Identifier: Apache-2.0
// One frame, one kernel, and the colour matrix over the finished image.
#include <cstddef>
#include <cstdint>
#include <limits>

#include "kernel_table.h"
#include "tovixapi/tovixapi.h"
#include "tovixapi/vorm.h"

using namespace tovix::vorm;

namespace {

constexpr unsigned kMaxPixelBytes = 6;

/// 0 when there is no such kind of sample.
unsigned sample_bits(const _vorm_format& format) {
    return format.sample_kind == 0 ? 8 : format.sample_kind <= 2 ? 16 : 0;
}

/// The kind of image that is made when `bits` are asked for.
unsigned pixel_bits(unsigned bits, bool mono) {
    const bool known = bits == 32 || bits == 48 || (bits == 8 && mono);
    return known ? bits : 24;
}

/// Kernels work on the 2 x 2 cells of the mosaic. No byte of an image that passes is further than a pointer reaches.
bool has_cells(const _vorm_format& format) {
    constexpr std::uint64_t kMaxSide = std::numeric_limits<unsigned>::max();
    constexpr std::uint64_t kMaxPixels = std::numeric_limits<std::ptrdiff_t>::max() / kMaxPixelBytes;
    return format.width >= 2 && format.height >= 2 && format.width % 2 == 0 && format.height % 2 == 0 &&
           format.width <= kMaxSide && format.height <= kMaxSide && format.width <= kMaxPixels / format.height;
}

/// Rows one by one where the kernel has padded them, and in one go elsewhere.
void apply_matrix(short const* matrix, unsigned char* image, unsigned bits, unsigned row_alignment, std::uint64_t width,
                  std::uint64_t height) {
    const std::uint64_t row_bytes = width * (bits / 8);
    const std::uint64_t stride = (row_bytes + row_alignment - 1) / row_alignment * row_alignment;
    const bool gaps = stride != row_bytes;
    const std::uint64_t spans = gaps ? height : 1, pixels = gaps ? width : width * height;
    for (std::uint64_t span = 0; span < spans; ++span, image += stride) {
        switch (bits) {
            case 48: MatrixPostProcess16_4096(matrix, reinterpret_cast<unsigned short*>(image), pixels); break;
            case 32: MatrixPostProcess4096to32(matrix, image, pixels); break;
            default: MatrixPostProcess4096(matrix, image, pixels);
        }
    }
}

/// False when no sweep does it. Rows are not padded.
[[nodiscard]] bool sweep_frame(const Sweeping& sweeping, const KernelCall& call, unsigned char const* top_bytes16,
                               unsigned sample_bits, unsigned bits, short const* matrix) {
    using namespace tovix::color;
    if (!sweeping.method) return false;
    const Sweep what{
        .method = *sweeping.method,
        .order = sweeping.order,
        .layout = bits == 48   ? Layout::kRgb48
                  : bits == 32 ? Layout::kRgb32
                               : Layout::kRgb24,
        .image = call.image,
        .place = {{call.width, call.height}, call.flip_x != 0, call.top_down != 0, call.interlaced != 0},
        .origin = {call.red_row_first != 0, call.green_first != 0},
        .weights = matrix,
    };
    if (sample_bits == 8) return sweep(what, ByteFrame{call.frame, call.table8});
    const auto* const words = reinterpret_cast<unsigned short const*>(call.frame);
    return sweep(what, WordFrame{words, call.msb_first != 0, call.table16, top_bytes16});
}

}  // namespace

int CVorm::ConvertBayerToRgb(unsigned char* dst, unsigned char const* src, unsigned int bits,
                             _vorm_format const* frame_format, _vorm_settings const* frame_settings) {
    if (frame_format == nullptr || frame_settings == nullptr) return 0;
    const _vorm_format& f = *frame_format;
    const _vorm_settings& s = *frame_settings;
    const bool mono = f.mono != 0;
    const unsigned image_bits = pixel_bits(bits, mono);
    const unsigned method = mono ? unsigned{TOVIX_DEMOSAIC_NONE} : s.demosaic_method;
    // Of the two tables, the one for such samples decides which kernel runs.
    const bool has_table = s.lut_size != 0 && s.lut != nullptr && (f.sample_kind == 0 || s.lut16 != nullptr);
    const auto [kernel, sweeping] = find_conversion(method, sample_bits(f), image_bits, f.interlaced != 0, has_table);
    if (kernel.run == nullptr) return 0;
    if (f.width == 0 && f.height == 0) return 1;
    if (!has_cells(f) || dst == nullptr || src == nullptr) return 0;
    if (image_bits == 48 && reinterpret_cast<std::uintptr_t>(dst) % alignof(unsigned short) != 0) return 0;
    const bool corrected = !mono && s.correction_matrix != TOVIX_MATRIX_NONE;
    if (corrected && s.matrix == nullptr) return 0;

    const KernelCall call{
        .image = dst,
        .frame = src,
        .width = static_cast<unsigned>(f.width),
        .height = static_cast<unsigned>(f.height),
        .red_row_first = f.first_row_blue == 0,
        .green_first = f.first_green != 0,
        .flip_x = s.flip_x != 0,
        .top_down = (s.flip_y == 0) != (f.rows_reversed != 0),
        .interlaced = f.interlaced != 0,
        .msb_first = f.sample_kind == 1,
        .table8 = has_table ? s.lut->table : nullptr,
        .table16 = has_table ? s.lut16 : nullptr,
    };
    const bool padded = f.width * (image_bits / 8) % kernel.row_alignment != 0;
    if (!padded && sweep_frame(sweeping, call, top_bytes_of(call.table16), sample_bits(f), image_bits,
                               corrected ? s.matrix : nullptr)) {
        return 1;
    }
    kernel.run(call);
    if (corrected) apply_matrix(s.matrix, dst, image_bits, kernel.row_alignment, f.width, f.height);
    return 1;
}
