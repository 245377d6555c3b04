// SPDX-License-Identifier: Apache-2.0
// Properties of an open camera in the units that users see: those of the float interface, but the temperature in
// degrees Celsius, as the camera counts it, not in the thousandths of a kelvin that the float interface takes it for.
#pragma once

#include <vector>

#include "camera.h"
#include "property_names.h"

/// Where a property stands. Without a range, `min` and `max` mean nothing.
struct PropertyState {
    const tovix_property_info* property;
    int value, min, max;
    std::uint32_t flags;

    bool has_range() const { return property->kept_by != TOVIX_FIXED; }
    /// False for one that the camera knows the registers of, but does not have.
    bool present() const { return property->kept_by != TOVIX_KEPT_BY_CAMERA || (flags & TOVIX_PROPERTY_PRESENT) != 0; }
    bool on() const { return (flags & TOVIX_PROPERTY_ON) != 0; }
    bool kept_by_conversion() const { return property->kept_by == TOVIX_KEPT_BY_CONVERSION; }

    double shown_value() const;
    double shown_min() const;
    double shown_max() const;
};

/// Unit of the values of a property; empty where they are factors or numbers.
const char* unit_of(const tovix_property_info& property);
/// A value with the digits that tell it from its neighbours, as in "0.01".
std::string number_text(double value);
/// The same and its unit.
std::string value_text(const tovix_property_info& property, double value);

/// The integer value that a setting sends.
int sent_value(const PropertySetting& setting);

/// Throws Failure.
PropertyState read_property(const Camera& camera, const tovix_property_info& property);
PropertyState read_property(const Camera& camera, std::uint32_t property);

/// Set properties, in this order. All are checked before the first is sent. Throws Failure.
void set_properties(const Camera& camera, const std::vector<PropertySetting>& settings);
