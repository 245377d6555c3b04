// SPDX-License-Identifier: Apache-2.0
#include "adjustment_arguments.h"

#include "option_values.h"

namespace {

/// X,Y,WxH
Rectangle parse_rectangle(const std::string& value) {
    const std::size_t comma = value.find(','), second = value.find(',', comma + 1), cross = value.find('x', second + 1);
    if (comma == value.npos || second == value.npos || cross == value.npos)
        throw CLI::ValidationError("--roi", "'" + printable(value) + "' is not X,Y,WxH, as in 100,60,64x48");
    const auto number = [&](std::size_t from, std::size_t to, std::uint32_t least) {
        return parse_number(std::string_view(value).substr(from, to - from), least, kMaxSide, "--roi");
    };
    const Rectangle area = {number(0, comma, 0), number(comma + 1, second, 0), number(second + 1, cross, 1),
                            number(cross + 1, value.size(), 1)};
    if (((area.width | area.height) & 1) != 0)
        throw CLI::ValidationError("--roi", "'" + value + "': width and height have to be even; pixels count in pairs");
    return area;
}

}  // namespace

const tovix_property_info* property_argument(const std::string& word) try {
    return &property_named(word);
} catch (const Failure& failure) {
    throw CLI::ValidationError("NAME", failure.what());
}

PropertySetting setting_argument(const std::string& word, const std::string& option) try {
    return parse_setting(word);
} catch (const Failure& failure) {
    throw CLI::ValidationError(option, failure.what());
}

void add_settings(CLI::App& command, std::vector<PropertySetting>& settings) {
    const auto take = [&settings](const std::vector<std::string>& words) {
        for (const std::string& word : words)
            settings.push_back(setting_argument(word, "--set"));
    };
    command.add_option_function<std::vector<std::string>>("--set", take, "Set a property beforehand; see set --help")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
}

std::vector<CLI::Option*> add_adjustment_options(CLI::App& command, AdjustmentOptions& options) {
    const auto take_area = [&options](const std::string& value) { options.area = parse_rectangle(value); };
    return {command
                .add_option_function<std::string>("--roi", take_area,
                                                  "Rectangle of the frame that is measured, of even\n"
                                                  "width and height (the middle third each way)")
                ->type_name("X,Y,WxH"),
            add_number(command, "--target", "LEVEL", options.target, 1u, 254u,
                       "Mean that exposure and gain aim at, of 255 (64)"),
            add_number(command, "--steps", "N", options.most_steps, 1u, 1'000'000u,
                       "Give up after N measured frames (50; focus: 2000)")};
}

Adjustment adjustment_argument(const std::string& word, const std::string& option) {
    for (const Adjustment what : {Adjustment::kExposure, Adjustment::kGain, Adjustment::kWhiteBalance,
                                  Adjustment::kDigitalWhiteBalance, Adjustment::kFocus}) {
        if (word == name_of(what)) return what;
    }
    throw CLI::ValidationError(option, "'" + printable(word) + "' is none of " + kAdjustments);
}
