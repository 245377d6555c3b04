// SPDX-License-Identifier: Apache-2.0
// How a user names a property, and the value that it is to have.
#pragma once

#include <string>

#include "tovixapi/tovixapi.h"

/// The property of that number, or of that name: in any case, with - or _, with or without TOVIX_PROP_. Throws Failure
/// when there is none.
const tovix_property_info& property_named(const std::string& word);

/// What a property is to be set to.
struct PropertySetting {
    const tovix_property_info* property;
    double value;      // in the unit of its values, see property_value()
    bool on = true;    // of the temperature control: false switches it off, and the value means nothing
    std::string word;  // as given: NAME=VALUE, printable
};

/// Read NAME=VALUE. Throws Failure for what can be seen to be wrong without a camera.
PropertySetting parse_setting(const std::string& word);
