// SPDX-License-Identifier: Apache-2.0
// From raw samples to pixels, without a look at any neighbour: first passes and grey copies.
#pragma once

#include <cstring>
#include <type_traits>

#include "mosaic.h"
#include "samples.h"
#include "sweep.h"

namespace tovix::color {

/// The pixels of one row of the image, by column of the picture.
template <class Pixel>
struct ImageRow {
    typename Pixel::Channel* first;
    std::int64_t step;  // from one column to the next: negative in a mirrored image

    ImageRow(typename Pixel::Channel* image, std::int64_t stride, const Placement& place, std::int64_t y)
        : first(image + place.image_row(y) * stride), step(place.mirrored ? -Pixel::size : Pixel::size) {
        if (place.mirrored) first += (place.size.width - 1) * Pixel::size;
    }
    auto* operator[](std::int64_t x) const { return first + x * step; }
};

/// Store every sample in the one channel of its pixel that kChannelOf names, and write nothing else.
template <class Pixel, int (Site::*kChannelOf)() const = &Site::colour>
void first_pass(typename Pixel::Channel* image, const auto& frame, const Placement& place, Site origin) {
    const std::int64_t width = place.size.width, height = place.size.height;
    if (!place.size.has_cells()) return;
    with_reader<typename Pixel::Channel>(frame, [&](const auto read) {
        for (std::int64_t y = 0; y < height; ++y) {
            const auto* const samples = read.frame + place.frame_row(y) * width * read.step;
            const ImageRow<Pixel> row(image, width * Pixel::size, place, y);
            const Site first = origin.in_row(y);
            const int even = (first.*kChannelOf)(), odd = (first.beside().*kChannelOf)();
            for (std::int64_t x = 0; x < width; x += 2) {
                row[x][even] = read(samples + x * read.step);
                row[x + 1][odd] = read(samples + (x + 1) * read.step);
            }
        }
    });
}

/// Store every sample in the first kChannels channels of its pixel. Rows are padded to a multiple of kAlignment bytes.
template <class Pixel, int kChannels, int kAlignment>
void grey_copy(typename Pixel::Channel* image, const auto& frame, const Placement& place) {
    const std::int64_t width = place.size.width, height = place.size.height;
    if (!place.size.has_cells()) return;
    static_assert(sizeof(*image) == 1 || kAlignment == 1, "padding is counted in bytes");
    const std::int64_t stride = (width * Pixel::size + kAlignment - 1) / kAlignment * kAlignment;
    if constexpr (kChannels == 3) {
        if (stride == width * Pixel::size &&
            sweep({Method::kGrey, RuleOrder::kImage, kLayoutOf<Pixel>, image, place, {}, nullptr}, frame))
            return;
    }
    with_reader<typename Pixel::Channel>(frame, [&](const auto read) {
        for (std::int64_t y = 0; y < height; ++y) {
            const auto* const samples = read.frame + place.frame_row(y) * width * read.step;
            const ImageRow<Pixel> row(image, stride, place, y);
            if constexpr (Pixel::size == 1 && std::is_same_v<decltype(read), const TopBytes<1>>) {
                if (!place.mirrored) {
                    std::memcpy(row.first, samples, static_cast<std::size_t>(width));
                    continue;
                }
            }
            for (std::int64_t x = 0; x < width; ++x) {
                const auto value = read(samples + x * read.step);
                for (int channel = 0; channel < kChannels; ++channel)
                    row[x][channel] = value;
            }
        }
    });
}

}  // namespace tovix::color
