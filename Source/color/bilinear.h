// SPDX-License-Identifier: Apache-2.0
// Rules that average neighbours. Averages truncate. Neighbours outside of the picture are left out, never repeated.
#pragma once

#include <cstdlib>

#include "rows.h"

namespace tovix::color {

template <Around kIn>
int horizontal(const auto& at, int channel) {
    if constexpr (!kIn.left) return at.sample(1, 0, channel);
    if constexpr (!kIn.right) return at.sample(-1, 0, channel);
    return average(at.sample(-1, 0, channel), at.sample(1, 0, channel));
}

template <Around kIn>
int vertical(const auto& at, int channel) {
    if constexpr (!kIn.above) return at.sample(0, 1, channel);
    if constexpr (!kIn.below) return at.sample(0, -1, channel);
    return average(at.sample(0, -1, channel), at.sample(0, 1, channel));
}

template <Around kIn>
int diagonal(const auto& at, int channel) {
    constexpr bool kColumns = kIn.left && kIn.right, kRows = kIn.above && kIn.below;
    constexpr int kDx = kIn.left ? -1 : 1, kDy = kIn.above ? -1 : 1;
    if constexpr (!kColumns && !kRows) return at.sample(kDx, kDy, channel);
    if constexpr (!kColumns) return average(at.sample(kDx, -1, channel), at.sample(kDx, 1, channel));
    if constexpr (!kRows) return average(at.sample(-1, kDy, channel), at.sample(1, kDy, channel));
    return average(at.sample(-1, -1, channel), at.sample(1, -1, channel), at.sample(-1, 1, channel),
                   at.sample(1, 1, channel));
}

/// Green of a red or blue site inside the picture, along the direction in which it changes least.
int green_along_edge(const auto& at) {
    const int left = at.sample(-1, 0, kGreen), right = at.sample(1, 0, kGreen);
    const int above = at.sample(0, -1, kGreen), below = at.sample(0, 1, kGreen);
    const int down = std::abs(above - below), across = std::abs(left - right);
    const int beside = average(left, right), over = average(above, below);
    const int all = average(left, right, above, below);
    return choose(down == across, all, choose(down > across, beside, over));
}

enum class RedCorner { kAverage, kHalves };

/// Bilinear, but green follows edges.
template <RedCorner kRedCorner>
struct EdgeDirectedWith {
    static constexpr Method kMethod = Method::kEdgeDirected;

    template <Site kSite, Around kIn>
    static void fill(const auto& at) {
        if constexpr (kSite.green) {
            at.put(kSite.row_colour(), horizontal<kIn>(at, kSite.row_colour()));
            at.put(kSite.cross_colour(), vertical<kIn>(at, kSite.cross_colour()));
        } else {
            at.put(kSite.cross_colour(), diagonal<kIn>(at, kSite.cross_colour()));
            at.put(kGreen, green<kSite, kIn>(at));
        }
    }

    template <Site kSite, Around kIn>
    static int green(const auto& at) {
        constexpr bool kColumns = kIn.left && kIn.right, kRows = kIn.above && kIn.below;
        if constexpr (kColumns && kRows) return green_along_edge(at);
        if constexpr (kColumns) return horizontal<kIn>(at, kGreen);
        if constexpr (kRows) return vertical<kIn>(at, kGreen);
        const int beside = horizontal<kIn>(at, kGreen), over = vertical<kIn>(at, kGreen);
        // Images depend on it: one less than the average when both are odd, and at red corners only.
        if constexpr (kRedCorner == RedCorner::kHalves && kSite.red_row) return (beside >> 1) + (over >> 1);
        return average(beside, over);
    }
};

using EdgeDirected = EdgeDirectedWith<RedCorner::kAverage>;
using EdgeDirectedRawBytes = EdgeDirectedWith<RedCorner::kHalves>;  // direct kernels on 8-bit frames

/// The filter's two greens kept apart: each of the four planes of the cell is bilinear on its own.
struct FourColour {
    template <Site kSite, Around kIn>
    static void fill(const auto& at) {
        constexpr int kBeside = kSite.beside().plane(), kOver = kSite.below().plane();
        constexpr int kAcross = kSite.beside().below().plane();
        at.put(kBeside, horizontal<kIn>(at, kBeside));
        at.put(kOver, vertical<kIn>(at, kOver));
        at.put(kAcross, diagonal<kIn>(at, kAcross));
    }
};

}  // namespace tovix::color
