// SPDX-License-Identifier: Apache-2.0
#include "frame_layout.h"

#include "tovixapi/tovixapi.h"

namespace {

constexpr struct {
    const char* name;
    std::uint32_t flags;
} kFilters[] = {
    {"RGGB", 0},
    {"GRBG", TOVIX_IMAGE_GREEN_FIRST},
    {"BGGR", TOVIX_IMAGE_BLUE_ROW},
    {"GBRG", TOVIX_IMAGE_BLUE_ROW | TOVIX_IMAGE_GREEN_FIRST},
    {"none", TOVIX_IMAGE_MONO},
};

}  // namespace

std::optional<std::uint32_t> color_filter_flags(const std::string& color_filter) {
    for (const auto& filter : kFilters) {
        if (filter.name == color_filter) return filter.flags;
    }
    return {};
}

std::string color_filter_of(std::uint32_t flags) {
    if ((flags & TOVIX_IMAGE_MONO) != 0) return "none";
    flags &= TOVIX_IMAGE_BLUE_ROW | TOVIX_IMAGE_GREEN_FIRST;
    for (const auto& filter : kFilters) {
        if (filter.flags == flags) return filter.name;
    }
    return "none";
}
