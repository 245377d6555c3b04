// SPDX-License-Identifier: Apache-2.0
// Quelt: red and blue as the nearest neighbour, green as the average of the cell that ends in the pixel.
#pragma once

#include "nearest.h"
#include "rows.h"

namespace tovix::color {

struct Quelt {
    static constexpr Method kMethod = Method::kQuelt;

    template <Site kSite, Around kIn>
    static void fill(const auto& at) {
        Nearest::fill_red_and_blue<kSite, kIn>(at);
        if constexpr (kIn.left && kIn.above) {
            // A green site loses its own sample here. Only sites to the right and below read it, so they come first.
            at.put(kGreen, kSite.green ? average(at.sample(-1, -1, kGreen), at.sample(0, 0, kGreen))
                                       : average(at.sample(0, -1, kGreen), at.sample(-1, 0, kGreen)));
        } else if constexpr (!kSite.green) {
            // Copied along the first row and column; the corner has a cell of its own.
            at.put(kGreen, kIn.left || kIn.above ? Nearest::near_green<kIn>(at)
                                                 : average(at.sample(1, 0, kGreen), at.sample(0, 1, kGreen)));
        }
    }
};

}  // namespace tovix::color
