// SPDX-License-Identifier: Apache-2.0
// How far each demosaic method is from the truth: takes photographs apart as a colour filter would, converts the
// mosaics, and prints the peak signal-to-noise ratio in decibels as a table. More is better; 6 dB are half the error.
//
// rendering_error PHOTOGRAPH.ppm...     binary PPM, 8 bits a channel
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Method {
    const char* name;
    std::uint32_t method;
};
constexpr Method kMethods[] = {{"zurno", TOVIX_DEMOSAIC_ZURNO},
                               {"edge", TOVIX_DEMOSAIC_EDGE},
                               {"four-colour", TOVIX_DEMOSAIC_FOUR_COLOUR},
                               {"quelt", TOVIX_DEMOSAIC_QUELT},
                               {"nearest", TOVIX_DEMOSAIC_NEAREST}};
constexpr std::uint32_t kPhases[] = {0, TOVIX_IMAGE_GREEN_FIRST, TOVIX_IMAGE_BLUE_ROW,
                                     TOVIX_IMAGE_BLUE_ROW | TOVIX_IMAGE_GREEN_FIRST};
constexpr std::uint32_t kBorder = 16;  // pixels that do not count: fewer neighbours, other arithmetic

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

std::vector<std::uint8_t> mosaic(const Photograph& photograph, std::uint32_t phase) {
    const bool blue_row_first = phase & TOVIX_IMAGE_BLUE_ROW, green_first = phase & TOVIX_IMAGE_GREEN_FIRST;
    std::vector<std::uint8_t> samples;
    for (std::uint32_t y = 0; y < photograph.height; ++y) {
        for (std::uint32_t x = 0; x < photograph.width; ++x) {
            const bool green = ((x + y) % 2 == 0) == green_first, blue_row = (y % 2 == 0) == blue_row_first;
            samples.push_back(static_cast<std::uint8_t>(photograph.at(x, y, green ? 1 : blue_row ? 2 : 0)));
        }
    }
    return samples;
}

/// Of the mean square over all channels and all four phases of the mosaic.
double psnr(const Photograph& photograph, std::uint32_t method) {
    CVorm vorm;
    double squares = 0, count = 0;
    for (const std::uint32_t phase : kPhases) {
        const std::vector<std::uint8_t> samples = mosaic(photograph, phase);
        std::vector<std::uint8_t> image(samples.size() * 4);
        tovix_image_format format{};
        format.size = sizeof format;
        format.width = photograph.width;
        format.height = photograph.height;
        format.flags = phase;
        tovix_conversion_params params{};
        params.size = 12;  // the short form: neither flips nor tables
        params.demosaic_method = method;
        params.correction_matrix = TOVIX_MATRIX_NONE;
        if (vorm.ConvertToRgb(image.data(), samples.data(), 32, &format, &params) != TOVIX_OK)
            throw std::runtime_error("a mosaic was not converted");

        for (std::uint32_t y = kBorder; y < photograph.height - kBorder; ++y) {
            for (std::uint32_t x = kBorder; x < photograph.width - kBorder; ++x) {
                const std::uint8_t* const pixel = &image[(std::size_t{y} * photograph.width + x) * 4];
                const bool two_greens = method == TOVIX_DEMOSAIC_FOUR_COLOUR;
                const int green = two_greens ? (pixel[1] + pixel[3] + 1) / 2 : pixel[1];
                const int red_error = pixel[0] - photograph.at(x, y, 0);
                const int green_error = green - photograph.at(x, y, 1);
                const int blue_error = pixel[2] - photograph.at(x, y, 2);
                squares += red_error * red_error + green_error * green_error + blue_error * blue_error;
                count += 3;
            }
        }
    }
    return 10 * std::log10(255.0 * 255.0 * count / squares);
}

void print_row(const std::string& name, const std::vector<double>& values) {
    std::printf("| %-15s |", name.c_str());
    for (std::size_t i = 0; i < values.size(); ++i)
        std::printf(" %*.1f |", static_cast<int>(std::string(kMethods[i].name).size()), values[i]);
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 2) throw std::runtime_error("usage: rendering_error PHOTOGRAPH.ppm...");
    std::string head = "| PSNR, dB        |", rule = "|---|";
    for (const Method& method : kMethods) {
        head.append(" ").append(method.name).append(" |");
        rule += "---:|";
    }
    std::printf("%s\n%s\n", head.c_str(), rule.c_str());
    std::vector<double> means(std::size(kMethods));
    for (int i = 1; i < argc; ++i) {
        const Photograph photograph = read_ppm(argv[i]);
        std::vector<double> values;
        for (const Method& method : kMethods) {
            values.push_back(psnr(photograph, method.method));
            means[values.size() - 1] += values.back() / (argc - 1);
        }
        print_row(std::filesystem::path(argv[i]).stem(), values);
    }
    print_row("mean", means);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return 1;
}
