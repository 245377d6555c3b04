// SPDX-License-Identifier: Apache-2.0
// Drawing with soft edges, in linear light. Coordinates are pixels of the sensor; pixel x covers [x, x + 1).
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "scene.h"

namespace tovix::simulator {

using Colour = std::array<float, 3>;

constexpr Colour grey(float level) {
    return {level, level, level};
}

inline Colour mix(const Colour& from, const Colour& to, float share) {
    Colour out;
    for (std::size_t c = 0; c < 3; ++c)
        out[c] = from[c] + (to[c] - from[c]) * share;
    return out;
}

struct Box {
    float left, top, right, bottom;

    float width() const { return right - left; }
    float height() const { return bottom - top; }
    float centre_x() const { return (left + right) / 2; }
    float centre_y() const { return (top + bottom) / 2; }
    Box grown(float by) const { return {left - by, top - by, right + by, bottom + by}; }
    /// With its edges between pixels, where they are sharp.
    Box snapped() const { return {std::round(left), std::round(top), std::round(right), std::round(bottom)}; }
    static Box around(float x, float y, float half_size) {
        return {x - half_size, y - half_size, x + half_size, y + half_size};
    }
};

/// A colour and how much of the pixel it hides.
struct Paint {
    Colour colour;
    float opacity = 1;
};

class Canvas {
  public:
    Canvas(std::uint32_t width, std::uint32_t height) : image_(width, height) {}

    /// Cover `box` with `paint_at(x, y)`, a Paint, asked for at the centre of each pixel that the box touches.
    void shade(const Box& box, const auto& paint_at) {
        const std::size_t right = last(box.right, image_.width), bottom = last(box.bottom, image_.height);
        const std::size_t left = std::min(first(box.left), right);
        for (std::size_t row = first(box.top); row < bottom; ++row) {
            const float y = static_cast<float>(row), in_row = overlap(box.top, box.bottom, y);
            float* pixel = image_.row(row) + 3 * left;
            for (std::size_t column = left; column < right; ++column, pixel += 3) {
                const float x = static_cast<float>(column);
                const Paint paint = paint_at(x + 0.5f, y + 0.5f);
                const float share = paint.opacity * in_row * overlap(box.left, box.right, x);
                for (std::size_t c = 0; c < 3; ++c)
                    pixel[c] += (paint.colour[c] - pixel[c]) * share;
            }
        }
    }

    void fill(const Box& box, const Colour& colour) {
        shade(box, [&](float, float) { return Paint{colour}; });
    }

    Irradiance take() { return std::move(image_); }

  private:
    static std::size_t first(float edge) { return static_cast<std::size_t>(std::max(edge, 0.0f)); }
    static std::size_t last(float edge, std::uint32_t limit) {
        return std::min<std::size_t>(first(std::ceil(edge)), limit);
    }
    static float overlap(float begin, float end, float pixel) {
        return std::clamp(std::min(end, pixel + 1) - std::max(begin, pixel), 0.0f, 1.0f);
    }

    Irradiance image_;
};

}  // namespace tovix::simulator
