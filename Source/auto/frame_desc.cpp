// SPDX-License-Identifier: Apache-2.0
#include "auto.h"
#include "handle.h"

namespace {

/// One side of the rectangle, in 64 bits so that sums of the caller's numbers cannot wrap.
struct Span {
    std::int64_t start, size, frame_size;

    bool in_frame() const { return start >= 0 && start + size <= frame_size; }

    void trim(std::int64_t border) {
        if (start < border) {
            size -= border - start;
            start = border;
        }
        if (start + size + border > frame_size) size = frame_size - border - start;
    }
};

bool has_msb_second(std::uint32_t pixel_format) {
    return pixel_format == 6 || (pixel_format >= 24 && pixel_format <= 27);
}

}  // namespace

std::int32_t fill_FrameDesc(_tovix* camera, int, _FrameDesc* desc, int x, int y, int width, int height, int border) {
    _tovix_frame_format format{};
    if (const std::int32_t result = tovix_get_video_format(camera, &format); result < 0) return result;
    if (format.pixel_format > 1) return TOVIX_ENOTSUP;
    // The area of the sensor divided by the subsampling, as the handle keeps it: right also for a camera that reports a
    // factor of 0, which counts as 1.
    Span across{x, width, camera->width}, down{y, height, camera->height};
    if (border < 0 || !across.in_frame() || !down.in_frame()) return TOVIX_EINVAL;
    across.trim(border);
    down.trim(border);
    if (across.size <= 0 || down.size <= 0) return TOVIX_EINVAL;
    *desc = {
        .frame_width = across.frame_size,
        .frame_height = down.frame_size,
        .sample_16bit = format.pixel_format,
        .sample_msb_second = has_msb_second(camera->pixel_format),
        .field_layout = 0,
        .win_x = across.start,
        .win_y = down.start,
        .win_width = across.size,
        .win_height = down.size,
    };
    return TOVIX_OK;
}

bool IsCameraDifferentGreenResponses(std::uint32_t product_id) {
    const std::uint32_t model = product_id & 0xFF;
    return model == 0x36 || model == 0x37;
}
