// SPDX-License-Identifier: Apache-2.0
#include "property_answers.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace {

constexpr const char* kKeepers[] = {"camera", "library", "conversion", "fixed"};  // by TOVIX_KEPT_BY_*

/// In a list of many, one that does not answer leaves a gap.
std::optional<PropertyState> try_read(const Camera& camera, const tovix_property_info& property) {
    try {
        return read_property(camera, property);
    } catch (const Failure&) {
        return {};
    }
}

nlohmann::ordered_json json_of(const PropertyState& state) {
    const tovix_property_info& property = *state.property;
    const auto in_range = [&](double value) { return state.has_range() ? nlohmann::ordered_json(value) : nullptr; };
    return {
        {"id", property.property},
        {"value", state.shown_value()},
        {"min", in_range(state.shown_min())},
        {"max", in_range(state.shown_max())},
        {"unit", unit_of(property)},
        {"kept_by", kKeepers[property.kept_by]},
        {"register", property.address != 0 ? nlohmann::ordered_json(text("0x%04X", property.address)) : nullptr},
        {"present", state.present()},
        {"on", state.on()},
        {"flags", state.flags},
    };
}

std::string keeper_text(const tovix_property_info& property) {
    const std::string keeper = kKeepers[property.kept_by];
    return property.address != 0 ? keeper + text(" 0x%04X", property.address) : keeper;
}

}  // namespace

std::vector<const tovix_property_info*> all_properties() {
    std::vector<const tovix_property_info*> all;
    for (int i = 0; i < tovix_property_count; ++i)
        all.push_back(&tovix_properties[i]);
    return all;
}

nlohmann::ordered_json properties_json(const Camera& camera, std::span<const tovix_property_info* const> properties) {
    nlohmann::ordered_json answer = nlohmann::ordered_json::object();
    for (const tovix_property_info* const property : properties) {
        const std::optional<PropertyState> state = try_read(camera, *property);
        answer[property->name] = state ? json_of(*state) : nullptr;
    }
    return answer;
}

void print_property_table(const Camera& camera) {
    constexpr char kRow[] = "%4s  %-22s  %9s  %-15s  %-9s  %-7s  %s\n";
    std::printf(kRow, "ID", "PROPERTY", "VALUE", "RANGE", "UNIT", "FLAGS", "KEPT BY");
    for (const tovix_property_info* const property : all_properties()) {
        const std::optional<PropertyState> state = try_read(camera, *property);
        const std::string value = state ? number_text(state->shown_value()) : "?";
        const std::string range = state && state->has_range()
                                      ? number_text(state->shown_min()) + " to " + number_text(state->shown_max())
                                      : "";
        const char* const flags = !state ? "" : !state->present() ? "absent" : state->on() ? "on" : "";
        std::printf(kRow, std::to_string(property->property).c_str(), property->name, value.c_str(), range.c_str(),
                    unit_of(*property), flags, keeper_text(*property).c_str());
    }
}
