// SPDX-License-Identifier: Apache-2.0
// The built-in test chart. One unit of length makes a block of 1.25 x 1 units fit any sensor; what lies at
// the edges is anchored there, so other proportions only gain air or longer bands.
//
//   (*)  line pairs, lines per picture height  (*)
//   colours          ( star )          neutral grey
//   4 x 6            ( star )        rings, checkers
//   (*)  grey steps, gradient, name            (*)
//
// Every edge is drawn with the share of the pixel that it covers, and detail finer than the pixels fades to its mean.
#include <cmath>
#include <numbers>
#include <string>
#include <string_view>

#include "canvas.h"
#include "glyphs.h"
#include "scene.h"

namespace tovix::simulator {
namespace {

constexpr Colour kBlack = grey(0.015f), kWhite = grey(0.95f), kBackground = grey(0.30f);
constexpr float kPi = std::numbers::pi_v<float>;

/// sRGB codes, row by row: a wheel of strong hues, the same paler, then things that people know the colour of.
constexpr std::uint32_t kPatches[6][4] = {
    {0xB3262E, 0xD9701F, 0xE8C21C, 0x86B32D},  // red, orange, yellow, yellow green
    {0x238A43, 0x12908E, 0x1F5FA8, 0x3B3490},  // green, cyan, blue, indigo
    {0x7A2E8C, 0xC23A86, 0xE8899B, 0xF0C9A0},  // violet, magenta, pink, peach
    {0xF2E9B8, 0xB9DDB4, 0xA9D3E6, 0xC4B7E0},  // cream, mint, ice, lilac
    {0x5B3A29, 0x8F5D43, 0xC98F6F, 0xEBC4A8},  // four skins
    {0x4C6B3A, 0x6F8FB8, 0xA0442F, 0x8C8A7E},  // leaf, sky, brick, stone
};

constexpr int kLinesPerHeight[] = {100, 200, 300, 400, 500, 600, 800, 1000};

Colour from_srgb(std::uint32_t code) {
    const auto channel = [&](unsigned shift) { return srgb_to_linear(static_cast<float>(code >> shift & 0xFF) / 255); };
    return {channel(16), channel(8), channel(0)};
}

/// Coverage of a pixel whose centre lies `inside` pixels within a straight edge.
float soft_edge(float inside) {
    return std::clamp(inside + 0.5f, 0.0f, 1.0f);
}

/// A contrast that has gone when the pitch reaches two pixels, so that no false pattern shows in the scene itself.
float fade(float cycles_per_pixel) {
    return std::clamp(2.5f - 5 * cycles_per_pixel, 0.0f, 1.0f);
}

class Chart {
  public:
    Chart(std::uint32_t width, std::uint32_t height)
        : canvas_(width, height),
          width_(static_cast<float>(width)),
          height_(static_cast<float>(height)),
          unit_(std::min(width_ / 1.25f, height_)) {}

    Irradiance draw() {
        canvas_.fill({0, 0, width_, height_}, kBackground);
        frame();
        const float x = width_ / 2, y = height_ / 2, inset = 0.128f * unit_;
        for (const float star_x : {inset, width_ - inset})
            for (const float star_y : {inset, height_ - inset})
                star(star_x, star_y, 0.072f * unit_, 18);
        star(x, y, kStar * unit_, 36);
        for (const float dx : {-kSlanted, kSlanted})
            for (const float dy : {-kSlanted, kSlanted})
                slanted_square(x + dx * unit_, y + dy * unit_, dx * dy > 0 ? 1.0f : -1.0f);

        const float band_left = 0.228f * unit_, band_right = width_ - band_left;
        line_pairs({band_left, 0.058f * unit_, band_right, 0.198f * unit_});
        greys({band_left, height_ - 0.198f * unit_, band_right, height_ - 0.058f * unit_});

        // The side blocks stand half way between the sensor's edge and the star.
        const float block_x = (x - kStar * unit_) / 2;
        const Box left{block_x - 0.14f * unit_, y - 0.24f * unit_, block_x + 0.14f * unit_, y + 0.24f * unit_};
        patches(left);
        details({width_ - left.right, left.top, width_ - left.left, left.bottom});
        return canvas_.take();
    }

  private:
    static constexpr float kStar = 0.19f;      // radius of the central star, in units
    static constexpr float kSlanted = 0.178f;  // from the centre to the slanted squares, both ways

    float line_width() const { return std::max(1.0f, std::round(0.0025f * unit_)); }

    /// An outline of thickness `line` just outside `box`.
    void outline(const Box& box, float line, const Colour& colour) {
        const Box out = box.grown(line);
        canvas_.fill({out.left, out.top, out.right, box.top}, colour);
        canvas_.fill({out.left, box.bottom, out.right, out.bottom}, colour);
        canvas_.fill({out.left, box.top, box.left, box.bottom}, colour);
        canvas_.fill({box.right, box.top, out.right, box.bottom}, colour);
    }

