// SPDX-License-Identifier: Apache-2.0
#include "camera_properties.h"

std::int32_t cam_read_prop(_tovix* camera, std::uint32_t base, tovix_prop* prop) {
    std::uint32_t words[4]{};
    if (const std::int32_t result = tz_usb_read_tovix_array(camera, base, words, 4); result < 0) return result;
    *prop = {.flags = words[0],
             .value = static_cast<std::int32_t>(words[1]),
             .min = static_cast<std::int32_t>(words[2]),
             .max = static_cast<std::int32_t>(words[3])};
    return TOVIX_OK;
}

std::int32_t cam_write_prop(_tovix* camera, std::uint32_t base, const tovix_prop* prop) {
    const std::uint32_t words[2] = {prop->flags, static_cast<std::uint32_t>(prop->value)};
    return tz_usb_write_tovix_array(camera, base, words, 2);
}

std::int32_t cam_set_prop_helper(_tovix* camera, std::uint32_t base, int value, std::uint32_t flags) {
    const tovix_prop prop{.flags = flags, .value = value, .min = 0, .max = 0};
    return cam_write_prop(camera, base, &prop);
}

std::int32_t cam_get_prop_helper(_tovix* camera, std::uint32_t base, int* min, int* max, int* value,
                                 std::uint32_t* flags) {
    tovix_prop prop{};
    if (const std::int32_t result = cam_read_prop(camera, base, &prop); result < 0) return result;
    if (min != nullptr) *min = prop.min;
    if (max != nullptr) *max = prop.max;
    *value = prop.value;
    *flags = prop.flags;
    return TOVIX_OK;
}
