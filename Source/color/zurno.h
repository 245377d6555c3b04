// SPDX-License-Identifier: Apache-2.0
// Zurno: averages corrected by second differences (Laplacians), along the direction that changes least.
//
// Green comes first, at red and blue sites; red and blue then follow the green. Every step reads raw samples
// and greens of an earlier step, so within a step any order gives the same image:
//
//   border   ring 0: all colours, by the edge-directed rule
//   ring 1:  green only, by the edge-directed rule       (needs 4 x 4 pixels)
//   ring 2+: green, corrected                            (needs 6 x 6)
//   ring 1+: red and blue, corrected                     (needs 4 x 4)
//
// Pictures 2 pixels wide or high are border alone.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "bilinear.h"
#include "rows.h"

namespace tovix::color {

/// A directional estimate: the rounded average of the two neighbours, raised by a quarter of the second
/// difference (twice the centre less the neighbours) of the channel that guides it. `/` truncates toward zero, also
/// below it.
constexpr int corrected(int a, int b, int second_difference) {
    return (a + b + 1) / 2 + (second_difference + 1) / 4;
}

/// The estimate of the direction with the smaller change, or half the sum of both when neither is.
constexpr int smoother(int change_1, int estimate_1, int change_2, int estimate_2) {
    const int half = (estimate_1 + estimate_2) / 2;
    return choose(change_1 == change_2, half, choose(change_1 < change_2, estimate_1, estimate_2));
}

template <class At>
void put_clamped(const At& at, int channel, int value) {
    at.put(channel, std::clamp<int>(value, 0, std::numeric_limits<typename At::Channel>::max()));
}

/// 2 * centre - one neighbour - the opposite one, of one channel; (dx, dy) leads to the neighbour.
int second_difference(const auto& at, int dx, int dy, int channel) {
    return 2 * at.sample(0, 0, channel) - at.sample(-dx, -dy, channel) - at.sample(dx, dy, channel);
}

struct ZurnoRingGreen {
    template <Site kSite, Around>
    static void fill(const auto& at) {
        if constexpr (!kSite.green) at.put(kGreen, green_along_edge(at));
    }
};

struct ZurnoGreen {
    template <Site kSite, Around>
    static void fill(const auto& at) {
        if constexpr (!kSite.green) {
            const int across = second_difference(at, 2, 0, kSite.row_colour());
            const int down = second_difference(at, 0, 2, kSite.row_colour());
            const int left = at.sample(-1, 0, kGreen), right = at.sample(1, 0, kGreen);
            const int above = at.sample(0, -1, kGreen), below = at.sample(0, 1, kGreen);
            put_clamped(at, kGreen,
                        smoother(std::abs(across) + std::abs(left - right), corrected(left, right, across),
                                 std::abs(down) + std::abs(above - below), corrected(above, below, down)));
        }
    }
};

struct ZurnoRedAndBlue {
    template <Site kSite, Around>
    static void fill(const auto& at) {
        if constexpr (kSite.green) {
            const int row = kSite.row_colour(), cross = kSite.cross_colour();
            put_clamped(at, row,
                        corrected(at.sample(-1, 0, row), at.sample(1, 0, row), second_difference(at, 1, 0, kGreen)));
            put_clamped(
                at, cross,
                corrected(at.sample(0, -1, cross), at.sample(0, 1, cross), second_difference(at, 0, 1, kGreen)));
        } else {
            const int cross = kSite.cross_colour();
            const int falling = second_difference(at, 1, 1, kGreen), rising = second_difference(at, 1, -1, kGreen);
            const int above_left = at.sample(-1, -1, cross), below_right = at.sample(1, 1, cross);
            const int above_right = at.sample(1, -1, cross), below_left = at.sample(-1, 1, cross);
            put_clamped(at, cross,
                        smoother(std::abs(falling) + std::abs(above_left - below_right),
                                 corrected(above_left, below_right, falling),
                                 std::abs(rising) + std::abs(above_right - below_left),
                                 corrected(above_right, below_left, rising)));
        }
    }
};

/// The steps above on an image that a first pass has laid out in the order of the picture, in place.
template <class Pixel>
void zurno_job(typename Pixel::Channel* image, const Size& size, Site origin) {
    if (!size.has_cells()) return;
    const std::int64_t width = size.width, height = size.height;
    const std::int64_t stride = width * Pixel::size;
    const auto row_at = [&](std::int64_t y) { return StoredRow<Pixel>{image + y * stride, stride}; };

    with_site(origin, [&](auto first) { fill_row<EdgeDirected, first(), false, true>(row_at(0), width); });
    with_site(origin.below(),
              [&](auto first) { fill_row<EdgeDirected, first(), true, false>(row_at(height - 1), width); });
    const auto fill_ends_and_greens = [&](std::int64_t y) {
        with_site(origin.in_row(y), [&](auto first) {
            const auto row = row_at(y);
            fill_ends<EdgeDirected, first(), true, true>(row, width);
            if (width < 4) return;
            if (y == 1 || y == height - 2) {
                fill_span<ZurnoRingGreen, first().beside(), kInside>(row, 1, width - 1);
            } else {
                fill_site<ZurnoRingGreen, first().beside(), kInside>(row[1]);
                fill_span<ZurnoGreen, first(), kInside>(row, 2, width - 2);
                fill_site<ZurnoRingGreen, first(), kInside>(row[width - 2]);
            }
        });
    };
    const auto fill_red_and_blue = [&](std::int64_t y) {
        with_site(origin.in_row(y),
                  [&](auto first) { fill_span<ZurnoRedAndBlue, first().beside(), kInside>(row_at(y), 1, width - 1); });
    };
    // Red and blue stay one row behind: they want the greens on all sides, and no green wants what they write.
    for (std::int64_t y = 1; y < height; ++y) {
        if (y < height - 1) fill_ends_and_greens(y);
        if (y > 1) fill_red_and_blue(y - 1);
    }
}

/// Mirrors the columns, reverses the rows, or both (half a turn), in place. Moves channels 0 to 2 and nothing else.
template <class Pixel>
void flip_around(typename Pixel::Channel* image, const Size& size, bool columns, bool rows) {
    if (!size.has_cells() || (!columns && !rows)) return;
    const std::int64_t width = size.width, height = size.height;
    const std::int64_t stride = width * Pixel::size;
    for (std::int64_t y = 0; y < (rows ? height / 2 : height); ++y) {
        auto* pixel = image + y * stride;
        auto* other = image + (rows ? height - 1 - y : y) * stride + (columns ? stride - Pixel::size : 0);
        const int step = columns ? -Pixel::size : Pixel::size;
        for (std::int64_t x = 0; x < (rows ? width : width / 2); ++x) {
            std::swap_ranges(pixel + x * Pixel::size, pixel + x * Pixel::size + 3, other + x * step);
        }
    }
}

/// Interpolates in the order of the picture and flips afterwards, so that flips move pixels and change none. (The fast
/// form need not: the rule is the same in every order.)
template <class Pixel>
void zurno(typename Pixel::Channel* image, const auto& frame, const Placement& place, Site origin) {
    if (sweep({Method::kZurno, RuleOrder::kImage, kLayoutOf<Pixel>, image, place, origin, nullptr}, frame)) return;
    first_pass<Pixel>(image, frame, Placement{place.size, false, true, place.two_fields}, origin);
    zurno_job<Pixel>(image, place.size, origin);
    flip_around<Pixel>(image, place.size, place.mirrored, !place.top_down);
}

}  // namespace tovix::color
