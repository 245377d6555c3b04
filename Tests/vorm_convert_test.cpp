// SPDX-License-Identifier: Apache-2.0
// The conversion call: which kernel it runs with which arguments, what it does with the caller's records, and what it
// refuses.
#include <gtest/gtest.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "color_kernel_list.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Image = tovix_image_format;
using Params = tovix_conversion_params;

/// All odd, so that it matters whether a rule halves before it adds or after.
Bytes noise(std::size_t count) {
    Bytes bytes = kernels::random_bytes(count, 3, 256);
    for (unsigned char& byte : bytes)
        byte |= 1;
    return bytes;
}

constexpr unsigned kWidth = 6, kHeight = 4;  // 24-bit rows of 18 bytes, which padding makes 20
constexpr std::size_t kGuard = 32;

const Bytes kFrame = noise(kWidth * kHeight * 2), kTable8 = noise(257);

/// Room for an image of any kind, between guards.
struct Canvas {
    Bytes bytes = Bytes(2 * kGuard + 6 * kWidth * kHeight, 0x5A);
    unsigned char* image() { return bytes.data() + kGuard; }
    bool operator==(const Canvas&) const = default;
};

constexpr unsigned kMono = 77;  // stands for a monochrome frame, whatever the method

/// Name of the kernel that does it; empty when none does.
std::string kernel_name(unsigned method, bool words, bool two_fields, unsigned bits) {
    const std::map<unsigned, std::string> families{{kMono, "NoneMove"},   {0, "NoneMove"},  {1, "NearestNeighbor"},
                                                   {2, "EdgeDetectMove"}, {3, "ZurnoMove"}, {8, "QueltMove"},
                                                   {9, "QueltMove"}};
    if (!families.contains(method)) return "";
    if (bits == 8) return std::string("MonoToMonoMove") + (words ? "16to8" : "") + (two_fields ? "Deinterl" : "");
    if (bits == 48 && !words) return "";
    if (method == 9) {  // the mean of four colours, where there is one
        if (bits == 48 || (bits == 24 && !words && two_fields)) return "";
        if (bits == 32 && !words) return "FourColorsInterMove32InPlace";
    }
    const std::string depth = bits == 48 ? "16" : words ? (bits == 32 ? "16to832" : "16to8") : (bits == 32 ? "32" : "");
    const bool in_place = method != 3 && (two_fields || bits == 48 || method == 8 || method == 9);
    return families.at(method) + depth + (in_place ? "InPlace" : "");
}

/// The matrix over the pixels that a kernel made, one by one, at the stride that the kernel has.
void apply_matrix(unsigned char* image, unsigned bits, bool padded, short const* matrix) {
    const std::size_t row_bytes = kWidth * bits / 8, stride = padded ? (row_bytes + 3) / 4 * 4 : row_bytes;
    for (unsigned i = 0; i < kWidth * kHeight; ++i) {
        unsigned char* const pixel = image + i / kWidth * stride + i % kWidth * bits / 8;
        if (bits == 24) MatrixPostProcess4096(matrix, pixel, 1);
        if (bits == 32) MatrixPostProcess4096to32(matrix, pixel, 1);
        if (bits == 48) MatrixPostProcess16_4096(matrix, reinterpret_cast<unsigned short*>(pixel), 1);
    }
}

