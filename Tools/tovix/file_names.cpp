// SPDX-License-Identifier: Apache-2.0
#include "file_names.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "failure.h"

namespace {

/// The number with at least `digits` digits.
std::string padded(std::uint32_t number, int digits) {
    return text("%0*u", digits, number);
}

/// `name` with its %d or %0Nd replaced, or nothing when it has none. Users' text is never handed to printf.
std::optional<std::string> fill_pattern(const std::string& name, std::uint32_t number) {
    for (std::size_t at = name.find('%'); at != std::string::npos; at = name.find('%', at + 1)) {
        const std::string rest = name.substr(at + 1, 3);
        if (rest.starts_with('d')) return name.substr(0, at) + padded(number, 1) + name.substr(at + 2);
        if (rest.size() == 3 && rest[0] == '0' && rest[1] >= '1' && rest[1] <= '9' && rest[2] == 'd')
            return name.substr(0, at) + padded(number, rest[1] - '0') + name.substr(at + 4);
    }
    return {};
}

}  // namespace

std::optional<ImageKind> kind_of(const std::string& name) {
    std::string extension = std::filesystem::path(name).extension().string();
    std::ranges::transform(extension, extension.begin(), [](unsigned char c) { return std::tolower(c); });
    if (extension == ".raw") return ImageKind::kRaw;
    if (extension == ".png") return ImageKind::kPng;
    if (extension == ".tif" || extension == ".tiff") return ImageKind::kTiff;
    return {};
}

std::string frame_name(const std::string& name, std::uint32_t number, std::uint32_t count) {
    const std::filesystem::path path(name);
    std::string last = path.filename().string();
    if (const auto filled = fill_pattern(last, number)) {
        last = *filled;
    } else if (count > 1) {
        last = path.stem().string() + "-" + padded(number, 4) + path.extension().string();
    }
    return (path.parent_path() / last).string();
}