    void frame() {
        const float line = line_width();
        const Box box = Box{0, 0, width_, height_}.grown(-0.024f * unit_).snapped();
        outline(box, line, kBlack);
        const float arm = 0.045f * unit_, thick = 2 * line;
        for (const bool right : {false, true})
            for (const bool low : {false, true}) {
                const float x = right ? box.right - thick : box.left, y = low ? box.bottom - thick : box.top;
                canvas_.fill({right ? box.right - arm : x, y, right ? box.right : x + arm, y + thick}, kWhite);
                canvas_.fill({x, low ? box.bottom - arm : y, x + thick, low ? box.bottom : y + arm}, kWhite);
            }
        // An arrow from the middle of each side to the very edge of the sensor.
        const float tip = 0.02f * unit_, x0 = width_ / 2, y0 = height_ / 2;
        const auto arrow = [&](float x, float y) {
            const float depth = std::min({x, y, width_ - x, height_ - y});
            const float off_axis = std::min(std::abs(x - x0), std::abs(y - y0));
            return Paint{kWhite, soft_edge((depth - off_axis) * std::numbers::sqrt2_v<float> / 2)};
        };
        canvas_.shade({x0 - tip, 0, x0 + tip, tip}, arrow);
        canvas_.shade({x0 - tip, height_ - tip, x0 + tip, height_}, arrow);
        canvas_.shade({0, y0 - tip, tip, y0 + tip}, arrow);
        canvas_.shade({width_ - tip, y0 - tip, width_, y0 + tip}, arrow);
    }

    /// A star of `spokes` black and as many white spokes on a white disc with a black rim.
    void star(float centre_x, float centre_y, float radius, int spokes) {
        const float rim = line_width(), spoke_count = static_cast<float>(spokes);
        const float edge = radius * 0.965f;
        canvas_.shade(Box::around(centre_x, centre_y, radius + rim + 1).snapped(), [&](float x, float y) {
            const float dx = x - centre_x, dy = y - centre_y, r = std::hypot(dx, dy);
            if (r > radius + rim + 1) return Paint{kBlack, 0};
            // The sine is the distance to the nearest edge of a spoke, in units of r / spokes.
            const float angle = std::atan2(dy, dx) * spoke_count;
            const float share = soft_edge(std::sin(angle) * r / spoke_count);
            const float fine = fade(spoke_count / (2 * kPi * std::max(r, 1e-3f)));
            const Colour spoke = mix(grey((kBlack[0] + kWhite[0]) / 2), mix(kBlack, kWhite, share), fine);
            const Colour on_disc = mix(kWhite, spoke, soft_edge(edge - r));
            return Paint{mix(kBlack, on_disc, soft_edge(radius - r)), soft_edge(radius + rim - r)};
        });
    }

    /// A dark square turned by 5 degrees: its edges give the response to a step, finer than the pixels.
    void slanted_square(float centre_x, float centre_y, float sense) {
        const float half = 0.029f * unit_, cosine = std::cos(kPi / 36), sine = sense * std::sin(kPi / 36);
        canvas_.shade(Box::around(centre_x, centre_y, half * 1.2f + 1), [&](float x, float y) {
            const float dx = x - centre_x, dy = y - centre_y;
            const float u = std::abs(dx * cosine + dy * sine), v = std::abs(dy * cosine - dx * sine);
            return Paint{kBlack, soft_edge(half - std::max(u, v))};
        });
    }

    /// Black and white lines; (across_x, across_y) is the unit vector across them. Averaged over a pixel exactly.
    void bars(const Box& box, float across_x, float across_y, float line) {
        const float pitch = 2 * line;
        const auto white_up_to = [&](float t) {
            const float whole = std::floor(t / pitch);
            return whole * line + std::max(0.0f, t - whole * pitch - line);
        };
        const float contrast = fade(1 / pitch);
        canvas_.shade(box, [&](float x, float y) {
            const float t = (x - box.left) * across_x + (y - box.top) * across_y;
            const float share = white_up_to(t + 0.5f) - white_up_to(t - 0.5f);
            return Paint{mix(kBlack, kWhite, 0.5f + (share - 0.5f) * contrast)};
        });
    }

    void line_pairs(const Box& band) {
        const float count = static_cast<float>(std::size(kLinesPerHeight));
        const float gap = 0.012f * unit_, step = (band.width() + gap) / count;
        const float label = 0.022f * unit_, row = (band.height() - label) / 3;
        float left = band.left;
        for (const int lines : kLinesPerHeight) {
            const float line = unit_ / static_cast<float>(lines);
            const float diagonal = std::numbers::sqrt2_v<float> / 2;
            const float directions[3][2] = {{1, 0}, {0, 1}, {diagonal, diagonal}};
            for (int k = 0; k < 3; ++k) {
                const float top = band.top + static_cast<float>(k) * row;
                bars(Box{left, top, left + step - gap, top + row - gap / 3}.snapped(), directions[k][0],
                     directions[k][1], line);
            }
            text(left + (step - gap) / 2, band.bottom - label * 0.75f, label * 0.75f, std::to_string(lines));
            left += step;
        }
    }

