// SPDX-License-Identifier: Apache-2.0
// One damped step of white balance: the analogue gains take what fits them, the digital gains the rest.
#include <algorithm>
#include <cstdio>

#include "auto.h"
#include "colour_levels.h"
#include "report.h"

namespace {

using namespace tovix::adjust;

constexpr const char* kName = "tovix_whitebalance_step_ex";
constexpr double kEnough = 1.03;  // corrections below this are left alone
constexpr double kDamping = 0.9;

constexpr std::uint32_t kAnalogue[kPlaces] = {TOVIX_PROP_GAIN_RED, TOVIX_PROP_GAIN_GREEN1, TOVIX_PROP_GAIN_GREEN2,
                                              TOVIX_PROP_GAIN_BLUE};
constexpr std::uint32_t kDigital[3] = {TOVIX_PROP_DIGITAL_GAIN_RED, TOVIX_PROP_DIGITAL_GAIN_GREEN,
                                       TOVIX_PROP_DIGITAL_GAIN_BLUE};
constexpr int kChannel[kPlaces] = {0, 1, 1, 2};  // digital gain of each place

/// All of these properties, up to the first that fails. @param flags  of the last one read
template <std::size_t kCount>
[[nodiscard]] bool read_all(_tovix* camera, const std::uint32_t (&properties)[kCount], float (&values)[kCount],
                            std::uint32_t& flags) {
    for (std::size_t i = 0; i < kCount; ++i)
        if (TovixGetProperty(camera, properties[i], &values[i], &flags) == 0) return false;
    return true;
}

template <std::size_t kCount>
[[nodiscard]] bool write_all(_tovix* camera, const std::uint32_t (&properties)[kCount], const float (&values)[kCount],
                             std::uint32_t flags) {
    for (std::size_t i = 0; i < kCount; ++i)
        if (TovixSetProperty(camera, properties[i], values[i], static_cast<int>(flags)) == 0) return false;
    return true;
}

/// Nine tenths of the way from a gain to `correction` times the gain.
float damped(float gain, float correction) {
    const float missing = correction * gain - gain;
    return static_cast<float>(gain + kDamping * missing);
}

}  // namespace

std::int32_t tovix_whitebalance_step_ex(_tovix* camera, const std::uint8_t* frame, int x, int y, int width, int height,
                                        float red_ratio, float blue_ratio) {
    if (refuse_null(camera) || frame == nullptr) return TOVIX_EFAIL;
    float measured[3];  // red, green, blue
    if (const std::int32_t result = tovix_get_whitebalance_adjustment_ex(
            camera, frame, red_ratio, blue_ratio, x, y, width, height, &measured[0], &measured[1], &measured[2]);
        result < 0) {
        return result;
    }
    float digital[3];
    std::uint32_t flags = 0;
    if (!read_all(camera, kDigital, digital, flags)) return 0;

    for (int channel = 0; channel < 3; ++channel)
        measured[channel] *= digital[channel];
    const float brightest = *std::max_element(measured, measured + 3);
    const float corrections[3] = {brightest / measured[0], brightest / measured[1], brightest / measured[2]};
    std::fprintf(stderr, "%s: %0.2f/%0.2f/%0.2f\n", kName, corrections[0], corrections[1], corrections[2]);
    if (std::all_of(corrections, corrections + 3, [](float correction) { return correction < kEnough; })) {
        std::fprintf(stderr, "%s: no whitebalance change required\n", kName);
        return 0;
    }

    float least = 0, most = 0, analogue[kPlaces];
    if (TovixPropertyRange(camera, TOVIX_PROP_GAIN_RED, &least, &most, &analogue[kRed], &flags) == 0) return 0;
    for (const Place place : {kGreen1, kGreen2, kBlue})
        if (TovixGetProperty(camera, kAnalogue[place], &analogue[place], &flags) == 0) return 0;
    const std::uint32_t flags_to_write = flags;  // of blue, in the form that TovixSetProperty() takes

    float wanted[kPlaces];  // analogue times digital gain
    for (int place = 0; place < kPlaces; ++place) {
        const int channel = kChannel[place];
        wanted[place] = damped(digital[channel] * analogue[place], corrections[channel]);
    }
    const float smallest = *std::min_element(wanted, wanted + kPlaces);
    float limited[kPlaces];
    for (int place = 0; place < kPlaces; ++place) {
        wanted[place] /= smallest;
        limited[place] = std::min(std::max(wanted[place], least), most);
    }
    if (!write_all(camera, kAnalogue, limited, flags_to_write)) return 0;
    if (!read_all(camera, kAnalogue, analogue, flags)) return 0;  // the camera may have rounded them
    const float rest[kPlaces] = {wanted[0] / analogue[0], wanted[1] / analogue[1], wanted[2] / analogue[2],
                                 wanted[3] / analogue[3]};
    const float rest_by_channel[3] = {rest[kRed], (rest[kGreen1] + rest[kGreen2]) / 2, rest[kBlue]};
    return write_all(camera, kDigital, rest_by_channel, flags_to_write) ? 1 : 0;
}

std::int32_t tovix_whitebalance_step(_tovix* camera, const std::uint8_t* frame, int x, int y, int width, int height) {
    return tovix_whitebalance_step_ex(camera, frame, x, y, width, height, 1.0f, 1.0f);
}
