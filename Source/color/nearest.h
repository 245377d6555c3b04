// SPDX-License-Identifier: Apache-2.0
// Rules that copy: nothing is invented, every value is a sample.
#pragma once

#include "mosaic.h"
#include "sweep.h"

namespace tovix::color {

/// The mosaic as it is: each pixel grey, in the shade of its own sample.
struct Grey {
    template <Site kSite, Around>
    static void fill(const auto& at) {
        const int own = at.sample(0, 0, kSite.colour());
        at.put((kSite.colour() + 1) % 3, own);
        at.put((kSite.colour() + 2) % 3, own);
    }
};

/// Nearest neighbour: all colours of a pixel come from one 2 x 2 cell, the one that ends in it; in the first
/// column and in the first row, the one that begins there.
struct Nearest {
    static constexpr Method kMethod = Method::kNearest;

    template <Site kSite, Around kIn>
    static void fill(const auto& at) {
        fill_red_and_blue<kSite, kIn>(at);
        if constexpr (!kSite.green) at.put(kGreen, near_green<kIn>(at));
    }

    template <Site kSite, Around kIn>
    static void fill_red_and_blue(const auto& at) {
        constexpr int kDx = kIn.left ? -1 : 1, kDy = kIn.above ? -1 : 1;
        if constexpr (kSite.green) {
            at.put(kSite.row_colour(), at.sample(kDx, 0, kSite.row_colour()));
            at.put(kSite.cross_colour(), at.sample(0, kDy, kSite.cross_colour()));
        } else {
            at.put(kSite.cross_colour(), at.sample(kDx, kDy, kSite.cross_colour()));
        }
    }

    /// For a red or blue site: the green of its row. The first column has it from above where there is an above.
    template <Around kIn>
    static int near_green(const auto& at) {
        if constexpr (kIn.left) return at.sample(-1, 0, kGreen);
        return kIn.above ? at.sample(0, -1, kGreen) : at.sample(1, 0, kGreen);
    }
};

}  // namespace tovix::color
