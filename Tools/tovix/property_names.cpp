// SPDX-License-Identifier: Apache-2.0
#include "property_names.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "failure.h"

namespace {

std::span<const tovix_property_info> properties() {
    return {tovix_properties, static_cast<std::size_t>(tovix_property_count)};
}

/// As in the table: lower case, with _ and without prefix.
std::string plain_name(std::string_view word) {
    constexpr std::string_view kPrefix = "tovix_prop_";
    std::string name(word);
    for (char& c : name)
        c = c == '-' ? '_' : c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : name;
}

/// Letters to add, to leave out or to change until one word is the other.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] != other[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

/// Names that somebody who typed `name` may have meant.
std::string near_names(const std::string& name) {
    constexpr std::size_t kLongest = 40, kFewLetters = 3;
    if (name.size() > kLongest) return {};
    std::string near;
    for (const tovix_property_info& row : properties()) {
        const std::string_view other = row.name;
        const bool holds = name.size() >= kFewLetters && other.find(name) != other.npos;
        if (holds || distance(name, other) <= std::max<std::size_t>(name.size() / 4, 2))
            near += (near.empty() ? "" : ", ") + std::string(other);
    }
    return near;
}

template <class Number>
bool is_number(std::string_view word, Number& number) {
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc() && end == word.data() + word.size();
}

}  // namespace

const tovix_property_info& property_named(const std::string& word) {
    const std::string name = plain_name(word);
    std::uint32_t number = 0;
    const bool by_number = is_number(word, number);
    for (const tovix_property_info& row : properties()) {
        if (by_number ? row.property == number : row.name == name) return row;
    }
    const std::string near = near_names(name);
    throw Failure("there is no property '" + printable(word) + "'; " +
                  (near.empty() ? "'tovix get' lists them all" : "did you mean " + near + "?"));
}

PropertySetting parse_setting(const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == word.npos) throw Failure("'" + printable(word) + "' is not NAME=VALUE");
    PropertySetting setting{&property_named(word.substr(0, equals)), 0, true, printable(word)};
    const tovix_property_info& property = *setting.property;
    if (property.kept_by == TOVIX_FIXED)
        throw Failure(std::string(property.name) + " is a fact about the camera and cannot be set");
    const std::string value = word.substr(equals + 1);
    const bool switches = property.property == TOVIX_PROP_TEMPERATURE;
    if (switches && plain_name(value) == "off") {
        setting.on = false;
    } else if (!is_number(value, setting.value) || !std::isfinite(setting.value)) {
        throw Failure("'" + printable(value) + "' is no value for " + property.name + "; give a number" +
                      (switches ? ", or off" : ""));
    }
    return setting;
}
