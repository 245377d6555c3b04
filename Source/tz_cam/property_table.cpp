// SPDX-License-Identifier: Apache-2.0
#include "property_table.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <tuple>

#include "camera_properties.h"
#include "report.h"
#include "saturated.h"
#include "tovixapi/vorm.h"

namespace {

// What reads and sets each kind of property, for the rows below. Setters that take no flags ignore them.
using Info = tovix_property_info;
using Reading = PropertyReading;

// ---- A block of the camera's registers -----------------------------------------------------------------------------

std::int32_t read_block(_tovix* camera, const Info& info, const Reading& out) {
    return cam_get_prop_helper(camera, info.address, out.min, out.max, out.value, out.flags);
}
std::int32_t set_block(_tovix* camera, const Info& info, int value, std::uint32_t flags) {
    return cam_set_prop_helper(camera, info.address, value, flags);
}
std::int32_t set_temperature(_tovix* camera, const Info&, int value, std::uint32_t flags) {
    return cam_set_temperature_helper(camera, value, flags);
}

constexpr PropertyAccess kBlock{&read_block, &set_block};
constexpr PropertyAccess kTemperature{&read_block, &set_temperature};

// ---- A setting of the tone curve -----------------------------------------------------------------------------------

std::int32_t read_tone(_tovix* camera, const Info& info, const Reading& out) {
    return cam_get_gamma_helper(camera, static_cast<int>(info.property), out.min, out.max, out.value, out.flags);
}
template <std::int64_t _tovix::*kField>
std::int32_t set_tone(_tovix* camera, const Info&, int value, std::uint32_t) {
    camera->*kField = value;
    return cam_set_gamma_helper(camera);
}

// ---- A setting of the conversion object ----------------------------------------------------------------------------

std::int32_t give(const Info& info, int value, const Reading& out) {
    if (out.min != nullptr) *out.min = info.min;
    if (out.max != nullptr) *out.max = info.max;
    *out.value = value;
    return TOVIX_OK;
}

template <int (CVorm::*kGet)(unsigned*)>
std::int32_t read_choice(_tovix* camera, const Info& info, const Reading& out) {
    unsigned choice = 0;
    if (const int result = (camera->vorm->*kGet)(&choice); result < 0) return result;
    return give(info, static_cast<int>(choice), out);
}
template <int (CVorm::*kSet)(unsigned)>
std::int32_t set_choice(_tovix* camera, const Info&, int value, std::uint32_t) {
    return (camera->vorm->*kSet)(static_cast<unsigned>(value));
}

constexpr PropertyAccess kDemosaicMethod{&read_choice<&CVorm::DemosaicMethodGet>,
                                         &set_choice<&CVorm::DemosaicMethodSet>};
constexpr PropertyAccess kCorrectionMatrix{&read_choice<&CVorm::CorrectionMatrixGet>,
                                           &set_choice<&CVorm::CorrectionMatrixSet>};

constexpr int kFlipX = 1, kFlipY = 2;

std::int32_t read_flipping(_tovix* camera, const Info& info, const Reading& out) {
    int x = 0, y = 0;
    if (const int result = camera->vorm->GetFlipping(&x, &y); result < 0) return result;
    return give(info, (x != 0 ? kFlipX : 0) + (y != 0 ? kFlipY : 0), out);
}
std::int32_t set_flipping(_tovix* camera, const Info&, int value, std::uint32_t) {
    return camera->vorm->SetFlipping(value & kFlipX, value & kFlipY);
}

constexpr PropertyAccess kFlipping{&read_flipping, &set_flipping};

/// `kCount` numbers that the conversion object gives and takes together.
template <auto kGet, auto kSet, std::size_t kCount>
struct Numbers {
    using Values = std::array<double, kCount>;
    static int get(CVorm& vorm, Values& values) {
        return std::apply([&](auto&... each) { return (vorm.*kGet)(&each...); }, values);
    }
    static int set(CVorm& vorm, const Values& values) {
        return std::apply([&](auto... each) { return (vorm.*kSet)(each...); }, values);
    }
};
using Saturation = Numbers<&CVorm::GetSaturation, &CVorm::SetSaturation, 2>;
using Hue = Numbers<&CVorm::GetHue, &CVorm::SetHue, 1>;
using WhiteBalance = Numbers<&CVorm::GetWhiteBalance, &CVorm::SetWhiteBalance, 2>;
using Gain = Numbers<&CVorm::GetGain, &CVorm::SetGain, 1>;
using ColorGains = Numbers<&CVorm::GetDigitalColorGains, &CVorm::SetDigitalColorGains, 3>;

/// Hundredths. Applications know what these two give, oddities included: a negative number comes out one too high when
/// rounded, since truncation goes towards zero, and one that is a hair too small comes out one too low when truncated.
int rounded(double number) {
    return saturated<int>(number * 100.0 + 0.5);
}
int truncated(double number) {
    return saturated<int>(number * 100.0);
}

/// In place of an index: the numbers are set alike, and the first is read.
constexpr std::size_t kAll = SIZE_MAX;

template <class Group, std::size_t kIndex, int (*kHundredths)(double)>
std::int32_t read_number(_tovix* camera, const Info& info, const Reading& out) {
    typename Group::Values values{};
    if (const int result = Group::get(*camera->vorm, values); result < 0) return result;
    return give(info, kHundredths(values[kIndex == kAll ? 0 : kIndex]), out);
}
template <class Group, std::size_t kIndex>
std::int32_t set_number(_tovix* camera, const Info&, int value, std::uint32_t) {
    typename Group::Values values{};
    if constexpr (kIndex == kAll) {
        values.fill(value / 100.0);
    } else {
        if (const int result = Group::get(*camera->vorm, values); result < 0) return result;
        values[kIndex] = value / 100.0;
    }
    return Group::set(*camera->vorm, values);
}

template <class Group, std::size_t kIndex, int (*kHundredths)(double)>
constexpr PropertyAccess kNumber{&read_number<Group, kIndex, kHundredths>, &set_number<Group, kIndex>};

// ---- What the camera has said of itself ----------------------------------------------------------------------------

template <std::uint16_t _tovix::*kField>
std::int32_t read_field(_tovix* camera, const Info&, const Reading& out) {
    *out.value = camera->*kField;
    return TOVIX_OK;
}
std::int32_t read_max_subsampling(_tovix* camera, const Info&, const Reading& out) {
    std::uint32_t word = 0;
    if (const std::int32_t result = tz_usb_read_tovix_u32(camera, kFoSubsamplingInq.address, &word); result < 0)
        return unreadable(kFoSubsamplingInq, result);
    *out.value = static_cast<int>(word & 0xFF);
    return TOVIX_OK;
}

template <std::uint16_t _tovix::*kMember>
constexpr PropertyAccess kField{&read_field<kMember>, nullptr};
constexpr PropertyAccess kMaxSubsampling{&read_max_subsampling, nullptr};

// ---- The rows ------------------------------------------------------------------------------------------------------

constexpr PropertyRow camera_row(std::uint32_t property, const char* name, const char* unit, std::uint32_t address,
                                 const char* description, const PropertyAccess& access = kBlock) {
    return {{property, name, unit, description, TOVIX_KEPT_BY_CAMERA, address, 0, 0}, access, {}};
}

template <const ToneSetting& kSetting>
constexpr PropertyRow tone_row(const char* name, const char* unit, const char* description) {
    return {{kSetting.property, name, unit, description, TOVIX_KEPT_BY_LIBRARY, 0, kSetting.min, kSetting.max},
            {&read_tone, &set_tone<kSetting.field>},
            {}};
}

constexpr PropertyRow conversion_row(std::uint32_t property, const char* name, const char* unit, int min, int max,
                                     const PropertyAccess& access, const char* description,
                                     std::optional<int> monochrome = {}) {
    return {{property, name, unit, description, TOVIX_KEPT_BY_CONVERSION, 0, min, max}, access, monochrome};
}

constexpr PropertyRow fixed_row(std::uint32_t property, const char* name, const char* unit, std::uint32_t address,
                                const char* description, const PropertyAccess& access) {
    return {{property, name, unit, description, TOVIX_FIXED, address, 0, 0}, access, {}};
}

constexpr PropertyRow kRows[] = {
    tone_row<kBrightness>("brightness", "levels", "added to every level of an 8-bit sample"),
    tone_row<kContrast>("contrast", "", "spreads levels around the middle one"),
    tone_row<kGamma>("gamma", "", "bends the tone curve: output is input to the power of 1 / gamma"),
    camera_row(TOVIX_PROP_EXPOSURE, "exposure", "ms", 0x04A0, "time for which the sensor collects light"),
    camera_row(TOVIX_PROP_GAIN, "gain", "", 0x04F0, "analogue gain of all pixels"),
    camera_row(TOVIX_PROP_GAIN_RED, "gain_red", "", 0x0500, "analogue gain of the red pixels"),
    camera_row(TOVIX_PROP_GAIN_BLUE, "gain_blue", "", 0x0530, "analogue gain of the blue pixels"),
    camera_row(TOVIX_PROP_GAIN_GREEN1, "gain_green1", "", 0x0510, "analogue gain of the green pixels in red rows"),
    camera_row(TOVIX_PROP_GAIN_GREEN2, "gain_green2", "", 0x0520, "analogue gain of the green pixels in blue rows"),
    conversion_row(TOVIX_PROP_DEMOSAICING_METHOD, "demosaicing_method", "", 0, 2, kDemosaicMethod,
                   "how missing colours are filled in: 0 not at all, 1 nearest, 2 edge; 8 and 9 are taken too"),
    conversion_row(TOVIX_PROP_CORRECTION_MATRIX, "correction_matrix", "", 0, 5, kCorrectionMatrix,
                   "colour-correction matrix: 0 none, 1 to 5 the model's; up to 16 are taken"),
    conversion_row(TOVIX_PROP_FLIPPING, "flipping", "", 0, 3, kFlipping,
                   "1 mirrors each row, 2 puts the last row first, 3 does both"),
    conversion_row(TOVIX_PROP_DIGITAL_SATURATION, "digital_saturation", "", 5, 200, kNumber<Saturation, kAll, rounded>,
                   "strength of the colours"),
    conversion_row(TOVIX_PROP_DIGITAL_HUE, "digital_hue", "degrees", -18000, 18000, kNumber<Hue, kAll, rounded>,
                   "rotation of the colours"),
    conversion_row(TOVIX_PROP_DIGITAL_WHITEBALANCE_U, "digital_whitebalance_u", "hundredths", -100, 100,
                   kNumber<WhiteBalance, 0, rounded>, "white balance between yellow and blue", 0),
    conversion_row(TOVIX_PROP_DIGITAL_WHITEBALANCE_V, "digital_whitebalance_v", "hundredths", -100, 100,
                   kNumber<WhiteBalance, 1, rounded>, "white balance between cyan and red", 0),
    conversion_row(TOVIX_PROP_DIGITAL_GAIN, "digital_gain", "", 100, 200, kNumber<Gain, kAll, rounded>,
                   "gain of the luminance", 100),
    conversion_row(TOVIX_PROP_DIGITAL_GAIN_RED, "digital_gain_red", "", 100, 250, kNumber<ColorGains, 0, truncated>,
                   "gain of red, made of digital gain and white balance", 100),
    conversion_row(TOVIX_PROP_DIGITAL_GAIN_GREEN, "digital_gain_green", "", 100, 250, kNumber<ColorGains, 1, truncated>,
                   "gain of green, made of digital gain and white balance", 100),
    conversion_row(TOVIX_PROP_DIGITAL_GAIN_BLUE, "digital_gain_blue", "", 100, 250, kNumber<ColorGains, 2, truncated>,
                   "gain of blue, made of digital gain and white balance", 100),
    fixed_row(TOVIX_PROP_MAX_WIDTH, "max_width", "pixels", TOVIX_FO_MAX_SIZE, "width of the sensor",
              kField<&_tovix::max_width>),
    fixed_row(TOVIX_PROP_MAX_HEIGHT, "max_height", "pixels", TOVIX_FO_MAX_SIZE, "height of the sensor",
              kField<&_tovix::max_height>),
    fixed_row(TOVIX_PROP_UNIT_WIDTH, "unit_width", "pixels", TOVIX_FO_UNIT_SIZE, "widths of frames are multiples of it",
              kField<&_tovix::unit_width>),
    fixed_row(TOVIX_PROP_UNIT_HEIGHT, "unit_height", "pixels", TOVIX_FO_UNIT_SIZE,
              "heights of frames are multiples of it", kField<&_tovix::unit_height>),
    fixed_row(TOVIX_PROP_MAX_SUBSAMPLING, "max_subsampling", "", TOVIX_FO_SUBSAMPLING_INQ, "largest subsampling factor",
              kMaxSubsampling),
    camera_row(TOVIX_PROP_TEMPERATURE, "temperature", "", TOVIX_TEMPERATURE,
               "of the sensor; sets what the control aims at. The integer is in the camera's own unit", kTemperature),
    camera_row(TOVIX_PROP_BLOCK_640, "block_640", "", 0x0640, "of the camera's own"),
};
static_assert(std::ranges::is_sorted(kRows, {}, [](const PropertyRow& row) { return row.info.property; }));

constexpr auto kInfos = [] {
    std::array<tovix_property_info, std::size(kRows)> infos{};
    std::ranges::transform(kRows, infos.begin(), &PropertyRow::info);
    return infos;
}();

}  // namespace

const tovix_property_info* const tovix_properties = kInfos.data();
const std::int32_t tovix_property_count = static_cast<std::int32_t>(kInfos.size());

const PropertyRow* find_property(std::uint32_t property) {
    const auto row = std::ranges::find(kRows, property, [](const PropertyRow& each) { return each.info.property; });
    return row != std::end(kRows) ? row : nullptr;
}
