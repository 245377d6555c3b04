// SPDX-License-Identifier: Apache-2.0
// The fixed-point colour matrix over finished pixels: integers only.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace tovix::colora {

/// Every pixel of `kChannels` channels, of which the first three are written.
template <int kChannels, class Channel>
void apply_matrix(short const* matrix, Channel* pixel, unsigned long count) {
    constexpr int kFractionBits = 12;  // weights are in 4096ths
    constexpr int kWeightsPerRow = 4;
    using Sum = std::conditional_t<sizeof(Channel) == 1, std::int32_t, std::int64_t>;
    static_assert(std::numeric_limits<Sum>::max() / kChannels / 32768 >= std::numeric_limits<Channel>::max());
    constexpr Sum kMax = Sum{std::numeric_limits<Channel>::max()} << kFractionBits;
    Sum weights[3][kChannels];  // apart from the pixels, which as bytes might be the matrix for all the
                                // compiler knows
    for (int row = 0; row < 3; ++row)
        std::copy_n(matrix + row * kWeightsPerRow, kChannels, weights[row]);
    for (const Channel* const end = pixel + count * kChannels; pixel != end; pixel += kChannels) {
        const auto output = [&](int row) {
            Sum sum = 0;
            for (int channel = 0; channel < kChannels; ++channel)
                sum += weights[row][channel] * pixel[channel];
            return static_cast<Channel>(std::clamp<Sum>(sum, 0, kMax) >> kFractionBits);
        };
        const Channel red = output(0), green = output(1), blue = output(2);
        pixel[0] = red, pixel[1] = green, pixel[2] = blue;
    }
}

}  // namespace tovix::colora
