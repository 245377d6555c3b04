// SPDX-License-Identifier: Apache-2.0
// Options of the command line whose values are numbers.
#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include "commands.h"

/// All of `digits` as a number from `least` to `most`; decimal, unless a base of whole numbers is given.
template <class Number>
Number parse_number(std::string_view digits, Number least, Number most, const std::string& option, auto... base) {
    Number number{};
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base...);
    // Written so that what is not a number at all fails too.
    if (error != std::errc() || end != digits.data() + digits.size() || !(number >= least && number <= most))
        throw CLI::ValidationError(option, "'" + printable(std::string(digits)) + "' is not a number from " +
                                               CLI::detail::to_string(least) + " to " + CLI::detail::to_string(most));
    return number;
}

/// An option with a decimal number, kept within its range.
template <class Number, class Target>
CLI::Option* add_number(CLI::App& app, const std::string& name, const std::string& unit, Target& target, Number least,
                        Number most, const std::string& help) {
    const auto parse = [=, &target](const std::string& value) { target = parse_number(value, least, most, name); };
    return app.add_option_function<std::string>(name, parse, help)->type_name(unit);
}

/// An option with two numbers and `separator` between them; a lone number counts twice where that is allowed.
inline CLI::Option* add_pair(CLI::App& app, const std::string& name, char separator, bool lone_allowed,
                             std::optional<NumberPair>& pair, std::uint16_t least, std::uint16_t most,
                             const std::string& help) {
    const auto parse = [=, &pair](const std::string& value) {
        const std::size_t at = value.find(separator);
        if (at == std::string::npos && !lone_allowed)
            throw CLI::ValidationError(name, "'" + printable(value) + "' has no '" + separator + "'");
        const std::string_view whole = value;
        const std::string_view second = at == std::string::npos ? whole : whole.substr(at + 1);
        pair =
            NumberPair{parse_number(whole.substr(0, at), least, most, name), parse_number(second, least, most, name)};
    };
    return app.add_option_function<std::string>(name, parse, help);
}

/// Three numbers with commas between them.
inline std::array<double, 3> parse_three(const std::string& value, double least, double most,
                                         const std::string& option) {
    std::array<double, 3> numbers{};
    std::string_view rest = value;
    for (double& number : numbers) {
        const bool last = &number == &numbers.back();
        const std::size_t comma = rest.find(',');
        if (last != (comma == std::string_view::npos))
            throw CLI::ValidationError(option,
                                       "'" + printable(value) + "' is not three numbers with commas between them");
        number = parse_number(rest.substr(0, comma), least, most, option);
        if (!last) rest.remove_prefix(comma + 1);
    }
    return numbers;
}

/// An option with one of a few words, each of which stands for a value.
template <class Value>
CLI::Option* add_choice(CLI::App& app, const std::string& name, std::optional<Value>& target,
                        std::vector<std::pair<std::string, Value>> choices, const std::string& help) {
    std::string words;
    for (const auto& choice : choices)
        words += (words.empty() ? "" : "|") + choice.first;
    const auto parse = [=, &target](const std::string& word) {
        for (const auto& choice : choices) {
            if (choice.first == word) target = choice.second;
        }
        if (!target) throw CLI::ValidationError(name, "'" + printable(word) + "' is none of " + words);
    };
    return app.add_option_function<std::string>(name, parse, help)->type_name(words);
}
