// SPDX-License-Identifier: Apache-2.0
// How far each demosaic method is from the truth: takes photographs apart as a colour filter would, converts the
// mosaics, and prints the peak signal-to-noise ratio in decibels as a table. More is better; 6 dB are half the error.
//
// rendering_error PHOTOGRAPH.ppm...     binary PPM, 8 bits a channel
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_case.h"

namespace {

using namespace tovix::bench;

struct Method {
    const char* name;
    std::uint32_t method;
    unsigned channels = 3;
};
constexpr Method kMethods[] = {{"zurno", TOVIX_DEMOSAIC_ZURNO},
                               {"edge", TOVIX_DEMOSAIC_EDGE},
                               {"four-colour", TOVIX_DEMOSAIC_FOUR_COLOUR, 4},
                               {"quelt", TOVIX_DEMOSAIC_QUELT},
                               {"nearest", TOVIX_DEMOSAIC_NEAREST}};
constexpr std::uint32_t kFlagsByPhase[kPhases] = {0, TOVIX_IMAGE_GREEN_FIRST, TOVIX_IMAGE_BLUE_ROW,
                                                  TOVIX_IMAGE_BLUE_ROW | TOVIX_IMAGE_GREEN_FIRST};
constexpr std::uint32_t kBorder = 16;          // pixels that do not count: fewer neighbours, other arithmetic
constexpr std::uint32_t kOpenCvVngRowsUp = 2;  // in 4.6; counted in place that would cost 10 dB
constexpr double kMostBetweenPhases = 3;       // dB; with a wrong phase an image is worse by ten or more

/// Red, green and blue, row by row. Sides are even.
struct Photograph {
    std::uint32_t width, height;
    std::vector<std::uint8_t> channels;
    int at(std::uint32_t x, std::uint32_t y, std::uint32_t channel) const {
        return channels[(std::size_t{y} * width + x) * 3 + channel];
    }
};

Photograph read_ppm(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    std::string kind;
    std::uint32_t width = 0, height = 0, maximum = 0;
    file >> kind >> width >> height >> maximum;
    file.ignore(1);
    const auto is_side = [](std::uint32_t side) { return side > 2 * kBorder + 1 && side <= 16384; };
    if (!file || kind != "P6" || maximum != 255 || !is_side(width) || !is_side(height))
        throw std::runtime_error(name + " is not a binary PPM of 8 bits a channel and a fit size");
    std::vector<char> row(std::size_t{width} * 3);
    Photograph photograph{width & ~1U, height & ~1U, {}};
    for (std::uint32_t y = 0; y < photograph.height; ++y) {
        if (!file.read(row.data(), static_cast<std::streamsize>(row.size())))
            throw std::runtime_error(name + " is incomplete");
        photograph.channels.insert(photograph.channels.end(), row.begin(), row.begin() + photograph.width * 3);
    }
    return photograph;
}

std::vector<std::uint8_t> mosaic(const Photograph& photograph, unsigned phase) {
    const bool green_first = phase & 1, blue_row_first = phase & 2;
    std::vector<std::uint8_t> samples;
    for (std::uint32_t y = 0; y < photograph.height; ++y) {
        for (std::uint32_t x = 0; x < photograph.width; ++x) {
            const bool green = ((x + y) % 2 == 0) == green_first, blue_row = (y % 2 == 0) == blue_row_first;
            samples.push_back(static_cast<std::uint8_t>(photograph.at(x, y, green ? 1 : blue_row ? 2 : 0)));
        }
    }
    return samples;
}

/// A way to convert mosaics of one size and phase.
struct Demosaic {
    Case convert;
    unsigned channels;          // a fourth is a second green
    std::uint32_t rows_up = 0;  // by which images are displaced
};

Demosaic ours(FrameSize size, const Method& method, unsigned phase) {
    tovix_image_format format{};
    format.size = sizeof format;
    format.width = size.width;
    format.height = size.height;
    format.flags = kFlagsByPhase[phase];
    tovix_conversion_params params{};
    params.size = 12;  // the short form: neither flips nor tables
    params.demosaic_method = method.method;
    params.correction_matrix = TOVIX_MATRIX_NONE;
    const unsigned channels = method.channels;
    return {{method.name, 8,
             [=](unsigned char* image, const unsigned char* frame) {
                 return CVorm().ConvertToRgb(image, frame, 8 * channels, &format, &params) == TOVIX_OK;
             }},
            channels};
}

std::vector<Demosaic> demosaics(FrameSize size, unsigned phase) {
    std::vector<Demosaic> all;
    for (const Method& method : kMethods)
        all.push_back(ours(size, method, phase));
    for (const Case& peer : demosaic_peers_of(size, {8, 24}, kColours[0], phase))
        all.push_back({peer, 3, peer.name == "opencv VNG" ? kOpenCvVngRowsUp : 0});
    return all;
}

double mean_square(const Photograph& photograph, const std::vector<std::uint8_t>& image, const Demosaic& by) {
    double squares = 0, count = 0;
    for (std::uint32_t y = kBorder; y < photograph.height - kBorder; ++y) {
        for (std::uint32_t x = kBorder; x < photograph.width - kBorder; ++x) {
            const std::uint8_t* const pixel =
                &image[(std::size_t{y - by.rows_up} * photograph.width + x) * by.channels];
            const int green = by.channels == 4 ? (pixel[1] + pixel[3] + 1) / 2 : pixel[1];
            const int red_error = pixel[0] - photograph.at(x, y, 0);
            const int green_error = green - photograph.at(x, y, 1);
            const int blue_error = pixel[2] - photograph.at(x, y, 2);
            squares += red_error * red_error + green_error * green_error + blue_error * blue_error;
            count += 3;
        }
    }
    return squares / count;
}

double decibels(double mean_square) {
    return 10 * std::log10(255.0 * 255.0 / mean_square);
}

/// Of each demosaic, over all four phases of the mosaic.
std::vector<double> psnr(const Photograph& photograph) {
    const FrameSize size{photograph.width, photograph.height};
    std::vector<std::vector<double>> squares;  // by demosaic, then by phase
    for (unsigned phase = 0; phase < kPhases; ++phase) {
        const std::vector<std::uint8_t> samples = mosaic(photograph, phase);
        const std::vector<Demosaic> all = demosaics(size, phase);
        squares.resize(all.size());
        for (std::size_t i = 0; i < all.size(); ++i) {
            std::vector<std::uint8_t> image(samples.size() * all[i].channels);
            if (!all[i].convert.convert(image.data(), samples.data()))
                throw std::runtime_error(all[i].convert.name + " did not convert a mosaic");
            squares[i].push_back(mean_square(photograph, image, all[i]));
        }
    }
    std::vector<double> values;
    for (const std::vector<double>& by_phase : squares) {
        const auto [best, worst] = std::ranges::minmax(by_phase);
        if (decibels(best) - decibels(worst) > kMostBetweenPhases)
            throw std::runtime_error("the phases of method " + std::to_string(values.size()) + " differ too much");
        values.push_back(decibels(std::accumulate(by_phase.begin(), by_phase.end(), 0.0) / kPhases));
    }
    return values;
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 2) throw std::runtime_error("usage: rendering_error PHOTOGRAPH.ppm...");
    std::string head = "| PSNR, dB |", rule = "|---|";
    std::vector<std::vector<double>> columns;
    for (int i = 1; i < argc; ++i) {
        head += " " + std::filesystem::path(argv[i]).stem().string() + " |";
        rule += "---:|";
        columns.push_back(psnr(read_ppm(argv[i])));
    }
    std::printf("%s mean |\n%s---:|\n", head.c_str(), rule.c_str());
    const std::vector<Demosaic> rows = demosaics({2, 2}, 0);
    for (std::size_t row = 0; row < rows.size(); ++row) {
        std::printf("| %s |", rows[row].convert.name.c_str());
        double sum = 0;
        for (const std::vector<double>& column : columns) {
            std::printf(" %.1f |", column[row]);
            sum += column[row];
        }
        std::printf(" %.1f |\n", sum / static_cast<double>(columns.size()));
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
}
