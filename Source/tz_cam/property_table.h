// SPDX-License-Identifier: Apache-2.0
// The property table: what applications see of a property, and how it is read and set.
#pragma once

#include <optional>

#include "handle.h"

/// Where a reading goes. `min` and `max` may be null. A reading that fails writes nothing.
struct PropertyReading {
    int* min;
    int* max;
    int* value;
    std::uint32_t* flags;
};

/// Both find a conversion object in the camera's handle, unless the property is TOVIX_FIXED. 0, a non-negative value of
/// a setter of the conversion object, or a negative value.
struct PropertyAccess {
    std::int32_t (*read)(_tovix* camera, const tovix_property_info& info, const PropertyReading& out);
    std::int32_t (*set)(_tovix* camera, const tovix_property_info& info, int value, std::uint32_t flags);  // or null
};

struct PropertyRow {
    tovix_property_info info;
    PropertyAccess access;
    std::optional<int> monochrome;  // all that a camera without colours reports of a colour setting
};

/// The row of a property, or null.
const PropertyRow* find_property(std::uint32_t property);
