// SPDX-License-Identifier: Apache-2.0
// What an open reads from the camera's registers: temperature and fan, geometry and colour, data rates.
#include <cstdlib>
#include <utility>

#include "device.h"
#include "report.h"

namespace {

constexpr std::uint32_t kPresent = 0x80000000;  // bit 31 of a flag word
constexpr std::uint32_t kSwitchedOn = 0x8000;   // bit 15 of a flag word

struct ColorCode {
    std::uint8_t read[3];    // the sensor's codes
    std::uint32_t color_id;  // the code that the host assumes for them
    const char* layout;      // null for a monochrome sensor
};
constexpr ColorCode kColorCodes[] = {
    {{0, 5, 6}, 0, nullptr},    {{8, 12, 24}, 8, "rggb"},   {{9, 13, 25}, 9, "grbg"},
    {{10, 14, 26}, 10, "gbrg"}, {{11, 15, 27}, 11, "bggr"},
};

/// Set the colour fields from the sensor's code. A code that is not known is reported and leaves a monochrome camera.
void apply_color_code(_tovix* camera, std::uint32_t code) {
    for (const ColorCode& known : kColorCodes) {
        for (const std::uint32_t known_code : known.read) {
            if (code != known_code) continue;
            if (known.layout != nullptr) std::fprintf(stderr, "format: %s\n", known.layout);
            camera->is_color = known.layout != nullptr;
            camera->color_id = known.color_id;
            return;
        }
    }
    std::fprintf(stderr, "error: unsupported image format %X\n", code);
}

}  // namespace

std::int32_t usb_init_temperature(_tovix* camera) {
    std::uint32_t block[4]{};  // flags, value, minimum, maximum
    if (const std::int32_t result = tz_usb_read_tovix_array(camera, TOVIX_TEMPERATURE, block, 4); result < 0)
        return result;
    std::uint32_t fan = 0;
    if (const std::int32_t result = tz_usb_read_tovix_u32(camera, kFanRegister.address, &fan); result < 0)
        return unreadable(kFanRegister, result);

    camera->temp_supported = (block[0] & kPresent) != 0;
    camera->fan_supported = (fan & kPresent) != 0;
    camera->temp_on = (block[0] & kSwitchedOn) != 0;
    camera->fan_on = (fan & kSwitchedOn) != 0;
    camera->temp_value = static_cast<std::uint8_t>(block[1]);
    camera->temp_min = static_cast<std::int8_t>(block[2]);
    camera->temp_max = static_cast<std::int8_t>(block[3]);

    if (camera->temp_supported && camera->fan_supported && camera->fan_on != camera->temp_on) {
        camera->fan_on = camera->temp_on;
        const std::uint32_t follow = camera->temp_on ? fan | kSwitchedOn : fan & ~kSwitchedOn;
        if (const std::int32_t result = tz_usb_write_tovix_u32(camera, kFanRegister.address, follow); result < 0)
            return unwritable(kFanRegister, result);
    }
    return TOVIX_OK;
}

std::int32_t usb_init_geometry(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    const struct {
        Register reg;
        std::uint16_t *first, *second;
    } pairs[] = {
        {kFoMaxSize, &camera->max_width, &camera->max_height},
        {kFoUnitSize, &camera->unit_width, &camera->unit_height},
        {kFoPosition, &camera->x_offset, &camera->y_offset},
        {kFoSize, &camera->width, &camera->height},
        {kFoSubsampling, &camera->subsample_x, &camera->subsample_y},
    };
    for (const auto& [reg, first, second] : pairs) {
        if (const std::int32_t result = tz_usb_read_tovix_two_u16(camera, reg.address, first, second); result < 0)
            return unreadable(reg, result);
    }
    std::fprintf(stderr, "params: size=%dx%d, max_size=%dx%d, position=%dx%d\n", camera->width, camera->height,
                 camera->max_width, camera->max_height, camera->x_offset, camera->y_offset);
    camera->pixel_format = 0;

    std::uint32_t color_code = 0;
    if (const std::int32_t result = tz_usb_read_tovix_u32(camera, kFoColorInq.address, &color_code); result < 0)
        return unreadable(kFoColorInq, result);
    apply_color_code(camera, color_code);

    std::uint32_t subsampling = 0;
    if (const std::int32_t result = tz_usb_read_tovix_u32(camera, kFoSubsamplingInq.address, &subsampling); result < 0)
        return unreadable(kFoSubsamplingInq, result);
    if (const std::uint32_t largest = subsampling & 0xFF; largest > 1) {
        std::fprintf(stderr, "subsampling is available: max=%d\n", static_cast<int>(largest));
    } else {
        std::fprintf(stderr, "subsampling is not available\n");
    }

    if (const std::int32_t result = tz_usb_write_tovix_u32(camera, kFoColorId.address, camera->color_id); result < 0)
        return unwritable(kFoColorId, result);
    return tz_usb_reload_kps(camera);
}

std::int32_t tz_usb_reload_kps(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    std::uint16_t smallest = 0, largest = 0;
    if (const std::int32_t result = tz_usb_read_tovix_two_u16(camera, kFoKpsMinmaxInq.address, &smallest, &largest);
        result < 0) {
        return unreadable(kFoKpsMinmaxInq, result);
    }
    std::fprintf(stderr, "kps: min=%d, max=%d\n", smallest, largest);

    std::uint32_t count = 0;
    if (const std::int32_t result = tz_usb_read_tovix_u32(camera, kFoKpsArrayCnt.address, &count); result < 0)
        return unreadable(kFoKpsArrayCnt, result);
    if (count > UINT16_MAX) return unreadable(kFoKpsArrayCnt, TOVIX_EFAIL);  // no count that the handle can hold
    std::fprintf(stderr, "kps count: %d\n", static_cast<int>(count));

    std::free(std::exchange(camera->kps_list, nullptr));
    camera->kps_count = 0;
    if (count == 0) return TOVIX_OK;  // no rates, so no default either
    camera->kps_list = static_cast<std::uint16_t*>(std::calloc(count, sizeof *camera->kps_list));
    if (camera->kps_list == nullptr) {
        std::fprintf(stderr, "error: unable to allocate memory: %s\n", error_text());
        return TOVIX_EFAIL;
    }
    camera->kps_count = static_cast<std::uint16_t>(count);

    for (std::uint32_t i = 0; i < count; i += 2) {  // the camera steps through its list from one read to the next
        std::uint16_t low = 0, high = 0;
        if (const std::int32_t result = tz_usb_read_tovix_two_u16(camera, kFoKpsArray.address, &low, &high); result < 0)
            return unreadable(kFoKpsArray, result);
        camera->kps_list[i] = low;
        if (i + 1 < count) camera->kps_list[i + 1] = high;
    }

    const bool has_fpga = camera->camera != nullptr && camera->camera->fpga_file != nullptr;
    const std::uint16_t default_rate = camera->kps_list[has_fpga ? count - 1 : 0];
    if (const std::int32_t result = tz_usb_write_tovix_u32(camera, kFoKps.address, default_rate); result < 0)
        return unwritable(kFoKps, result);
    std::fprintf(stderr, "current kps: %d\n", default_rate);
    return TOVIX_OK;
}
