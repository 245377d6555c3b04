// SPDX-License-Identifier: Apache-2.0
// Other libraries as their users would write it, in one thread.
#include <dc1394/conversions.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "bench_case.h"

namespace tovix::bench {
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
Convert opencv(FrameSize size, int code, Depths depths, const Colours& colours) {
    return [=, table = gamma_table(), bytes = cv::Mat(), looked_up = cv::Mat(), raw_pixels = cv::Mat()](
               unsigned char* image, const unsigned char* frame) mutable {
        cv::Mat mosaic = image_at(size, depths.sample == 16 ? CV_16U : CV_8U, frame);
        if (depths.sample == 16 && depths.pixel == 24) {
            mosaic.convertTo(bytes, CV_8U, 1 / 256.0);
            mosaic = bytes;
        }
        if (colours.table) {
            cv::LUT(mosaic, table, looked_up);
            mosaic = looked_up;
        }
        cv::Mat pixels = image_at(size, depths.pixel == 48 ? CV_16UC3 : CV_8UC3, image);
        cv::demosaicing(mosaic, colours.matrix ? raw_pixels : pixels, code);
        if (colours.matrix) cv::transform(raw_pixels, pixels, kMatrix);
        return true;
    };
}

Convert dc1394(FrameSize size, dc1394bayer_method_t method, dc1394color_filter_t filter, unsigned sample_bits) {
    return [=](unsigned char* image, const unsigned char* frame) {
        const auto width = size.width, height = size.height;
        if (sample_bits == 8)
            return dc1394_bayer_decoding_8bit(frame, image, width, height, filter, method) == DC1394_SUCCESS;
        return dc1394_bayer_decoding_16bit(reinterpret_cast<const std::uint16_t*>(frame),
                                           reinterpret_cast<std::uint16_t*>(image), width, height, filter, method,
                                           16) == DC1394_SUCCESS;
    };
}

constexpr struct {
    const char* name;
    int code_by_phase[kPhases];
    bool takes_words;
} kOpenCv[] = {
    {"opencv bilinear",
     {cv::COLOR_BayerRGGB2RGB, cv::COLOR_BayerGRBG2RGB, cv::COLOR_BayerBGGR2RGB, cv::COLOR_BayerGBRG2RGB},
     true},
    {"opencv EA",
     {cv::COLOR_BayerRGGB2RGB_EA, cv::COLOR_BayerGRBG2RGB_EA, cv::COLOR_BayerBGGR2RGB_EA, cv::COLOR_BayerGBRG2RGB_EA},
     true},
    {"opencv VNG",
     {cv::COLOR_BayerRGGB2RGB_VNG, cv::COLOR_BayerGRBG2RGB_VNG, cv::COLOR_BayerBGGR2RGB_VNG,
      cv::COLOR_BayerGBRG2RGB_VNG},
     false},
};

constexpr struct {
    const char* name;
    dc1394bayer_method_t method;
} kDc1394[] = {{"dc1394 nearest", DC1394_BAYER_METHOD_NEAREST},   {"dc1394 simple", DC1394_BAYER_METHOD_SIMPLE},
               {"dc1394 bilinear", DC1394_BAYER_METHOD_BILINEAR}, {"dc1394 HQ linear", DC1394_BAYER_METHOD_HQLINEAR},
               {"dc1394 VNG", DC1394_BAYER_METHOD_VNG},           {"dc1394 AHD", DC1394_BAYER_METHOD_AHD}};

constexpr dc1394color_filter_t kDc1394Filters[kPhases] = {DC1394_COLOR_FILTER_RGGB, DC1394_COLOR_FILTER_GRBG,
                                                          DC1394_COLOR_FILTER_BGGR, DC1394_COLOR_FILTER_GBRG};

}  // namespace

std::vector<Case> demosaic_peers_of(FrameSize size, Depths depths, const Colours& colours, unsigned phase) {
    cv::setNumThreads(1);
    std::vector<Case> peers;
    const bool from_bytes = depths.sample == 8, to_bytes = depths.pixel == 24, to_words = depths.pixel == 48;
    const bool plain = !colours.matrix && !colours.table;
    for (const auto& [name, codes, takes_words] : kOpenCv) {
        // Its tables are for bytes.
        if (to_bytes || (to_words && takes_words && !colours.table))
            peers.push_back({name, depths.sample, opencv(size, codes[phase], depths, colours)});
    }
    for (const auto& [name, method] : kDc1394) {
        if (plain && (from_bytes ? to_bytes : to_words))
            peers.push_back({name, depths.sample, dc1394(size, method, kDc1394Filters[phase], depths.sample)});
    }
    return peers;
}

std::vector<Case> peers_of(FrameSize size, Depths depths, const Colours& colours) {
    std::vector<Case> peers = demosaic_peers_of(size, depths, colours, 0);
    if (depths.sample != 8 || depths.pixel != 24 || colours.table) return peers;
    if (colours.matrix) {
        // Alone. What stands behind the frame makes it as long as an image.
        peers.push_back({"opencv transform", 8, [=](unsigned char* image, const unsigned char* frame) {
                             cv::Mat pixels = image_at(size, CV_8UC3, image);
                             cv::transform(image_at(size, CV_8UC3, frame), pixels, kMatrix);
                             return true;
                         }});
    } else {
        peers.push_back({"opencv GRAY2RGB", 8, [=](unsigned char* image, const unsigned char* frame) {
                             cv::Mat pixels = image_at(size, CV_8UC3, image);
                             cv::cvtColor(image_at(size, CV_8U, frame), pixels, cv::COLOR_GRAY2RGB);
                             return true;
                         }});
    }
    return peers;
}

}  // namespace tovix::bench
