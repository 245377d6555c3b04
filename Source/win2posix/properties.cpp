// SPDX-License-Identifier: Apache-2.0
// The property calls of older applications: 1 or 0 for a result, floats for values, and flag words whose lower half
// stands in the upper one.
#include <cstdint>

#include "tovixapi/tovixapi.h"

namespace {

constexpr int kFlagShift = 16;

}  // namespace

std::uint32_t TovixLastError = 0;

bool TovixPropertyGetRange(_tovix* camera, std::uint32_t property, int* min, int* max, int* value,
                           std::uint32_t* flags) {
    return tovix_property_get_range(camera, property, min, max, value, flags) >= 0;
}

bool TovixPropertySet(_tovix* camera, std::uint32_t property, int value, std::uint32_t flags) {
    return tovix_property_set(camera, property, value, flags) >= 0;
}

bool TovixPropertyGet(_tovix* camera, std::uint32_t property, int* value, std::uint32_t* flags) {
    return tovix_property_get(camera, property, value, flags) >= 0;
}

std::int32_t TovixPropertyRange(_tovix* camera, std::uint32_t property, float* min, float* max, float* value,
                                std::uint32_t* flags) {
    if (min == nullptr || max == nullptr || value == nullptr) return 0;
    int lowest = 0, highest = 0, now = 0;
    if (!TovixPropertyGetRange(camera, property, &lowest, &highest, &now, flags)) return 0;
    *min = ConvertPropToFloat(property, lowest);
    *max = ConvertPropToFloat(property, highest);
    *value = ConvertPropToFloat(property, now);
    return 1;
}

std::int32_t TovixSetProperty(_tovix* camera, std::uint32_t property, float value, int flags) {
    // The sign fills the upper half: what stands there is not an application's to choose.
    const auto word = static_cast<std::uint32_t>(flags >> kFlagShift);
    return TovixPropertySet(camera, property, ConvertPropToLong(property, value), word);
}

std::int32_t TovixGetProperty(_tovix* camera, std::uint32_t property, float* value, std::uint32_t* flags) {
    if (value == nullptr || flags == nullptr) return 0;
    int now = 0;
    std::uint32_t word = 0;
    if (!TovixPropertyGet(camera, property, &now, &word)) return 0;
    *value = ConvertPropToFloat(property, now);
    *flags = word << kFlagShift;
    return 1;
}
