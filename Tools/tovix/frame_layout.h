// SPDX-License-Identifier: Apache-2.0
// How the samples of a raw frame lie in memory, and which colour each of them is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The largest side that a camera's size registers can hold.
constexpr std::uint32_t kMaxSide = 65535;

/// Rows top to bottom, unpadded.
struct FrameLayout {
    std::uint32_t width, height;
    std::uint32_t bits = 8;                 // of a sample: 8, or 16 in two bytes
    bool msb_first = false;                 // which of the two comes first
    std::string color_filter;               // samples of the first two rows, as in "RGGB"; "none": monochrome
    std::uint32_t color_filter_family = 1;  // 1, or 2 for the second family of colour codes

    bool mono() const { return color_filter == "none"; }
    std::uint64_t bytes() const { return std::uint64_t{width} * height * (bits / 8); }
};

/// A color_filter as the TOVIX_IMAGE_* bits for it, or nothing when there is no such filter.
std::optional<std::uint32_t> color_filter_flags(const std::string& color_filter);
/// The color_filter that the TOVIX_IMAGE_* bits stand for.
std::string color_filter_of(std::uint32_t flags);
