// SPDX-License-Identifier: Apache-2.0
// Readout geometry, the description of frames, and data rates.
#include <algorithm>
#include <iterator>

#include "handle.h"
#include "report.h"

namespace {

/// The geometry a call works with, on the standard error stream.
void print_geometry(const char* function, unsigned subsample_x, unsigned subsample_y, unsigned width, unsigned height,
                    unsigned x_offset, unsigned y_offset) {
    std::fprintf(stderr, "%s: subsample=%ux%d, size=%ux%d, position=%ux%d\n", function, subsample_x,
                 static_cast<int>(subsample_y), width, static_cast<int>(height), x_offset, static_cast<int>(y_offset));
}

/// Delivered pixels of an area of `size` sensor pixels, as the camera divides it: signed and truncating.
std::uint16_t subsampled(std::uint32_t size, std::uint16_t factor) {
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(size) / factor);
}

/// Write the geometry to the camera. The handle holds the new geometry even when a write fails.
[[nodiscard]] std::int32_t cam_write_format(_tovix* camera, const _tovix_frame_format& format) {
    camera->subsample_x = format.subsample_x;
    camera->subsample_y = format.subsample_y;
    camera->width = subsampled(format.width, format.subsample_x);
    camera->height = subsampled(format.height, format.subsample_y);
    camera->x_offset = static_cast<std::uint16_t>(format.x_offset);
    camera->y_offset = static_cast<std::uint16_t>(format.y_offset);
    print_geometry("cam_write_format", camera->subsample_x, camera->subsample_y, camera->width, camera->height,
                   camera->x_offset, camera->y_offset);
    const struct {
        Register reg;
        std::uint16_t first, second;
    } writes[] = {
        {kFoSize, static_cast<std::uint16_t>(format.width), static_cast<std::uint16_t>(format.height)},
        {kFoPosition, camera->x_offset, camera->y_offset},
        {kFoSubsampling, camera->subsample_x, camera->subsample_y},
    };
    for (const auto& [reg, first, second] : writes) {
        if (const std::int32_t result = tz_usb_write_tovix_two_u16(camera, reg.address, first, second); result < 0)
            return unwritable(reg, result);
    }
    return TOVIX_OK;
}

struct LayoutOfColor {
    std::uint32_t color_ids[4];
    std::uint32_t flags;
};
constexpr std::uint32_t kNone = UINT32_MAX;
constexpr LayoutOfColor kLayouts[] = {
    {{0, 5, 6, kNone}, TOVIX_IMAGE_MONO},
    {{8, 12, 19, 23}, 0},
    {{9, 13, 18, 22}, TOVIX_IMAGE_GREEN_FIRST},
    {{10, 14, 17, 21}, TOVIX_IMAGE_GREEN_FIRST | TOVIX_IMAGE_BLUE_ROW},
    {{11, 15, 16, 20}, TOVIX_IMAGE_BLUE_ROW},
    {{24, 31, kNone, kNone}, TOVIX_IMAGE_SECOND_FAMILY},
    {{25, 30, kNone, kNone}, TOVIX_IMAGE_SECOND_FAMILY | TOVIX_IMAGE_GREEN_FIRST},
    {{26, 29, kNone, kNone}, TOVIX_IMAGE_SECOND_FAMILY | TOVIX_IMAGE_GREEN_FIRST | TOVIX_IMAGE_BLUE_ROW},
    {{27, 28, kNone, kNone}, TOVIX_IMAGE_SECOND_FAMILY | TOVIX_IMAGE_BLUE_ROW},
};

/// Bytes in one frame. The multiplication wraps in 32 bits only for frames that no camera delivers.
std::uint32_t frame_bytes(const _tovix* camera) {
    const std::uint32_t bytes_a_pixel = camera->pixel_format == 1 ? 2 : camera->pixel_format == 2 ? 3 : 1;
    return std::uint32_t{camera->width} * camera->height * bytes_a_pixel;
}

}  // namespace

std::int32_t tovix_set_video_format(_tovix* camera, const _tovix_frame_format* format) {
    if (refuse_null(camera) || format == nullptr) return TOVIX_EFAIL;
    // The camera keeps factors in one byte, so 256 is as bad as 0.
    if ((format->subsample_x & 0xFF) == 0 || (format->subsample_y & 0xFF) == 0 || format->width == 0 ||
        format->height == 0) {
        return TOVIX_EINVAL;
    }
    if ((format->subsample_x > 1 || format->subsample_y > 1) && tovix_supports_subsampling(camera) == 0)
        return TOVIX_EINVAL;
    if (const std::int32_t result = cam_write_format(camera, *format); result < 0) return result;
    if (const std::int32_t result = tz_usb_reload_kps(camera); result < 0) return result;
    return TOVIX_OK;
}

std::int32_t tovix_get_video_format(_tovix* camera, _tovix_frame_format* format) {
    if (refuse_null(camera) || format == nullptr) return TOVIX_EFAIL;
    *format = _tovix_frame_format{
        .x_offset = camera->x_offset,
        .y_offset = camera->y_offset,
        .width = std::uint32_t{camera->width} * camera->subsample_x,
        .height = std::uint32_t{camera->height} * camera->subsample_y,
        .pixel_format = 0,
        .subsample_x = camera->subsample_x,
        .reserved_x = 0,
        .subsample_y = camera->subsample_y,
        .reserved_y = 0,
    };
    print_geometry("tovix_get_video_format", format->subsample_x, format->subsample_y, format->width, format->height,
                   format->x_offset, format->y_offset);
    return TOVIX_OK;
}

std::int32_t tovix_get_image_format(_tovix* camera, tovix_image_format* out) {
    if (refuse_null(camera) || out == nullptr) return TOVIX_EFAIL;
    out->size = sizeof *out;
    out->width = camera->width;
    out->height = camera->height;
    out->pixel_format = camera->pixel_format;
    out->image_size = frame_bytes(camera);
    for (const LayoutOfColor& layout : kLayouts) {
        const auto end = std::end(layout.color_ids);
        if (camera->color_id == kNone || std::find(std::begin(layout.color_ids), end, camera->color_id) == end)
            continue;
        out->flags = layout.flags;
        out->reserved = 0;
        return TOVIX_OK;
    }
    return TOVIX_EFAIL;
}

std::int32_t tovix_is_color(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    return camera->is_color;
}

std::int32_t tovix_supports_subsampling(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    return camera->camera != nullptr ? camera->camera->subsampling : 0;
}

std::int32_t tovix_count_available_data_rates(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    return camera->kps_count;
}

std::int32_t tovix_enum_available_data_rates(_tovix* camera, std::uint32_t* rates, int capacity) {
    if (refuse_null(camera) || (rates == nullptr && capacity > 0)) return TOVIX_EFAIL;
    const int count = std::min(capacity, static_cast<int>(camera->kps_count));
    for (int i = 0; i < count; ++i)
        rates[i] = camera->kps_list[i];
    return count;
}

std::int32_t tovix_set_data_rate(_tovix* camera, std::uint32_t rate) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    const std::int32_t result = tz_usb_write_tovix_u32(camera, kFoKps.address, rate);
    return result < 0 ? unwritable(kFoKps, result) : result;
}

std::int32_t tovix_get_data_rate(_tovix* camera, std::uint32_t* rate) {
    if (refuse_null(camera) || rate == nullptr) return TOVIX_EFAIL;
    const std::int32_t result = tz_usb_read_tovix_u32(camera, kFoKps.address, rate);
    return result < 0 ? unreadable(kFoKps, result) : result;
}
