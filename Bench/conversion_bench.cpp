// SPDX-License-Identifier: Apache-2.0
// Speed of CVorm::ConvertToRgb: every kind of frame, method and image that has a kernel. An item is a pixel, so
// items_per_second=150M/s are 150 megapixels a second.
//
// Names of cases are method / bits of sample and pixel / what happens to the colours / frame size.
#include <benchmark/benchmark.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench_case.h"

namespace {

using Buffers = std::vector<std::vector<unsigned char>>;

/// Slow waves of light and colour with a sensor's noise over them, so that what depends on samples goes as it does in a
/// real frame: pure noise has edges everywhere, and an even frame has none.
std::vector<unsigned char> scene(FrameSize size, std::size_t sample_bytes) {
    std::vector<unsigned char> frame;
    frame.reserve(size.pixels() * sample_bytes);
    std::uint32_t random = 1;
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x) {
            random = random * 1664525U + 1013904223U;
            const int wave = std::abs(static_cast<int>((x + 2 * y + 170 * (x % 2) + 85 * (y % 2)) % 448) - 224);
            if (sample_bytes == 2)
                frame.push_back(static_cast<unsigned char>(random >> 16));  // the less significant one
            frame.push_back(static_cast<unsigned char>(wave + static_cast<int>(random >> 28)));
        }
    }
    return frame;
}

/// Frames and images take turns, and together are several times as large as a cache: a camera's frames come from memory.
void measure(benchmark::State& state, const Case& c) {
    constexpr std::size_t kWorkingBytes = std::size_t{128} << 20;
    const std::size_t wanted = kWorkingBytes / (c.size.pixels() * (c.sample_bytes + c.pixel_bytes)) + 1;
    const std::size_t pair_count = std::min(wanted, static_cast<std::size_t>(state.max_iterations));
    const Buffers frames(pair_count, scene(c.size, c.sample_bytes));
    Buffers images(pair_count, Buffers::value_type(c.size.pixels() * c.pixel_bytes));

    std::size_t pair = 0;
    for (auto _ : state) {
        if (!c.convert(images[pair].data(), frames[pair].data())) return state.SkipWithError("not converted");
        benchmark::ClobberMemory();
        pair = (pair + 1) % pair_count;
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(c.size.pixels()));
}

// ---------------------------------------------------------------------------------------------------------

struct Depths {
    std::uint32_t sample, pixel;  // bits
};

struct Method {
    const char* name;
    std::uint32_t method, flags;
    std::vector<Depths> depths;
};

struct Colours {
    const char* name;
    std::uint32_t matrix;
    bool gamma;
};

constexpr FrameSize kSizes[] = {{2592, 1944}, {1280, 1024}};
constexpr std::uint32_t kNoMatrix = TOVIX_MATRIX_NONE, kMatrix = TOVIX_MATRIX_MODEL;
constexpr Colours kColours[] = {
    {"plain", kNoMatrix, false}, {"matrix", kMatrix, false}, {"gamma", kNoMatrix, true}, {"both", kMatrix, true}};

/// Depths that a method leaves to another one are listed with that one alone.
std::vector<Method> methods() {
    const std::vector<Depths> all = {{8, 24}, {8, 32}, {16, 24}, {16, 32}, {16, 48}};
    return {
        {"mono", TOVIX_DEMOSAIC_NONE, TOVIX_IMAGE_MONO, {{8, 8}, {8, 24}, {16, 8}, {16, 24}}},
        {"none", TOVIX_DEMOSAIC_NONE, 0, all},
        {"nearest", TOVIX_DEMOSAIC_NEAREST, 0, all},
        {"quelt", TOVIX_DEMOSAIC_QUELT, 0, all},
        {"edge", TOVIX_DEMOSAIC_EDGE, 0, all},
        {"zurno", TOVIX_DEMOSAIC_ZURNO, 0, all},
        {"four-colour", TOVIX_DEMOSAIC_FOUR_COLOUR, 0, {{8, 32}}},
    };
}

Case conversion(FrameSize size, const Method& method, Depths depths, const Colours& colours) {
    const auto vorm = std::make_shared<CVorm>();
    if (colours.gamma) vorm->SetGamma(220, 15);

    tovix_image_format format{};
    format.size = sizeof format;
    format.width = size.width;
    format.height = size.height;
    format.pixel_format = depths.sample / 8 - 1;
    format.flags = method.flags | TOVIX_IMAGE_SECOND_FAMILY;  // least significant byte first, as in this machine

    tovix_conversion_params params{};
    params.size = 12;  // the short form: the rest comes from the object
    params.demosaic_method = method.method;
    params.correction_matrix = colours.matrix;

    return {
        .name = std::string(method.name) + '/' + std::to_string(depths.sample) + "to" + std::to_string(depths.pixel) +
                '/' + colours.name + '/' + std::to_string(size.width) + 'x' + std::to_string(size.height),
        .size = size,
        .sample_bytes = depths.sample / 8,
        .pixel_bytes = depths.pixel / 8,
        .convert =
            [=](unsigned char* image, const unsigned char* frame) {
                return vorm->ConvertToRgb(image, frame, depths.pixel, &format, &params) == TOVIX_OK;
            },
    };
}

std::vector<Case> cases() {
    std::vector<Case> all;
    for (const FrameSize size : kSizes) {
        for (const Method& method : methods()) {
            for (const Depths depths : method.depths) {
                for (const Colours& colours : kColours) {
                    const bool mono = method.flags & TOVIX_IMAGE_MONO;
                    if (mono && colours.matrix != TOVIX_MATRIX_NONE) continue;  // grey has no matrix
                    all.push_back(conversion(size, method, depths, colours));
                }
            }
        }
        add_peers(all, size);
    }
    return all;
}

[[maybe_unused]] const bool registered = [] {
    for (const Case& c : cases())  // what other programs take does not count; threads of a case would
        benchmark::RegisterBenchmark(c.name.c_str(), measure, c)
            ->MeasureProcessCPUTime()
            ->Unit(benchmark::kMillisecond);
    return true;
}();

}  // namespace