TEST(VormConvert, RunsTheKernelOfItsName) {
    CVorm vorm;
    short matrix[12] = {5000, -700, 90, 300, 1000, 3000, -400, -200, 50, 600, 4096, 100};
    _lut8_struct lut{};
    std::copy_n(kernels::kTable.begin(), 256, lut.table);
    std::vector<unsigned short> lut16(65536);
    std::memcpy(lut16.data(), kernels::kTable.data(), kernels::kTable.size());
    int conversions = 0;
    for (const unsigned method : {kMono, 0u, 1u, 2u, 3u, 8u, 9u, 7u}) {
        for (unsigned i = 0; i < 128 * 3 * 3 * 5; ++i) {
            unsigned rest = i;
            const auto take = [&](unsigned choices) { return std::exchange(rest, rest / choices) % choices; };
            _vorm_settings s = vorm.settings;
            s.demosaic_method = method;
            s.matrix = matrix, s.correction_matrix = 15 * take(2);
            s.flip_x = static_cast<int>(2 * take(2)), s.flip_y = static_cast<int>(3 * take(2));
            s.lut = &lut, s.lut16 = lut16.data(), s.lut_size = std::array{0u, 256u, 280u}[take(3)];
            _vorm_format f{};
            f.width = kWidth, f.height = kHeight, f.mono = method == kMono, f.interlaced = 255 * take(2);
            f.first_row_blue = 4 * take(2), f.first_green = 8 * take(2), f.rows_reversed = 16 * take(2);
            f.sample_kind = take(3);
            const unsigned asked = std::array{8u, 24u, 32u, 48u, 0u}[take(5)];

            const bool two_fields = f.interlaced != 0;
            const unsigned bits = asked == 0 || (asked == 8 && method != kMono) ? 24 : asked;
            const std::string name = kernel_name(method, f.sample_kind != 0, two_fields, bits);
            Canvas converted, expected;
            const int done = vorm.ConvertBayerToRgb(converted.image(), kFrame.data(), asked, &f, &s);
            const auto which = testing::Message() << "method " << method << " case " << i << ": '" << name << "'";
            ASSERT_EQ(done, !name.empty()) << which;
            if (!name.empty()) {
                ++conversions;
                std::string flags;
                for (const auto& [flag, is_set] : {std::pair{'r', f.first_row_blue == 0},
                                                   {'g', f.first_green != 0},
                                                   {'f', s.flip_x != 0},
                                                   {'t', (s.flip_y == 0) ^ (f.rows_reversed != 0)},
                                                   {'i', two_fields},
                                                   {'m', f.sample_kind == 1},
                                                   {'l', s.lut_size != 0}}) {
                    if (is_set) flags += flag;
                }
                const kernels::Kernel& kernel = kernels::find(name);
                kernel.run({kWidth, kHeight, flags, {}}, kernel.letters, kFrame.data(), expected.image());
                const bool padded = bits == 24 && !two_fields && method == 0;
                if (s.correction_matrix != 0 && method != kMono) apply_matrix(expected.image(), bits, padded, matrix);
            }
            ASSERT_TRUE(converted == expected) << which;
        }
    }
    // Of the 15 pairs of samples and image, one has no kernel; with method 9 two more have none, and three have none
    // for half of the frames.
    EXPECT_EQ(conversions, 384 * (7 * 14) - 384 * 7 / 2);
}

Image image(std::uint32_t pixel_format, std::uint32_t flags, std::uint32_t word_9 = 0) {
    return {52, kWidth, kHeight, pixel_format, 1, flags, {~0u, ~0u, ~0u}, word_9, {~0u, ~0u, ~0u}};
}

TEST(VormConvert, ReadsTheFormatOfTheFrame) {
    CVorm vorm;
    vorm.CorrectionMatrixSet(0), vorm.SetupLUT(kTable8.data(), 256, 15);
    std::vector<unsigned short> lut16(65536);
    for (std::uint32_t i = 0; i < 32 * 3 * 2; ++i) {
        const std::uint32_t flags = i % 32, word_9 = std::array{0u, 0x100u, 0x80u}[i / 32 % 3], pixel_format = i / 96;
        const bool little = (flags & 2) != 0;
        Canvas direct, called;
        const Image format = image(pixel_format, flags | 0xFFFFFFE0, word_9);
        ASSERT_EQ(vorm.ConvertToRgb(called.image(), kFrame.data(), 24, &format, nullptr), 0);
        const _vorm_format read{
            kWidth,    kHeight,        (flags & 4) != 0,  (flags & 8) != 0,
            flags & 1, word_9 == 0x80, (flags & 16) != 0, pixel_format == 0 ? 0u : little ? 2u : 1u};
        _vorm_settings settings = vorm.settings;
        settings.lut16 = lut16.data();
        MakeLut16(settings.lut16, settings.lut, 256, little);
        ASSERT_EQ(vorm.ConvertBayerToRgb(direct.image(), kFrame.data(), 24, &read, &settings), 1);
        ASSERT_TRUE(called == direct) << flags << ' ' << word_9 << ' ' << pixel_format;
    }
    EXPECT_EQ(vorm.settings.lut16, nullptr);
}

