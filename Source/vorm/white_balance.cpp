// SPDX-License-Identifier: Apache-2.0
// Gains of the three channels, and the white balance and luminance gain that they amount to.
//
// For a grey of luminance Y the adjustments add saturation x white balance / 2 x Y to a chroma axis: a white
// balance counts chroma offsets a unit of luminance, doubled.
#include <algorithm>
#include <cmath>

#include "colour_matrix.h"

using namespace tovix::vorm;

namespace {

constexpr double kLeastSaturation = 0.05;  // chroma is divided by it

}  // namespace

int CVorm::ConvertDigitalGainsColorToWBGainY(double sat_u, double sat_v, double red, double green, double blue,
                                             double* wb_u, double* wb_v, double* gain_y) {
    if (!(sat_u > kLeastSaturation && sat_v > kLeastSaturation)) return 0;
    const auto [y, u, v] = transformed(rgb_to_yuv(), {red, green, blue});
    if (wb_u != nullptr) *wb_u = 2 * u / sat_u;
    if (wb_v != nullptr) *wb_v = 2 * v / sat_v;
    if (gain_y != nullptr) *gain_y = y;
    return 1;
}

int CVorm::SetDigitalColorGains(double red, double green, double blue) {
    if (ConvertDigitalGainsColorToWBGainY(settings.saturation_u, settings.saturation_v, red, green, blue,
                                          &settings.white_balance_u, &settings.white_balance_v, &settings.gain) != 1) {
        return TOVIX_EMODEL;
    }
    return update_matrix(*this);
}

int CVorm::GetDigitalColorGains(double* red, double* green, double* blue) {
    return unless_memory_runs_out([&] {
        const Adjustment adjustment = adjustment_of(settings);
        const Colour gains = transformed(yuv_to_rgb() * stretch(adjustment),
                                         {1.0, adjustment.white_balance_u / 2.0, adjustment.white_balance_v / 2.0});
        if (red != nullptr) *red = gains[0];
        if (green != nullptr) *green = gains[1];
        if (blue != nullptr) *blue = gains[2];
        return TOVIX_OK;
    });
}

int CVorm::AdjustWhiteBalanceForRGBvalues(double red, double green, double blue) {
    if (settings.correction_matrix == TOVIX_MATRIX_NONE || settings.correction_matrix == TOVIX_MATRIX_CUSTOM_ONLY)
        return TOVIX_EINVAL;
    return unless_memory_runs_out([&]() -> int {
        const CMatrix turned_yuv = to_turned_yuv(base_matrix(*this, settings), settings.hue);
        const auto [y, u, v] = transformed(turned_yuv, {red, green, blue});
        if (!(y > 0.0) || !std::isfinite(y)) return TOVIX_EINVAL;
        Adjustment adjustment = adjustment_of(settings);
        adjustment.white_balance_u = -2.0 * u / y;
        adjustment.white_balance_v = -2.0 * v / y;
        if (!std::isfinite(adjustment.white_balance_u) || !std::isfinite(adjustment.white_balance_v))
            return TOVIX_EINVAL;

        // No channel of a white input shall end below full scale, unless the gain is far off for another reason.
        const Colour white = transformed(to_adjusted_rgb(turned_yuv, adjustment), {1.0, 1.0, 1.0});
        const double least = *std::min_element(white.begin(), white.end());
        if (least > 0.4 && least < 1.0) settings.gain *= 1.0 / least;
        settings.white_balance_u = adjustment.white_balance_u;
        settings.white_balance_v = adjustment.white_balance_v;
        return update_matrix(*this);
    });
}
