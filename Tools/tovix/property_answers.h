// SPDX-License-Identifier: Apache-2.0
// Properties in the answers of commands.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <vector>

#include "properties.h"

/// Every property of the camera, by number.
std::vector<const tovix_property_info*> all_properties();

/// An object by name; null for a property that cannot be read.
nlohmann::ordered_json properties_json(const Camera& camera, std::span<const tovix_property_info* const> properties);

/// A line a property, with a heading.
void print_property_table(const Camera& camera);
