// SPDX-License-Identifier: Apache-2.0
// The tone curve: brightness shifts levels, contrast spreads them around the middle, gamma bends them.
//
// Entries are truncated, so the order of operations is part of the result.
#include <algorithm>
#include <cmath>

#include "camera_properties.h"
#include "tovixapi/vorm.h"

namespace {

constexpr ToneSetting kSettings[] = {kBrightness, kContrast, kGamma};
constexpr double kTop = 255.0, kMiddle = 128.0;
constexpr unsigned kAllChannels = 15;

void make_curve(const _tovix& camera, std::uint8_t (&curve)[256]) {
    // No power law has an exponent of 0 or less.
    const double gamma = static_cast<double>(std::max<std::int64_t>(camera.gamma, kGamma.min)) / 100.0;
    const double brightness = static_cast<double>(camera.brightness) / 100.0;
    const double contrast = static_cast<double>(camera.contrast) / 100.0;
    const double exponent = 1.0 / gamma;
    const double scale = std::pow(kTop, 1.0 - exponent);  // keeps the top level where it is
    for (int level = 0; level < 256; ++level) {
        double x = (level + brightness - kMiddle) * contrast + kMiddle;
        if (x > 0.0) x = std::pow(x, exponent) * scale;
        curve[level] = static_cast<std::uint8_t>(std::clamp(x, 0.0, kTop));
    }
}

/// The conversion object counts brightness in other units and rounds elsewhere, but it has the same three settings.
void apply_in_software(const _tovix& camera) {
    CVorm& vorm = *camera.vorm;
    vorm.SetGamma(static_cast<int>(camera.gamma), kAllChannels);
    vorm.SetContrast(static_cast<int>(camera.contrast), kAllChannels);
    vorm.SetBrightness(static_cast<int>(camera.brightness), kAllChannels);
}

}  // namespace

std::int32_t cam_get_gamma_helper(_tovix* camera, int property, int* min, int* max, int* value, std::uint32_t* flags) {
    for (const ToneSetting& setting : kSettings) {
        if (static_cast<std::uint32_t>(property) != setting.property) continue;
        if (min != nullptr) *min = setting.min;
        if (max != nullptr) *max = setting.max;
        *value = static_cast<int>(camera->*setting.field);
        *flags = TOVIX_PROPERTY_PRESENT;
        return TOVIX_OK;
    }
    return TOVIX_EINVAL;
}

std::int32_t cam_set_gamma_helper(_tovix* camera) {
    make_curve(*camera, camera->lut);
    const bool loaded = cam_write_message(camera, kToneCurveMessage, camera->lut, sizeof camera->lut) == TOVIX_OK;
    if (!loaded) {
        apply_in_software(*camera);
    } else if (camera->tone_in_software != 0) {
        camera->vorm->SetupLUT(nullptr, 0, kAllChannels);  // or the curve would be applied twice
    }
    camera->tone_in_software = !loaded;
    return TOVIX_OK;
}