/// The image that `vorm` makes of the frame; untouched where the result is not 0.
Canvas converted(CVorm& vorm, const Image* format, const void* params, int expected = 0) {
    Canvas canvas;
    EXPECT_EQ(vorm.ConvertToRgb(canvas.image(), kFrame.data(), 24, format, params), expected);
    EXPECT_TRUE(expected == 0 || canvas == Canvas());
    return canvas;
}

constexpr Params kFull{44, 2, 14, 5, 0, 20, 1.5f, 0, 1.25f, 12, -7.5f};

/// The table for 16-bit frames is kept from one conversion to the next.
TEST(VormConvert, LooksUp16BitFramesAsTheSettingsAreNow) {
    const Image format = image(1, TOVIX_IMAGE_SECOND_FAMILY);
    CVorm vorm;
    for (const auto set :
         {+[](CVorm& v) { v.SetGamma(220, 15); }, +[](CVorm& v) { v.SetupLUT(kTable8.data(), 256, 15); },
          +[](CVorm& v) { v.SetupLUT(kTable8.data() + 1, 256, 15); }, +[](CVorm& v) { v.SetGamma(220, 15); },
          +[](CVorm& v) {  // the same table without its curve is another one for words
              _lut8_struct curve{{}, 220, 100, 0};
              MakeLut8(&curve), v.SetupLUT(curve.table, 256, 15);
          },
          +[](CVorm& v) { v.SetContrast(50, 15); }, +[](CVorm& v) { v.SetupLUT(nullptr, 0, 15); }}) {
        CVorm fresh;
        set(vorm), set(fresh);
        EXPECT_TRUE(converted(vorm, &format, nullptr) == converted(fresh, &format, nullptr));
    }
}

TEST(VormConvert, ParametersDoForOnceWhatTheSettersDo) {
    CVorm vorm, set;
    for (CVorm* each : {&vorm, &set}) {
        each->SetFlipping(0, 1), each->SetHue(-60), each->SetSaturation(1, 2), each->SetGain(2);
        each->SetGamma(150, 15);
    }
    const Image format = image(0, 0);
    const Canvas before = converted(vorm, &format, nullptr);
    const _vorm_settings settings_before = vorm.settings;

    unsigned char record[13];  // the short form, at an odd address, and not a byte more
    std::memcpy(record + 1, &kFull, 12);
    record[1] = 12;
    set.DemosaicMethodSet(2), set.CorrectionMatrixSet(14);
    EXPECT_TRUE(converted(vorm, &format, record + 1) == converted(set, &format, nullptr));
    set.SetFlipping(1, 0), set.SetHue(20), set.SetSaturation(1.5, 1.5), set.SetGain(1.25),
        set.SetWhiteBalance(0.12, -0.075);
    const Canvas with_balance = converted(vorm, &format, &kFull);
    EXPECT_TRUE(with_balance == converted(set, &format, nullptr));

    Params params = kFull;
    params.colour_gains = 77, params.wb_u_or_green = 0.5f, params.wb_v_or_blue = 1.75f;
    EXPECT_EQ(set.SetDigitalColorGains(1.25, 0.5, 1.75), 0);
    const Canvas with_gains = converted(vorm, &format, &params);
    EXPECT_TRUE(with_gains == converted(set, &format, nullptr));
    EXPECT_FALSE(with_gains == with_balance);

    params = kFull, params.correction_matrix = 0, params.demosaic_method = 3;  // which the setter refuses
    EXPECT_FALSE(converted(vorm, &format, &params) == before);
    EXPECT_EQ(std::memcmp(&vorm.settings, &settings_before, sizeof settings_before), 0) << "settings changed";
    EXPECT_TRUE(converted(vorm, &format, nullptr) == before);

    // A flat frame of 100 by the default matrix, whose rows add up to 4096, 4096 and 4095.
    const Bytes flat(kWidth * kHeight, 100);
    Canvas canvas;
    CVorm().ConvertToRgb(canvas.image(), flat.data(), 24, &format, nullptr);
    EXPECT_EQ(Bytes(canvas.image(), canvas.image() + 3), (Bytes{100, 100, 99}));
}

