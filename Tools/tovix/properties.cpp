// SPDX-License-Identifier: Apache-2.0
#include "properties.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>

namespace {

constexpr char kAdvice[] = "plug the camera in again, or run with --verbose to see each step";

bool counts_degrees(const tovix_property_info& property) {
    return property.property == TOVIX_PROP_TEMPERATURE;
}

/// A float has no more digits than its shortest text, which a double would continue with noise.
double without_noise(float value) {
    char digits[64];
    const auto end = std::to_chars(digits, std::end(digits), value).ptr;
    double plain = 0;
    std::from_chars(digits, end, plain);
    return plain;
}

double shown(const tovix_property_info& property, int value) {
    return counts_degrees(property) ? value : without_noise(ConvertPropToFloat(property.property, value));
}

/// Throw Failure when the camera would not take it.
void check(const PropertySetting& setting, const PropertyState& state) {
    const tovix_property_info& property = *setting.property;
    if (!state.present()) throw Failure(std::string("this camera has no ") + property.name);
    if (!setting.on) return;
    // As floats, which both ends are.
    const auto [min, max] = std::minmax({state.shown_min(), state.shown_max()});
    const double value = counts_degrees(property) ? setting.value : without_noise(static_cast<float>(setting.value));
    if (value < min || value > max)
        throw Failure(setting.word + " is out of range: " + property.name + " is " +
                      (min < max ? number_text(min) + " to " : "always ") + value_text(property, max));
    if (counts_degrees(property) && value != static_cast<int>(value))
        throw Failure(setting.word + ": the camera counts whole degrees");
}

/// The camera's switch is the only flag that the tool changes. Applications own the low half of the word.
std::uint32_t new_flags(const PropertySetting& setting, const PropertyState& state) {
    const std::uint32_t flags = state.flags & 0xFFFF;
    if (!counts_degrees(*setting.property)) return flags;
    return setting.on ? flags | TOVIX_PROPERTY_ON : flags & ~std::uint32_t{TOVIX_PROPERTY_ON};
}

}  // namespace

double PropertyState::shown_value() const {
    return shown(*property, value);
}

double PropertyState::shown_min() const {
    return shown(*property, min);
}

double PropertyState::shown_max() const {
    return shown(*property, max);
}

const char* unit_of(const tovix_property_info& property) {
    return counts_degrees(property) ? "degrees C" : property.unit;
}

std::string number_text(double value) {
    char digits[64];
    const auto [end, error] =
        std::to_chars(digits, std::end(digits), static_cast<float>(value), std::chars_format::fixed);
    return error == std::errc() ? std::string(digits, end) : text("%g", value);
}

std::string value_text(const tovix_property_info& property, double value) {
    const std::string unit = unit_of(property);
    return number_text(value) + (unit.empty() ? "" : " ") + unit;
}

int sent_value(const PropertySetting& setting) {
    const tovix_property_info& property = *setting.property;
    if (counts_degrees(property)) return static_cast<int>(setting.value);
    // The float interface rounds negative numbers up, so its result may have a better neighbour. What is out of range,
    // and could wrap into it here, has been refused.
    const int guess = ConvertPropToLong(property.property, static_cast<float>(setting.value));
    const auto error = [&](int value) { return std::abs(shown(property, value) - setting.value); };
    return guess > INT_MIN && error(guess - 1) < error(guess) ? guess - 1 : guess;
}

PropertyState read_property(const Camera& camera, const tovix_property_info& property) {
    PropertyState state{&property, 0, 0, 0, 0};
    const std::int32_t result =
        state.has_range() ? tovix_property_get_range(camera.handle(), property.property, &state.min, &state.max,
                                                     &state.value, &state.flags)
                          : tovix_property_get(camera.handle(), property.property, &state.value, &state.flags);
    if (result < 0) throw camera.quiet().failure(std::string("cannot read ") + property.name, result, kAdvice);
    return state;
}

PropertyState read_property(const Camera& camera, std::uint32_t property) {
    return read_property(camera, property_named(std::to_string(property)));
}

void set_properties(const Camera& camera, const std::vector<PropertySetting>& settings) {
    std::vector<PropertyState> states;
    for (const PropertySetting& setting : settings)
        check(setting, states.emplace_back(read_property(camera, *setting.property)));
    for (std::size_t i = 0; i < settings.size(); ++i) {
        const PropertySetting& setting = settings[i];
        const tovix_property_info& property = *setting.property;
        const int value = setting.on ? sent_value(setting) : states[i].value;
        const std::int32_t result =
            tovix_property_set(camera.handle(), property.property, value, new_flags(setting, states[i]));
        if (result == TOVIX_EMODEL)
            throw Failure("cannot set " + setting.word + ": colours without saturation have no gains; set " +
                          "digital_saturation above 0.05");
        if (result < 0) throw camera.quiet().failure("cannot set " + setting.word, result, kAdvice);
    }
}
