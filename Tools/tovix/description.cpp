// SPDX-License-Identifier: Apache-2.0
#include "description.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <string_view>

#include "input_file.h"

namespace {

constexpr std::uint64_t kMaxBytes = 64 * 1024;  // far more than any description

/// All of `word` as a number of that base from `least` to `most`.
std::optional<std::uint32_t> number_in(std::string_view word, std::uint32_t least, std::uint32_t most, int base = 10) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, base);
    if (error != std::errc() || end != word.data() + word.size() || number < least || number > most) return {};
    return number;
}

bool take_side(std::optional<std::uint32_t>& side, std::string_view word) {
    return (side = number_in(word, 1, kMaxSide)).has_value();
}

bool is_number(RawFacts&, std::string_view word) {
    return number_in(word, 0, ~0u).has_value();
}

/// The keys that may stand in a description, and what takes their values: false for one that cannot be.
constexpr struct {
    std::string_view key;
    bool (*take)(RawFacts& facts, std::string_view word);
} kKeys[] = {
    {"width", [](RawFacts& facts, std::string_view word) { return take_side(facts.width, word); }},
    {"height", [](RawFacts& facts, std::string_view word) { return take_side(facts.height, word); }},
    {"bits",
     [](RawFacts& facts, std::string_view word) {
         facts.bits = number_in(word, 8, 16);
         return facts.bits == 8 || facts.bits == 16;
     }},
    {"byte_order",
     [](RawFacts& facts, std::string_view word) {
         facts.msb_first = word == "big";
         return word == "big" || word == "little";
     }},
    {"color_filter",
     [](RawFacts& facts, std::string_view word) {
         facts.color_filter = word;
         return color_filter_flags(*facts.color_filter).has_value();
     }},
    {"product_id",
     [](RawFacts& facts, std::string_view word) {
         if (!word.starts_with("0x")) return false;
         const auto number = number_in(word.substr(2), 0, 0xFFFF, 16);
         if (number) facts.product_id = static_cast<std::uint16_t>(*number);
         return number.has_value();
     }},
    {"model",
     [](RawFacts& facts, std::string_view word) {
         facts.model = word;
         return true;
     }},
    {"color_filter_family", is_number},
    {"x_offset", is_number},
    {"y_offset", is_number},
    {"subsample_x", is_number},
    {"subsample_y", is_number},
    {"serial", is_number},
    {"frame", is_number},
};

}  // namespace

std::string description_name(const std::string& raw_name) {
    return raw_name + ".txt";
}

std::string describe(const FrameDescription& frame) {
    const FrameLayout& layout = frame.layout;
    return text("width=%u\nheight=%u\nbits=%u\nbyte_order=%s\n", layout.width, layout.height, layout.bits,
                layout.msb_first ? "big" : "little") +
           text("color_filter=%s\ncolor_filter_family=%u\n", layout.color_filter.c_str(), layout.color_filter_family) +
           text("x_offset=%u\ny_offset=%u\n", frame.area.x_offset, frame.area.y_offset) +
           text("subsample_x=%u\nsubsample_y=%u\n", unsigned{frame.area.subsample_x},
                unsigned{frame.area.subsample_y}) +
           text("model=%s\nproduct_id=0x%04X\n", frame.camera.model.c_str(), frame.camera.identity.product_id) +
           text("serial=%u\nframe=%u\n", frame.camera.identity.serial_number, frame.number);
}

RawFacts read_description(const std::string& raw_name) {
    const std::string name = description_name(raw_name);
    std::error_code error;
    if (!std::filesystem::exists(std::filesystem::symlink_status(name, error))) return {};
    const std::vector<std::uint8_t> bytes = InputFile(name).read(kMaxBytes);

    RawFacts facts;
    std::array<bool, std::size(kKeys)> seen{};
    std::string_view rest(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (unsigned line_number = 1; !rest.empty(); ++line_number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const auto refuse = [&](const char* why) {
            constexpr std::size_t kShown = 40;
            throw Failure(text("%s, line %u: %s: '", printable(name).c_str(), line_number, why) +
                          printable(std::string(line.substr(0, kShown))) +
                          "'; correct it, or remove the file and give options");
        };
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) refuse("not a key, '=' and a value");
        const auto known = std::ranges::find(kKeys, line.substr(0, equals), [](const auto& row) { return row.key; });
        if (known == std::end(kKeys)) refuse("unknown key");
        bool& again = seen[static_cast<std::size_t>(known - kKeys)];
        if (again) refuse("said before");
        again = true;
        if (!known->take(facts, line.substr(equals + 1))) refuse("not a possible value");
    }
    return facts;
}
