// SPDX-License-Identifier: Apache-2.0
#include "frame_measure.h"

#include <algorithm>

namespace {

constexpr std::uint8_t kTop = 255;

struct Plane {
    std::uint64_t sum = 0, count = 0, clipped = 0;

    void add(std::uint8_t sample) {
        sum += sample;
        ++count;
        clipped += sample == kTop;
    }
    void add(const Plane& other) {
        sum += other.sum;
        count += other.count;
        clipped += other.clipped;
    }
    double mean() const { return count != 0 ? static_cast<double>(sum) / static_cast<double>(count) : 0; }
    double clipped_share() const { return count != 0 ? static_cast<double>(clipped) / static_cast<double>(count) : 0; }
};

}  // namespace

Levels measure(std::span<const std::uint8_t> samples, const FrameLayout& layout, const Rectangle& area) {
    Plane places[2][2];  // of the colour filter's cell, from the frame's corner
    for (std::uint32_t y = area.y; y < area.y + area.height; ++y) {
        const auto row = samples.subspan(std::size_t{y} * layout.width, layout.width);
        for (std::uint32_t x = area.x; x < area.x + area.width; ++x)
            places[y % 2][x % 2].add(row[x]);
    }
    Plane all, red, green, blue;
    for (std::size_t i = 0; i < 4; ++i) {
        const Plane& place = places[i / 2][i % 2];
        all.add(place);
        const char colour = layout.mono() ? 'G' : layout.color_filter[i];
        (colour == 'R' ? red : colour == 'B' ? blue : green).add(place);
    }
    if (layout.mono()) red = blue = green;
    return {all.mean(), red.mean(), green.mean(), blue.mean(),
            std::max({red.clipped_share(), green.clipped_share(), blue.clipped_share()})};
}

Rectangle middle_of(const FrameLayout& layout) {
    const auto even = [](std::uint32_t number) { return number & ~1u; };
    const std::uint32_t width = std::max(even(layout.width / 3), std::min(layout.width, 2u));
    const std::uint32_t height = std::max(even(layout.height / 3), std::min(layout.height, 2u));
    return {even((layout.width - width) / 2), even((layout.height - height) / 2), width, height};
}
