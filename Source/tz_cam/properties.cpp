// SPDX-License-Identifier: Apache-2.0
// The calls through which every property is read and set. What they do with each stands in the property table.
#include "property_table.h"
#include "report.h"

std::int32_t tovix_property_set(_tovix* camera, std::uint32_t property, int value, std::uint32_t flags) {
    if (const std::int32_t result = tz_usb_create_vorm(camera); result < 0) return result;
    const PropertyRow* const row = find_property(property);
    if (row == nullptr || row->access.set == nullptr) return TOVIX_EINVAL;
    return row->access.set(camera, row->info, value, flags);
}

std::int32_t tovix_property_get(_tovix* camera, std::uint32_t property, int* value, std::uint32_t* flags) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (value == nullptr || flags == nullptr) return TOVIX_EINVAL;
    *flags = 0;
    *value = 0;
    const PropertyRow* const row = find_property(property);
    if (row != nullptr && row->info.kept_by == TOVIX_FIXED)
        return row->access.read(camera, row->info, {nullptr, nullptr, value, flags});
    return tovix_property_get_range(camera, property, nullptr, nullptr, value, flags);
}

std::int32_t tovix_property_get_range(_tovix* camera, std::uint32_t property, int* min, int* max, int* value,
                                      std::uint32_t* flags) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (value == nullptr || flags == nullptr) return TOVIX_EINVAL;
    if (const std::int32_t result = tz_usb_create_vorm(camera); result < 0) return result;
    const auto give_all = [&](int level) {
        *value = level;
        if (min != nullptr) *min = level;
        if (max != nullptr) *max = level;
    };
    *flags = 0;
    give_all(0);
    const PropertyRow* const row = find_property(property);
    if (row == nullptr || row->info.kept_by == TOVIX_FIXED) return TOVIX_EINVAL;
    if (row->monochrome && camera->is_color == 0) {
        give_all(*row->monochrome);
        return TOVIX_OK;
    }
    return row->access.read(camera, row->info, {min, max, value, flags});
}
