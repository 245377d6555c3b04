// SPDX-License-Identifier: Apache-2.0
// The conversion call: merges the caller's records into private copies of layout and settings, so that the
// object stays as it is, and builds the matrix for this one frame.
#include <cmath>
#include <cstring>
#include <iterator>

#include "tovixapi/tovixapi.h"
#include "tovixapi/vorm.h"

namespace {

constexpr int kCannotConvert = TOVIX_EMODEL;

constexpr std::uint32_t kShortForm = 12, kFullForm = sizeof(tovix_conversion_params);
static_assert(kFullForm == 44 && sizeof(tovix_image_format) == 52, "the records tell their size");

/// The first word of a record, which may stand at any address.
std::uint32_t size_of_record(void const* record) {
    std::uint32_t size;
    std::memcpy(&size, record, sizeof size);
    return size;
}

/// The layout of the frame that the record describes. 0, or what is wrong with it.
[[nodiscard]] int read_format(void const* record, _vorm_format& format) {
    tovix_image_format image;
    if (size_of_record(record) != sizeof image) return TOVIX_EINVAL;
    std::memcpy(&image, record, sizeof image);
    if (image.pixel_format > 1) return kCannotConvert;
    const auto flag = [&](std::uint32_t bit) -> std::uint32_t { return (image.flags & bit) != 0; };
    format = {
        .width = image.width,
        .height = image.height,
        .first_row_blue = flag(TOVIX_IMAGE_BLUE_ROW),
        .first_green = flag(TOVIX_IMAGE_GREEN_FIRST),
        .mono = flag(TOVIX_IMAGE_MONO),
        .interlaced = image.reserved & 0xFF,
        .rows_reversed = flag(TOVIX_IMAGE_ROWS_REVERSED),
        .sample_kind = image.pixel_format == 0 ? 0U : 1U + flag(TOVIX_IMAGE_SECOND_FAMILY),
    };
    return TOVIX_OK;
}

/// The settings that the record overrides. 0, or what is wrong with it.
[[nodiscard]] int read_params(void const* record, CVorm& vorm, _vorm_settings& settings) {
    const std::uint32_t size = size_of_record(record);
    if (size != kFullForm && size != kShortForm) return TOVIX_EINVAL;
    tovix_conversion_params params{};
    std::memcpy(&params, record, size);
    if (!ValidateCorrectionMatrix(params.correction_matrix)) return kCannotConvert;
    settings.demosaic_method = params.demosaic_method;
    settings.correction_matrix = params.correction_matrix;
    if (size == kShortForm) return TOVIX_OK;

    for (const float number :
         {params.hue, params.saturation, params.gain_or_red, params.wb_u_or_green, params.wb_v_or_blue}) {
        if (!std::isfinite(number)) return kCannotConvert;
    }
    settings.flip_x = static_cast<std::int32_t>(params.flip_x);
    settings.flip_y = static_cast<std::int32_t>(params.flip_y);
    settings.saturation_u = settings.saturation_v = params.saturation;
    settings.hue = params.hue;
    if (params.colour_gains == 0) {
        settings.gain = params.gain_or_red;
        settings.white_balance_u = params.wb_u_or_green / 100.0;
        settings.white_balance_v = params.wb_v_or_blue / 100.0;
        return TOVIX_OK;
    }
    const int converted = vorm.ConvertDigitalGainsColorToWBGainY(
        settings.saturation_u, settings.saturation_v, params.gain_or_red, params.wb_u_or_green, params.wb_v_or_blue,
        &settings.white_balance_u, &settings.white_balance_v, &settings.gain);
    return converted == 1 ? TOVIX_OK : kCannotConvert;
}

}  // namespace

int CVorm::ConvertToRgb(unsigned char* dst, unsigned char const* src, unsigned int bits, void const* image_format,
                        void const* params) {
    _vorm_format frame_format = format;
    _vorm_settings frame_settings = settings;
    frame_settings.matrix = frame_settings.matrix_storage;
    frame_settings.matrix_stale = 1;
    if (image_format != nullptr) {
        if (const int result = read_format(image_format, frame_format); result != TOVIX_OK) return result;
    }
    if (params != nullptr) {
        if (const int result = read_params(params, *this, frame_settings); result != TOVIX_OK) return result;
    }
    if (BuildMatrix(&frame_settings) != 1) return kCannotConvert;

    if (frame_format.sample_kind != 0 && frame_settings.lut != nullptr && frame_settings.lut_size != 0) {
        const bool natural_order = frame_format.sample_kind == 2;
        if (frame_settings.lut16 == nullptr && frame_settings.lut_size >= sizeof(_lut8_struct::table)) {
            frame_settings.lut16 = table_for(frame_settings, natural_order);
            if (frame_settings.lut16 == nullptr) return kCannotConvert;
        } else if (BuildLut16WhenNotRunning(&frame_settings, natural_order) != 1) {
            return kCannotConvert;
        }
    }
    const bool converted = ConvertBayerToRgb(dst, src, bits, &frame_format, &frame_settings) == 1;
    return converted ? TOVIX_OK : kCannotConvert;
}
