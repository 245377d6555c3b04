// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "camera_properties.h"
#include "report.h"

namespace {

constexpr std::uint32_t kBlock = TOVIX_TEMPERATURE;
constexpr Register kSwitch{kBlock + TOVIX_PROPERTY_FLAGVAL, "TOVIX_TEMPERATURE + TOVIX_PROPERTY_FLAGVAL"};
constexpr Register kSetPoint{kBlock + TOVIX_PROPERTY_CURVAL, "TOVIX_TEMPERATURE + TOVIX_PROPERTY_CURVAL"};

[[nodiscard]] std::int32_t write(_tovix* camera, const Register& reg, std::uint32_t word) {
    const std::int32_t result = tz_usb_write_tovix_u32(camera, reg.address, word);
    return result < 0 ? unwritable(reg, result) : result;
}

}  // namespace

std::int32_t cam_set_temperature_helper(_tovix* camera, int value, std::uint32_t flags) {
    if (camera->temp_supported == 0) return TOVIX_EINVAL;
    value = std::max<int>(value, camera->temp_min);
    value = std::min<int>(value, camera->temp_max);  // not std::clamp: a camera may have given its bounds crosswise
    if (const std::int32_t result = write(camera, kSwitch, flags); result < 0) return result;
    if (const std::int32_t result = write(camera, kSetPoint, static_cast<std::uint32_t>(value)); result < 0)
        return result;
    camera->temp_value = static_cast<std::uint8_t>(value);
    camera->temp_on = (flags & TOVIX_PROPERTY_ON) != 0;
    if (camera->fan_supported != 0) {
        if (const std::int32_t result = write(camera, kFanRegister, flags); result < 0) return result;
        camera->fan_on = camera->temp_on;
    }
    return TOVIX_OK;
}