    /// Steps from black to white, even to the eye, above a gradient from white to black.
    void greys(const Box& band) {
        constexpr int kSteps = 12;
        const float steps_bottom = band.top + band.height() * 0.52f;
        const Box gradient =
            Box{band.left, steps_bottom + 0.008f * unit_, band.right, band.top + band.height() * 0.82f}.snapped();
        for (int i = 0; i < kSteps; ++i) {
            const float from = static_cast<float>(i) / kSteps, to = static_cast<float>(i + 1) / kSteps;
            const Box step{band.left + band.width() * from, band.top, band.left + band.width() * to, steps_bottom};
            canvas_.fill(step.snapped(), grey(srgb_to_linear(static_cast<float>(i) / (kSteps - 1))));
        }
        canvas_.shade(gradient, [&](float x, float) {
            return Paint{grey(srgb_to_linear((gradient.right - x) / gradient.width()))};
        });
        const auto number = [](float value) { return std::to_string(static_cast<int>(value)); };
        text(band.centre_x(), band.bottom - 0.0165f * unit_, 0.0165f * unit_,
             "TOVIX TEST CHART  " + number(width_) + " X " + number(height_));
    }

    void patches(const Box& card) {
        const float gap = 0.008f * unit_;
        canvas_.fill(card.snapped(), kBlack);
        const float step_x = (card.width() - gap) / 4, step_y = (card.height() - gap) / 6;
        for (int row = 0; row < 6; ++row)
            for (int column = 0; column < 4; ++column) {
                const float x = card.left + gap + static_cast<float>(column) * step_x;
                const float y = card.top + gap + static_cast<float>(row) * step_y;
                canvas_.fill(Box{x, y, x + step_x - gap, y + step_y - gap}.snapped(), from_srgb(kPatches[row][column]));
            }
    }

    /// The neutral patch for white balance, above rings and checkers.
    void details(const Box& block) {
        const float rings_size = 0.205f * unit_, checker = 0.055f * unit_;
        const float lower_top = block.bottom - rings_size;
        const Box neutral = Box{block.left, block.top, block.right, lower_top - 0.02f * unit_}.snapped();
        outline(neutral.grown(-line_width()), line_width(), kBlack);
        canvas_.fill(neutral.grown(-line_width()), grey(0.5f));
        text(neutral.centre_x(), neutral.bottom - 0.034f * unit_, 0.0165f * unit_, "NEUTRAL");

        rings(Box{block.left, lower_top, block.left + rings_size, block.bottom}.snapped());
        for (int i = 0; i < 3; ++i) {
            const float top = lower_top + static_cast<float>(i) * (rings_size - checker) / 2;
            checkers(Box{block.right - checker, top, block.right, top + checker}.snapped(), 4 << i);
        }
    }

    /// Rings whose pitch falls evenly towards the corners, to 350 cycles a unit at the middle of a side.
    void rings(const Box& box) {
        const float finest = 350 / unit_, radius = box.width() / 2;
        canvas_.shade(box, [&](float x, float y) {
            const float dx = x - box.centre_x(), dy = y - box.centre_y(), r = std::hypot(dx, dy);
            const float cycles = finest * r / radius;
            const float wave = std::cos(kPi * cycles * r) * fade(cycles);
            return Paint{mix(kBlack, kWhite, 0.5f + 0.5f * wave)};
        });
    }

    void checkers(const Box& box, int across) {
        const float cell = box.width() / static_cast<float>(across);
        canvas_.fill(box, kWhite);
        for (int row = 0; row < across; ++row)
            for (int column = row % 2; column < across; column += 2) {
                const float x = box.left + static_cast<float>(column) * cell;
                const float y = box.top + static_cast<float>(row) * cell;
                canvas_.fill({x, y, x + cell, y + cell}, kBlack);
            }
    }

    /// A line of text about `size` high, centred on x; its dots are whole pixels, so there is none on small sensors.
    void text(float centre_x, float top, float size, std::string_view line) {
        if (size < 0.7f * kGlyphHeight) return;
        const float dot = std::max(1.0f, std::floor(size / kGlyphHeight));
        const float advance = dot * (kGlyphWidth + 1);
        float left = std::round(centre_x - (advance * static_cast<float>(line.size()) - dot) / 2);
        const float first_row = std::round(top + (size - dot * kGlyphHeight) / 2);
        for (const char letter : line) {
            if (const std::size_t index = kGlyphNames.find(letter); index != kGlyphNames.npos)
                for (int row = 0; row < kGlyphHeight; ++row)
                    for (int column = 0; column < kGlyphWidth; ++column)
                        if (kGlyphs[index][static_cast<std::size_t>(row)] >> (kGlyphWidth - 1 - column) & 1) {
                            const float x = left + static_cast<float>(column) * dot;
                            const float y = first_row + static_cast<float>(row) * dot;
                            canvas_.fill({x, y, x + dot, y + dot}, kBlack);
                        }
            left += advance;
        }
    }

    Canvas canvas_;
    float width_, height_, unit_;
};

class ChartScene : public Scene {
    Irradiance project(std::uint32_t width, std::uint32_t height) const override { return Chart(width, height).draw(); }
};

}  // namespace

std::shared_ptr<const Scene> test_chart() {
    static const auto chart = std::make_shared<const ChartScene>();
    return chart;
}

}  // namespace tovix::simulator
