// SPDX-License-Identifier: Apache-2.0
// Their colours have other orders and their filters other phases than ours, which costs nothing. All run in one thread.
#include <dc1394/conversions.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "bench_case.h"

namespace {

using Convert = std::function<bool(unsigned char*, const unsigned char*)>;

int rows(FrameSize size) {
    return static_cast<int>(size.height);
}
int columns(FrameSize size) {
    return static_cast<int>(size.width);
}

cv::Mat image_at(FrameSize size, int type, const unsigned char* data) {
    return {rows(size), columns(size), type, const_cast<unsigned char*>(data)};
}

/// A rotation of the colours, about as strong as that of a camera.
const cv::Matx33f kMatrix{1.46F, -.36F, -.1F, -.22F, 1.36F, -.14F, .02F, -.48F, 1.46F};

cv::Mat gamma_table() {
    cv::Mat table(1, 256, CV_8U);
    for (int i = 0; i < 256; ++i)
        table.at<unsigned char>(i) = static_cast<unsigned char>(255 * std::pow(i / 255.0, 1 / 2.2));
    return table;
}

/// Table and demosaic in bytes, or demosaic in words, then the matrix; what stands in between has memory of its own.
Convert opencv(FrameSize size, int code, unsigned sample_bits, unsigned pixel_bits, bool matrix, bool gamma) {
    return [=, table = gamma_table(), bytes = cv::Mat(), looked_up = cv::Mat(), raw_colours = cv::Mat()](
               unsigned char* image, const unsigned char* frame) mutable {
        cv::Mat mosaic = image_at(size, sample_bits == 16 ? CV_16U : CV_8U, frame);
        if (sample_bits == 16 && pixel_bits == 24) {
            mosaic.convertTo(bytes, CV_8U, 1 / 256.0);
            mosaic = bytes;
        }
        if (gamma) {
            cv::LUT(mosaic, table, looked_up);
            mosaic = looked_up;
        }
        cv::Mat colours = image_at(size, pixel_bits == 48 ? CV_16UC3 : CV_8UC3, image);
        cv::demosaicing(mosaic, matrix ? raw_colours : colours, code);
        if (matrix) cv::transform(raw_colours, colours, kMatrix);
        return true;
    };
}

Convert dc1394(FrameSize size, dc1394bayer_method_t method, unsigned sample_bits) {
    return [=](unsigned char* image, const unsigned char* frame) {
        const auto width = size.width, height = size.height;
        if (sample_bits == 8) {
            return dc1394_bayer_decoding_8bit(frame, image, width, height, DC1394_COLOR_FILTER_RGGB, method) ==
                   DC1394_SUCCESS;
        }
        return dc1394_bayer_decoding_16bit(reinterpret_cast<const std::uint16_t*>(frame),
                                           reinterpret_cast<std::uint16_t*>(image), width, height,
                                           DC1394_COLOR_FILTER_RGGB, method, 16) == DC1394_SUCCESS;
    };
}

/// Row by row, as much memory as a conversion has to touch.
Convert floor_of(FrameSize size, std::size_t sample_bytes, std::size_t pixel_bytes) {
    return [=](unsigned char* image, const unsigned char* frame) {
        const std::size_t row_bytes = size.width * sample_bytes;
        for (std::uint32_t y = 0; y < size.height; ++y, frame += row_bytes) {
            for (std::size_t left = size.width * pixel_bytes; left > 0;) {
                const std::size_t piece = std::min(row_bytes, left);
                std::memcpy(image, frame, piece);
                image += piece;
                left -= piece;
            }
        }
        return true;
    };
}

struct Colours {
    const char* name;
    bool matrix, gamma;
};
constexpr Colours kColours[] = {
    {"plain", false, false}, {"matrix", true, false}, {"gamma", false, true}, {"both", true, true}};

}  // namespace

void add_peers(std::vector<Case>& cases, FrameSize size) {
    cv::setNumThreads(1);
    const auto add = [&](const std::string& what, unsigned sample_bits, unsigned pixel_bits, const char* colours,
                         const Convert& convert) {
        cases.push_back({what + '/' + std::to_string(sample_bits) + "to" + std::to_string(pixel_bits) + '/' + colours +
                             '/' + std::to_string(size.width) + 'x' + std::to_string(size.height),
                         size, sample_bits / 8, pixel_bits / 8, convert});
    };
    const struct { unsigned sample, pixel; } kDepths[] = {{8, 24}, {16, 24}, {16, 48}};

    for (const auto [sample, pixel] : kDepths)
        add("floor", sample, pixel, "plain", floor_of(size, sample / 8, pixel / 8));

    const std::pair<const char*, int> kOpenCv[] = {{"opencv bilinear", cv::COLOR_BayerBG2BGR},
                                                   {"opencv EA", cv::COLOR_BayerBG2BGR_EA},
                                                   {"opencv VNG", cv::COLOR_BayerBG2BGR_VNG}};
    for (const auto& [name, code] : kOpenCv) {
        for (const auto [sample, pixel] : kDepths) {
            if (pixel == 48 && code == cv::COLOR_BayerBG2BGR_VNG) continue;  // bytes alone
            for (const Colours& c : kColours) {
                if (c.gamma && pixel == 48) continue;  // its tables are for bytes
                add(name, sample, pixel, c.name, opencv(size, code, sample, pixel, c.matrix, c.gamma));
            }
        }
    }
    add("opencv GRAY2RGB", 8, 24, "plain", [=](unsigned char* image, const unsigned char* frame) {
        cv::Mat colours = image_at(size, CV_8UC3, image);
        cv::cvtColor(image_at(size, CV_8U, frame), colours, cv::COLOR_GRAY2RGB);
        return true;
    });
    // Alone, from an image of the same size.
    add("opencv transform", 8, 24, "matrix",
        [=, from = cv::Mat(rows(size), columns(size), CV_8UC3, cv::Scalar(90, 120, 60))](unsigned char* image,
                                                                                         const unsigned char*) {
            cv::Mat colours = image_at(size, CV_8UC3, image);
            cv::transform(from, colours, kMatrix);
            return true;
        });

    const std::pair<const char*, dc1394bayer_method_t> kDc1394[] = {
        {"dc1394 nearest", DC1394_BAYER_METHOD_NEAREST},   {"dc1394 simple", DC1394_BAYER_METHOD_SIMPLE},
        {"dc1394 bilinear", DC1394_BAYER_METHOD_BILINEAR}, {"dc1394 HQ linear", DC1394_BAYER_METHOD_HQLINEAR},
        {"dc1394 VNG", DC1394_BAYER_METHOD_VNG},           {"dc1394 AHD", DC1394_BAYER_METHOD_AHD}};
    for (const auto& [name, method] : kDc1394) {
        add(name, 8, 24, "plain", dc1394(size, method, 8));
        add(name, 16, 48, "plain", dc1394(size, method, 16));
    }
}
