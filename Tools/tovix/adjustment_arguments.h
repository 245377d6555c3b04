// SPDX-License-Identifier: Apache-2.0
// The options of the command line that set properties, and that say how the camera adjusts itself.
#pragma once

#include <CLI/CLI.hpp>
#include <vector>

#include "adjustment.h"
#include "property_names.h"

/// What cannot be right as wrong usage: throws CLI::ValidationError for a Failure of property_named() or
/// parse_setting().
const tovix_property_info* property_argument(const std::string& word);
PropertySetting setting_argument(const std::string& word, const std::string& option);

/// --set, any number of times. `settings` outlives the parsing, and so do those below.
void add_settings(CLI::App& command, std::vector<PropertySetting>& settings);
/// --roi, --target and --steps.
std::vector<CLI::Option*> add_adjustment_options(CLI::App& command, AdjustmentOptions& options);

constexpr char kAdjustments[] = "exposure|gain|white-balance|digital-white-balance|focus";
/// One of kAdjustments. Throws CLI::ValidationError for another word.
Adjustment adjustment_argument(const std::string& word, const std::string& option);
