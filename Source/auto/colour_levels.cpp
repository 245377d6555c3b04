// SPDX-License-Identifier: Apache-2.0
#include "colour_levels.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "auto.h"
#include "measure.h"

namespace tovix::adjust {
namespace {

constexpr float kLeastRatio = 0.01f;
constexpr float kLargestLevel = 1073741824.0f;  // 2^30
constexpr float kDarkest = 4.0f, kBrightest = 240.0f;
constexpr float kFloor = 1 / 128.0f;  // of the average, so that no gain is 128 times another

float average_of(const float (&at)[kPlaces]) {
    return (at[0] + at[1] + at[2] + at[3]) / 4;
}

void to_ratio(float& level, float ratio) {
    const float reciprocal = 1.0f / (ratio >= kLeastRatio ? ratio : kLeastRatio);  // also of what is no number
    level = std::min(level * reciprocal, kLargestLevel);
}

/// From the order of the sensor to that of Place.
void put_in_order(float (&at)[kPlaces], std::uint32_t layout) {
    if ((layout & TOVIX_IMAGE_BLUE_ROW) != 0) {
        std::swap(at[0], at[3]);
        std::swap(at[1], at[2]);
    }
    if ((layout & TOVIX_IMAGE_GREEN_FIRST) != 0) {
        std::swap(at[0], at[1]);
        std::swap(at[3], at[2]);
    }
}

bool fits_cells(const _FrameDesc& desc, const GreySubject& s) {
    return std::int64_t{s.x} + s.width <= desc.frame_width && std::int64_t{s.y} + s.height <= desc.frame_height &&
           ((s.x | s.y | s.width | s.height) & 1) == 0 && s.width != 0 && s.height != 0;
}

/// Prints the stages of a measurement, or does not.
struct Report {
    const char* function;
    int pixel_count;

    void levels(const float (&at)[kPlaces]) const {
        if (function == nullptr) return;
        std::printf("%s: averages: %f/%f/%f/%f, samples: %d\n", function, at[0], at[1], at[2], at[3], pixel_count);
    }
    void average(float value) const {
        if (function != nullptr) std::printf("%s: average: %f\n", function, value);
    }
};

}  // namespace

std::int32_t measure_colours(_tovix* camera, const GreySubject& subject, const char* report_as, ColourLevels& levels) {
    _FrameDesc desc{};
    if (const std::int32_t result =
            fill_FrameDesc(camera, 0, &desc, subject.x, subject.y, subject.width, subject.height, 0);
        result < 0) {
        return result;
    }
    tovix_image_format format{};
    if (const std::int32_t result = tovix_get_image_format(camera, &format); result < 0) return result;
    if (!fits_cells(desc, subject)) return TOVIX_EINVAL;

    std::uint32_t sums[4];
    BayerOrMonoComputeSums(&desc, subject.frame, 0, sums);
    const std::int64_t pixel_count = desc.win_width * desc.win_height;
    auto& [at, average] = levels;
    std::transform(sums, sums + kPlaces, at,
                   [&](std::uint32_t sum) { return static_cast<float>(sum) / static_cast<float>(pixel_count); });
    const Report report{report_as, static_cast<int>(pixel_count)};
    report.levels(at);
    put_in_order(at, format.flags);
    average = average_of(at);
    report.average(average);
    if (average <= kDarkest || average >= kBrightest) return TOVIX_ELIGHT;

    to_ratio(at[kRed], subject.red_ratio);
    to_ratio(at[kBlue], subject.blue_ratio);
    average = average_of(at);
    report.levels(at);
    report.average(average);

    for (float& level : at) {
        level = std::max(level, average * kFloor);
        if (level == 0) level = 1.0f;
    }
    report.levels(at);
    report.average(average);
    return TOVIX_OK;
}

}  // namespace tovix::adjust

std::int32_t tovix_get_whitebalance_adjustment_ex(_tovix* camera, const std::uint8_t* frame, float red_ratio,
                                                  float blue_ratio, int x, int y, int width, int height, float* red,
                                                  float* green, float* blue) {
    using namespace tovix::adjust;
    ColourLevels levels{};
    const GreySubject subject{frame, x, y, width, height, red_ratio, blue_ratio};
    if (const std::int32_t result = measure_colours(camera, subject, nullptr, levels); result < 0) return result;
    *red = levels.at[kRed];
    *green = static_cast<float>((levels.at[kGreen1] + levels.at[kGreen2] + 1.0) / 2.0);
    *blue = levels.at[kBlue];
    return TOVIX_OK;
}