TEST(VormConvert, RefusesAndLeavesTheImageAlone) {
    CVorm vorm;
    const Image bytes = image(0, 0), words = image(1, 0);
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN(), kInfinity = std::numeric_limits<float>::infinity();
    const auto refuse = [&](int expected, const auto& change) {
        Params params = kFull;
        change(params);
        converted(vorm, &bytes, &params, expected);
    };
    for (const float bad : {kNan, kInfinity, -kInfinity}) {
        for (const auto field :
             {&Params::hue, &Params::saturation, &Params::gain_or_red, &Params::wb_u_or_green, &Params::wb_v_or_blue}) {
            refuse(-14, [&](Params& p) { p.*field = bad; });
            refuse(-14, [&](Params& p) { p.*field = bad, p.colour_gains = 1; });
        }
    }
    for (const std::uint32_t size : {0u, 11u, 13u, 40u, 48u, ~0u})
        refuse(-22, [&](Params& p) { p.size = size; });
    for (const std::uint32_t size : {12u, 44u}) {
        refuse(-14, [&](Params& p) { p.size = size, p.correction_matrix = 17; });
        refuse(-14, [&](Params& p) { p.size = size, p.correction_matrix = ~0u; });
        refuse(-14, [&](Params& p) { p.size = size, p.demosaic_method = 4; });
    }
    refuse(-14, [](Params& p) { p.colour_gains = 1, p.saturation = 0.0499f; });

    const struct {
        std::uint32_t Image::*field;
        std::uint32_t value;
        int expected;
    } formats[] = {{&Image::size, 48, -22},          {&Image::size, 0, -22},   {&Image::pixel_format, 2, -14},
                   {&Image::pixel_format, ~0u, -14}, {&Image::width, 5, -14},  {&Image::height, 3, -14},
                   {&Image::width, 0, -14},          {&Image::height, 0, -14}, {&Image::width, 1, -14}};
    Params wrong_size = kFull;
    wrong_size.size = 1;
    for (const auto& c : formats) {
        for (const std::uint32_t flags : {0u, 1u}) {
            Image format = image(0, flags);
            format.*c.field = c.value;
            converted(vorm, &format, nullptr, c.expected);
            const bool sizes = c.field == &Image::width || c.field == &Image::height;
            converted(vorm, &format, &wrong_size, sizes ? -22 : c.expected);
        }
    }
    Image huge = image(0, 0);
    huge.width = huge.height = ~1u;
    converted(vorm, &huge, nullptr, -14);
    EXPECT_EQ(vorm.ConvertToRgb(nullptr, nullptr, 24, nullptr, nullptr), 0) << "a frame of 0 x 0";
    EXPECT_EQ(vorm.ConvertToRgb(nullptr, kFrame.data(), 24, &bytes, nullptr), -14);

    Canvas canvas;
    EXPECT_EQ(vorm.ConvertToRgb(canvas.image(), nullptr, 24, &bytes, nullptr), -14);
    EXPECT_EQ(vorm.ConvertToRgb(canvas.image() + 1, kFrame.data(), 48, &words, nullptr), -14);
    _vorm_settings no_matrix = vorm.settings;
    no_matrix.matrix = nullptr;
    const auto bayer = [&](std::uint64_t width, std::uint64_t height, std::uint32_t kind,
                           const _vorm_settings* settings) {
        const _vorm_format format{width, height, 0, 0, 0, 0, 0, kind};
        return vorm.ConvertBayerToRgb(canvas.image(), kFrame.data(), 24, &format, settings);
    };
    for (const std::uint64_t side : {std::uint64_t{1} << 32, (std::uint64_t{1} << 32) + 2, ~std::uint64_t{1}})
        EXPECT_EQ(bayer(side, 2, 0, &vorm.settings) + bayer(2, side, 0, &vorm.settings), 0);
    EXPECT_EQ(bayer(6, 4, 3, &vorm.settings) + bayer(6, 4, 0, &no_matrix) + bayer(6, 4, 0, nullptr), 0);
    EXPECT_EQ(vorm.ConvertBayerToRgb(canvas.image(), kFrame.data(), 24, nullptr, &vorm.settings), 0);
    EXPECT_TRUE(canvas == Canvas());
}

}  // namespace
