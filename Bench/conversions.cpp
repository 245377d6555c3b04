// SPDX-License-Identifier: Apache-2.0
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "bench_case.h"

namespace tovix::bench {
namespace {

struct Method {
    const char* name;
    std::uint32_t method, flags;
    std::vector<Depths> depths;  // those that it leaves to another method are listed with that one alone
    bool has_variants = true;

    bool takes(Depths wanted) const {
        return std::ranges::any_of(depths,
                                   [&](Depths d) { return d.sample == wanted.sample && d.pixel == wanted.pixel; });
    }
};

/// How a conversion differs from the plain one.
struct Variant {
    const char* name;
    int flip_x = 0, flip_y = 0;
    std::uint32_t flags = 0;  // those that differ
    bool interlaced = false;
    unsigned pixel_bits = 0;  // 0: as the plain one
};

constexpr Variant kPlain{.name = "plain"};
constexpr Variant kVariants[] = {
    kPlain,
    {.name = "flip x", .flip_x = 1},
    {.name = "flip y", .flip_y = 1},
    {.name = "flip both", .flip_x = 1, .flip_y = 1},
    {.name = "rows reversed", .flags = TOVIX_IMAGE_ROWS_REVERSED},
    {.name = "green first", .flags = TOVIX_IMAGE_GREEN_FIRST},
    {.name = "blue row", .flags = TOVIX_IMAGE_BLUE_ROW},
    {.name = "blue row, green first", .flags = TOVIX_IMAGE_BLUE_ROW | TOVIX_IMAGE_GREEN_FIRST},
    {.name = "interlaced", .interlaced = true},
    {.name = "32 bits", .pixel_bits = 32},
    {.name = "high byte first", .flags = TOVIX_IMAGE_SECOND_FAMILY},
};

std::vector<Method> methods() {
    const std::vector<Depths> all = {{8, 24}, {8, 32}, {16, 24}, {16, 32}, {16, 48}};
    return {
        {"mono", TOVIX_DEMOSAIC_NONE, TOVIX_IMAGE_MONO, {{8, 8}, {8, 24}, {16, 8}, {16, 24}}, false},
        {"none", TOVIX_DEMOSAIC_NONE, 0, all, false},
        {"nearest", TOVIX_DEMOSAIC_NEAREST, 0, all},
        {"quelt", TOVIX_DEMOSAIC_QUELT, 0, all},
        {"edge", TOVIX_DEMOSAIC_EDGE, 0, all},
        {"zurno", TOVIX_DEMOSAIC_ZURNO, 0, all},
        {"four-colour", TOVIX_DEMOSAIC_FOUR_COLOUR, 0, {{8, 32}}, false},
    };
}

Case conversion(const std::string& name, FrameSize size, const Method& method, Depths depths, const Colours& colours,
                const Variant& variant = kPlain) {
    const auto vorm = std::make_shared<CVorm>();
    if (colours.table) vorm->SetGamma(220, 15);
    vorm->SetFlipping(variant.flip_x, variant.flip_y);

    tovix_image_format format{};
    format.size = sizeof format;
    format.width = size.width;
    format.height = size.height;
    format.pixel_format = depths.sample / 8 - 1;
    // Without a variant the least significant byte comes first, as in this machine.
    format.flags = method.flags | (TOVIX_IMAGE_SECOND_FAMILY ^ variant.flags);
    format.reserved = variant.interlaced;

    tovix_conversion_params params{};
    params.size = 12;  // the short form: the rest comes from the object
    params.demosaic_method = method.method;
    params.correction_matrix = colours.matrix ? TOVIX_MATRIX_MODEL : TOVIX_MATRIX_NONE;

    const unsigned bits = variant.pixel_bits != 0 ? variant.pixel_bits : depths.pixel;
    return {name, depths.sample, [=](unsigned char* image, const unsigned char* frame) {
                return vorm->ConvertToRgb(image, frame, bits, &format, &params) == TOVIX_OK;
            }};
}

bool exists(const Method& method, Depths depths, const Variant& variant) {
    if (variant.interlaced && method.method == TOVIX_DEMOSAIC_QUELT) return false;
    if (variant.flags & TOVIX_IMAGE_SECOND_FAMILY) return depths.sample == 16;
    return variant.pixel_bits == 0 || depths.pixel == 24;
}

/// No conversion: only as much memory as one has to read and to write, 64 pixels at a time.
template <unsigned kSampleBytes, unsigned kPixelBytes>
bool touch(unsigned char* image, const unsigned char* frame, std::size_t pixels) {
    constexpr std::size_t kPieces = 2 * kPixelBytes, kBytes = 32;
    for (; pixels >= 64; pixels -= 64, frame += 64 * kSampleBytes, image += kPieces * kBytes) {
        for (std::size_t i = 0; i < kPieces; ++i)
            std::memcpy(image + i * kBytes, frame + i * kSampleBytes / kPixelBytes * kBytes, kBytes);
    }
    return true;
}

constexpr struct {
    Depths depths;
    bool (*touch)(unsigned char*, const unsigned char*, std::size_t);
} kFloors[] = {{{8, 8}, touch<1, 1>},   {{8, 24}, touch<1, 3>},  {{8, 32}, touch<1, 4>}, {{16, 8}, touch<2, 1>},
               {{16, 24}, touch<2, 3>}, {{16, 32}, touch<2, 4>}, {{16, 48}, touch<2, 6>}};

}  // namespace

std::vector<Group> groups_of(FrameSize size) {
    std::vector<Group> groups;
    for (const auto& [depths, touch] : kFloors) {
        for (const Colours& colours : kColours) {
            Group group{depths.name() + '/' + colours.name, {}, peers_of(size, depths, colours), false};
            for (const Method& method : methods()) {
                const bool mono = method.flags & TOVIX_IMAGE_MONO;
                if ((mono && colours.matrix) || !method.takes(depths)) continue;  // grey has no matrix
                group.ours.push_back(conversion(method.name, size, method, depths, colours));
            }
            if (group.ours.empty()) continue;
            group.others.push_back(
                {"floor", depths.sample, [size, touch_all = touch](unsigned char* image, const unsigned char* frame) {
                     return touch_all(image, frame, size.pixels());
                 }});
            groups.push_back(std::move(group));
        }
    }
    for (const Method& method : methods()) {
        for (const Depths depths : method.depths) {
            if (!method.has_variants || depths.pixel == 32) continue;
            Group group{std::string(method.name) + '/' + depths.name() + "/variants", {}, {}, true};
            for (const Variant& variant : kVariants) {
                if (exists(method, depths, variant))
                    group.ours.push_back(conversion(variant.name, size, method, depths, kColours[0], variant));
            }
            groups.push_back(std::move(group));
        }
    }
    return groups;
}

}  // namespace tovix::bench
