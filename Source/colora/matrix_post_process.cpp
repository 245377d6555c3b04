// SPDX-License-Identifier: Apache-2.0
// The fixed-point colour matrix over finished pixels: one sweep, integers only.
#include <algorithm>
#include <cstdint>
#include <limits>

#include "tovixapi/vorm.h"

namespace {

constexpr int kFractionBits = 12;  // weights are in 4096ths
constexpr int kWeightsPerRow = 4;

/// Every pixel of `kChannels` channels, of which the first three are written. `Sum` holds the sum of
/// kChannels products of a weight and a channel.
template <class Sum, int kChannels, class Channel>
void post_process(short const* matrix, Channel* pixel, unsigned long count) {
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

}  // namespace

void MatrixPostProcess4096(short const* matrix, unsigned char* pixels, unsigned long count) {
    post_process<std::int32_t, 3>(matrix, pixels, count);
}

void MatrixPostProcess4096to32(short const* matrix, unsigned char* pixels, unsigned long count) {
    post_process<std::int32_t, 4>(matrix, pixels, count);
}

void MatrixPostProcess16_4096(short const* matrix, unsigned short* pixels, unsigned long count) {
    post_process<std::int64_t, 3>(matrix, pixels, count);
}
