// SPDX-License-Identifier: Apache-2.0
// Exposure, gain and iris in one shot: measure the mean of a rectangle, change one property so that it meets the target.
#include <algorithm>
#include <cmath>

#include "auto.h"
#include "measure.h"
#include "report.h"
#include "saturated.h"

namespace {

constexpr double kFactorOfBlack = 1.2;  // there is no telling how much is missing

/// A property, and the value that makes the picture `factor` times as bright.
struct Control {
    std::uint32_t property;
    double (*corrected)(double value, double factor);
};

/// Values so small that a factor would not move them are taken as larger.
constexpr Control kExposure{
    TOVIX_PROP_EXPOSURE, [](double value, double factor) { return (value <= 1 && factor > 1.0 ? 2 : value) * factor; }};
constexpr Control kGain{TOVIX_PROP_GAIN, [](double value, double factor) { return (value == 0 ? 1 : value) * factor; }};
/// A larger iris admits less light.
constexpr Control kIris{TOVIX_PROP_IRIS, [](double value, double factor) { return value * std::sqrt(1 / factor); }};

std::int32_t adjust(const Control& control, _tovix* camera, int target, const std::uint8_t* frame, int x, int y,
                    int width, int height) {
    if (refuse_null(camera) || frame == nullptr) return TOVIX_EFAIL;
    _FrameDesc desc{};
    if (const std::int32_t result = fill_FrameDesc(camera, 0, &desc, x, y, width, height, 0); result < 0) return result;
    int min = 0, max = 0, value = 0;
    std::uint32_t flags = 0;
    if (tovix_property_get_range(camera, control.property, &min, &max, &value, &flags) < 0) return TOVIX_EADJUST;

    std::uint32_t sums[4];
    BayerOrMonoComputeSums(&desc, frame, 0, sums);
    const std::uint32_t total = sums[0] + sums[1] + sums[2] + sums[3];
    const double mean = static_cast<double>(total) / width / height;
    const double factor = total == 0 ? kFactorOfBlack : target / mean;

    std::int64_t corrected = saturated<std::int64_t>(control.corrected(value, factor) + 0.5);
    corrected = std::max<std::int64_t>(corrected, min);
    corrected = std::min<std::int64_t>(corrected, max);  // last: a camera may report a minimum above its maximum
    return tovix_property_set(camera, control.property, static_cast<int>(corrected), 0) < 0 ? TOVIX_EADJUST : TOVIX_OK;
}

}  // namespace

std::int32_t tovix_oneshot_autoexposure(_tovix* camera, int target, const std::uint8_t* frame, int x, int y, int width,
                                        int height, double) {
    return adjust(kExposure, camera, target, frame, x, y, width, height);
}

std::int32_t tovix_oneshot_autogain(_tovix* camera, int target, const std::uint8_t* frame, int x, int y, int width,
                                    int height) {
    return adjust(kGain, camera, target, frame, x, y, width, height);
}

std::int32_t tovix_oneshot_autoiris(_tovix* camera, int target, const std::uint8_t* frame, int x, int y, int width,
                                    int height) {
    return adjust(kIris, camera, target, frame, x, y, width, height);
}
