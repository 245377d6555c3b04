// SPDX-License-Identifier: Apache-2.0
// How a rule reaches the sites of a picture.
//
// A demosaic method is a rule for one site: Rule::fill<kSite, kIn>(at) puts the colours that a site of that
// kind lacks, where kIn says which neighbours there are. It does not know where the neighbours are stored:
// `at` does. Here are the two kinds of `at`, and the loops that take a rule over a picture. What a site holds
// and where it stands is known at compile time everywhere: two kinds of site take turns within a row, and ends are
// taken apart.
//
// Loops run from the last row to the first, and from right to left but for the first column, which comes
// after the last: so a rule may overwrite a site's own sample inside the picture when only sites to the right
// and below read it, and every value that is read is still a sample. Quelt needs this; nobody else minds.
#pragma once

#include <type_traits>

#include "first_pass.h"
#include "mosaic.h"
#include "sweep.h"

namespace tovix::color {

constexpr int average(int a, int b) {
    return (a + b) >> 1;
}
constexpr int average(int a, int b, int c, int d) {
    return (a + b + c + d) >> 2;
}

/// `yes` or `no` without a branch, for conditions that noise decides and no processor can predict.
constexpr int choose(bool condition, int yes, int no) {
    return no ^ ((yes ^ no) & -static_cast<int>(condition));
}

/// A site of an image that a first pass has laid out, filled in place.
template <class Pixel>
struct StoredSite {
    using Channel = typename Pixel::Channel;
    Channel* pixel;
    std::int64_t stride;

    int sample(int dx, int dy, int channel) const { return pixel[dx * Pixel::size + dy * stride + channel]; }
    void put(int channel, int value) const { pixel[channel] = static_cast<Channel>(value); }
    void keep(int /*own_channel*/) const {}  // it is in place
};

template <class Pixel>
struct StoredRow {
    typename Pixel::Channel* first;
    std::int64_t stride;
    StoredSite<Pixel> operator[](std::int64_t x) const { return {first + x * Pixel::size, stride}; }
};

/// A site of a raw frame, whose pixel goes to another place. Each place of the frame holds one colour, so the channel
/// need not be named.
template <class Pixel, int kStep>
struct RawSite {
    const std::uint8_t* own;
    std::int64_t row_bytes;
    typename Pixel::Channel* pixel;

    int sample(int dx, int dy, int /*channel*/) const { return own[dx * kStep + dy * row_bytes]; }
    void put(int channel, int value) const { pixel[channel] = static_cast<typename Pixel::Channel>(value); }
    void keep(int own_channel) const { pixel[own_channel] = *own; }
};

template <class Pixel, int kStep>
struct RawRow {
    const std::uint8_t* first;
    std::int64_t row_bytes;
    ImageRow<Pixel> image;
    RawSite<Pixel, kStep> operator[](std::int64_t x) const { return {first + x * kStep, row_bytes, image[x]}; }
};

/// Calls `use` with a site known at compile time.
void with_site(Site site, const auto& use) {
    if (site.red_row) {
        site.green ? use(std::integral_constant<Site, Site{true, true}>{})
                   : use(std::integral_constant<Site, Site{true, false}>{});
    } else {
        site.green ? use(std::integral_constant<Site, Site{false, true}>{})
                   : use(std::integral_constant<Site, Site{false, false}>{});
    }
}

template <class Rule, Site kSite, Around kIn>
void fill_site(const auto& at) {
    at.keep(kSite.colour());
    Rule::template fill<kSite, kIn>(at);
}

/// An even number of pixels of a row, `begin` up to before `end`. kBegin is the site at `begin`.
template <class Rule, Site kBegin, Around kIn>
void fill_span(const auto& row, std::int64_t begin, std::int64_t end) {
    for (std::int64_t x = end - 2; x >= begin; x -= 2) {
        fill_site<Rule, kBegin.beside(), kIn>(row[x + 1]);
        fill_site<Rule, kBegin, kIn>(row[x]);
    }
}

/// The last and the first pixel of a row; kFirst is the site at column 0.
template <class Rule, Site kFirst, bool kAbove, bool kBelow>
void fill_ends(const auto& row, std::int64_t width) {
    fill_site<Rule, kFirst.beside(), Around{true, false, kAbove, kBelow}>(row[width - 1]);
    fill_site<Rule, kFirst, Around{false, true, kAbove, kBelow}>(row[0]);
}

template <class Rule, Site kFirst, bool kAbove, bool kBelow>
void fill_row(const auto& row, std::int64_t width) {
    fill_ends<Rule, kFirst, kAbove, kBelow>(row, width);
    fill_span<Rule, kFirst.beside(), Around{true, true, kAbove, kBelow}>(row, 1, width - 1);
}

/// A whole picture; `row_at` gives its rows.
template <class Rule>
void fill_picture(const Size& size, Site origin, const auto& row_at) {
    const std::int64_t width = size.width, height = size.height;
    with_site(origin.below(), [&](auto first) { fill_row<Rule, first(), true, false>(row_at(height - 1), width); });
    for (std::int64_t y = height - 2; y > 0; --y) {
        with_site(origin.in_row(y), [&](auto first) { fill_row<Rule, first(), true, true>(row_at(y), width); });
    }
    with_site(origin, [&](auto first) { fill_row<Rule, first(), false, true>(row_at(0), width); });
}

/// The colours that a first pass left open, in memory order: left and above are so in the stored image.
template <class Pixel, class Rule>
void second_pass(typename Pixel::Channel* image, const Size& size, Site origin) {
    if (!size.has_cells()) return;
    const std::int64_t stride = size.width * Pixel::size;
    fill_picture<Rule>(size, origin, [&](std::int64_t y) { return StoredRow<Pixel>{image + y * stride, stride}; });
}

/// Whether the fast form has made the image. FourColour has none.
template <class Pixel, class Rule>
bool swept(typename Pixel::Channel* image, const auto& frame, const Placement& place, Site origin, RuleOrder order) {
    if constexpr (requires { Rule::kMethod; })
        return sweep({Rule::kMethod, order, kLayoutOf<Pixel>, image, place, origin, nullptr}, frame);
    return false;
}

template <class Pixel, class Rule, int (Site::*kChannelOf)() const = &Site::colour>
void two_pass(typename Pixel::Channel* image, const auto& frame, const Placement& place, Site origin) {
    if (swept<Pixel, Rule>(image, frame, place, origin, RuleOrder::kImage)) return;
    first_pass<Pixel, kChannelOf>(image, frame, place, origin);
    second_pass<Pixel, Rule>(image, place.size, place.stored(origin));
}

/// One pass from the frame to the image. Left and above are so in the frame: only the stored pixels are mirrored.
template <class Pixel, class Rule, int kStep>
void direct(typename Pixel::Channel* image, TopBytes<kStep> samples, const Placement& place, Site origin) {
    if (!place.size.has_cells()) return;
    if (swept<Pixel, Rule>(image, samples.whole(), place, origin, RuleOrder::kFrame)) return;
    const std::int64_t row_bytes = place.size.width * kStep, stride = place.size.width * Pixel::size;
    fill_picture<Rule>(place.size, origin, [&](std::int64_t y) {
        return RawRow<Pixel, kStep>{samples.frame + y * row_bytes, row_bytes, {image, stride, place, y}};
    });
}

}  // namespace tovix::color
