// SPDX-License-Identifier: Apache-2.0
// Settings and look-up tables of the conversion object.
#include <gtest/gtest.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

namespace {

using Words = std::vector<unsigned short>;

std::vector<unsigned char> table_of(CVorm& vorm) {
    std::vector<unsigned char> table(280);
    unsigned size = 280;
    EXPECT_EQ(vorm.GetLUT(table.data(), &size, 15), 0);
    table.resize(size);
    return table;
}

struct CurveValues {
    int gamma = -1, contrast = -1, brightness = -1;
    bool operator==(const CurveValues&) const = default;
};
CurveValues curve_of(CVorm& vorm) {
    CurveValues values;
    EXPECT_EQ(vorm.GetGamma(&values.gamma, 15) | vorm.GetContrast(&values.contrast, 99) |
                  vorm.GetBrightness(&values.brightness, 0),
              0);
    return values;
}

_lut8_struct curve(std::int64_t gamma, std::int64_t contrast, std::int64_t brightness) {
    return {.table = {}, .gamma = gamma, .contrast = contrast, .brightness = brightness};
}

Words lut16_of(const _lut8_struct& block, unsigned size, bool natural = true) {
    Words out(65536);
    MakeLut16(out.data(), &block, size, natural);
    return out;
}

/// Flips, saturations, hue, gain and white balance.
std::array<double, 8> settings_of(CVorm& vorm) {
    int x = 9, y = 9;
    double u, v, hue, gain, balance_u, balance_v;
    EXPECT_EQ(vorm.GetFlipping(&x, &y) | vorm.GetSaturation(&u, &v) | vorm.GetHue(&hue) | vorm.GetGain(&gain), 0);
    EXPECT_EQ(vorm.GetWhiteBalance(&balance_u, nullptr) | vorm.GetWhiteBalance(nullptr, &balance_v), 0);
    return {double(x), double(y), u, v, hue, gain, balance_u, balance_v};
}

TEST(VormObject, StartsNeutralAndKeepsWhatItAccepts) {
    CVorm vorm;
    EXPECT_EQ(curve_of(vorm), (CurveValues{100, 100, 0}));
    EXPECT_EQ(settings_of(vorm), (std::array<double, 8>{0, 0, 1, 1, 0, 1, 0, 0}));
    EXPECT_TRUE(vorm.settings.demosaic_method == 1 && vorm.settings.correction_matrix == 1);
    short custom[12], current[12];
    vorm.GetCustomMatrix(custom), vorm.CorrectionMatrixSet(0), vorm.GetCurrentMatrix(current);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(custom[i] << 16 | current[i], i % 5 == 0 ? 4096 << 16 | 4096 : 0) << i;
    unsigned size = 0;
    EXPECT_EQ(vorm.GetLUT(nullptr, &size, 15), 84);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(vorm.settings.matrix) % 16, 0u);

    EXPECT_EQ(vorm.SetFlipping(1, 7) | vorm.SetSaturation(0.5, 2.5) | vorm.SetHue(-30) | vorm.SetGain(3), 0);
    EXPECT_EQ(vorm.SetWhiteBalance(0.25, -0.75), 0);
    EXPECT_EQ(settings_of(vorm), (std::array<double, 8>{1, 7, 0.5, 2.5, -30, 3, 0.25, -0.75}));
    for (unsigned value = 0; value < 40; ++value) {
        unsigned method = 0, before = 0, selector = 0;
        vorm.DemosaicMethodGet(&before);
        const bool known = value <= 2 || value == 8 || value == 9;
        EXPECT_EQ(vorm.DemosaicMethodSet(value), known) << value;
        vorm.DemosaicMethodGet(&method);
        EXPECT_EQ(method, known ? value : before);
        EXPECT_EQ(vorm.CorrectionMatrixSet(value), value <= 16) << value;
        vorm.CorrectionMatrixGet(&selector);
        EXPECT_EQ(selector, std::min(value, 16u));
    }
}

TEST(VormObject, CurveMakesTheTables) {
    // By hand. Brightness 10000 adds 256 levels, -39 takes off 0.9984, 39 adds 255.6 of 65536; what is left of the centre
    // is cut towards it. Gamma 2 is a square root: 255 * sqrt(64 / 255) = 127.7, 65535 * sqrt(0.250004) = 32767.7.
    using Levels = std::map<unsigned, int>;
    const struct {
        int gamma, contrast, brightness;
        Levels bytes, words;
    } cases[] = {
        {100, 100, 0, Levels{{0, 0}, {1, 1}, {77, 77}, {255, 255}}, Levels{{0, 0}, {777, 777}, {65535, 65535}}},
        {0, 100, 0, Levels{{77, 77}}, Levels{{777, 777}}},  // as gamma 1
        {INT_MIN, 100, 0, Levels{{77, 77}}, Levels{{777, 777}}},
        {100, 200, 0, Levels{{0, 0}, {64, 0}, {100, 72}, {128, 128}, {200, 255}},
         Levels{{16384, 0}, {30000, 27232}, {32768, 32768}, {40000, 47232}, {50000, 65535}}},
        {100, 100, 10000, Levels{{0, 255}, {100, 255}, {255, 255}}, Levels{{0, 65535}}},
        {100, 100, -39, Levels{{0, 0}, {1, 1}, {127, 127}, {128, 128}, {129, 128}, {255, 254}}, Levels{}},
        {100, 100, 39, Levels{}, Levels{{1000, 1256}}},
        {200, 100, 0, Levels{{0, 0}, {1, 15}, {64, 127}}, Levels{{16384, 32767}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.gamma << ", " << c.contrast << ", " << c.brightness);
        CVorm vorm;
        vorm.SetGamma(c.gamma, 15), vorm.SetContrast(c.contrast, 15), vorm.SetBrightness(c.brightness, 15);
        EXPECT_EQ(curve_of(vorm), (CurveValues{c.gamma, c.contrast, c.brightness}));
        const auto bytes = table_of(vorm);
        ASSERT_EQ(bytes.size(), 280u);
        for (const auto& [level, expected] : c.bytes)
            EXPECT_EQ(bytes[level], expected) << level;
        const Words words = lut16_of(*vorm.settings.lut, 280), swapped = lut16_of(*vorm.settings.lut, 280, false);
        for (const auto& [level, expected] : c.words) {
            EXPECT_EQ(words[level], expected) << level;
            EXPECT_EQ(swapped[level % 256 * 256 + level / 256], expected) << level << ", the other way round";
        }
    }
    EXPECT_EQ(lut16_of(curve(200, 200, 0), 100)[16384], 0) << "any other size: the table, which is all 0";
}

TEST(VormObject, AnyCurveIsSafe) {
    CVorm vorm;
    for (const int gamma : {1, 2, 100, INT_MAX}) {
        for (const int contrast : {INT_MIN, 0, INT_MAX}) {
            for (const int brightness : {INT_MIN, 0, INT_MAX}) {
                const _lut8_struct block = curve(gamma, contrast, brightness);
                lut16_of(block, 280);
                EXPECT_EQ(vorm.SetupLUT(reinterpret_cast<const unsigned char*>(&block), 280, 15), 0);
                EXPECT_EQ(vorm.SetGamma(gamma, 15), 0);
            }
        }
    }
    // The steepest curve: 65535 * (v / 65535) ^ 100, whose factors leave the range of a double.
    const Words steep = lut16_of(curve(1, 100, 0), 280);
    EXPECT_EQ(steep[50000], 0);
    EXPECT_NEAR(steep[65000], 65535 * std::exp(100 * std::log(65000 / 65535.0)), 1);
    EXPECT_GE(steep[65535], 65534);
}

TEST(VormObject, TableOfTheApplication) {
    CVorm vorm;
    std::vector<unsigned char> data(300);
    for (unsigned i = 0; i < 300; ++i)
        data[i] = static_cast<unsigned char>(255 - i);
    const std::int64_t low_bits_only[3] = {0x7'0000'0000 + 250, (std::int64_t{-1} << 32) + 50, -5};
    std::memcpy(&data[256], low_bits_only, sizeof low_bits_only);
    struct {
        unsigned size, channel;
        int result;
        std::size_t in_force;
    } const calls[] = {{1, 15, -22, 0},     {255, 15, -22, 0},   {256, 14, -78, 0},   {256, 15, 0, 256},
                       {257, 15, -22, 256}, {270, 15, -22, 256}, {279, 15, -22, 256}, {0, 15, 0, 0},
                       {300, 15, 0, 280},   {256, 15, 0, 256},   {280, 15, 0, 280},   {UINT_MAX, 15, 0, 280}};
    for (const auto& call : calls) {
        EXPECT_EQ(vorm.SetupLUT(data.data(), call.size, call.channel), call.result) << call.size;
        const auto table = table_of(vorm);
        ASSERT_EQ(table.size(), call.in_force) << call.size;
        EXPECT_TRUE(std::equal(table.begin(), table.end(), data.begin())) << call.size;
    }
    EXPECT_EQ(curve_of(vorm), (CurveValues{250, 50, -5}));
    unsigned char few[10] = {};
    unsigned size = 10;
    EXPECT_EQ(vorm.GetLUT(few, &size, 15), 0);
    EXPECT_EQ(size, 280u);
    EXPECT_EQ(few[9], 246);
    EXPECT_EQ(vorm.SetupLUT(nullptr, 256, 15), -22);
    EXPECT_EQ(vorm.GetLUT(nullptr, &size, 15), -22);
    EXPECT_EQ(vorm.GetLUT(few, nullptr, 15), -22);
    EXPECT_EQ(vorm.GetGamma(nullptr, 15) + vorm.GetContrast(nullptr, 15) + vorm.GetBrightness(nullptr, 15), -66);
    EXPECT_EQ(vorm.SetGamma(1, 0) + vorm.SetContrast(1, 14) + vorm.SetBrightness(1, 16), -3 * 78);

    vorm.SetupLUT(data.data(), 256, 15);
    unsigned char room[280] = {};
    size = 280;
    EXPECT_EQ(vorm.GetLUT(room, &size, 15), 0);
    EXPECT_TRUE(size == 256 && room[0] == 255 && std::count(room + 256, room + 280, 0) == 24);
    EXPECT_EQ(curve_of(vorm), (CurveValues{100, 100, 0})) << "a bare table has no curve";
    EXPECT_EQ(vorm.SetBrightness(10, 15), 0);
    EXPECT_EQ(curve_of(vorm), (CurveValues{100, 100, 10}));
    EXPECT_EQ(table_of(vorm)[200], 200);
}

TEST(VormObject, StretchedTable) {
    _lut8_struct block = curve(0, 0, 0);
    for (unsigned i = 0; i < 256; ++i)
        block.table[i] = static_cast<unsigned char>(i);
    const Words natural = lut16_of(block, 256), swapped = lut16_of(block, 256, false);
    for (unsigned v = 0; v < 65536; ++v) {
        ASSERT_EQ(natural[v], v);
        ASSERT_EQ(swapped[v % 256 * 256 + v / 256], v);
    }
    // How the last stretch goes on from levels 254 and 255: in line, held at 0 or 256 where the line leaves.
    struct {
        unsigned char before, last;
        int beyond;
    } const ends[] = {{10, 20, 30}, {20, 10, 0}, {9, 4, 0}, {7, 4, 1}, {100, 200, 256}, {0, 128, 256}, {200, 200, 200}};
    for (const auto& end : ends) {
        block.table[254] = end.before, block.table[255] = end.last;
        const Words out = lut16_of(block, 256);
        EXPECT_EQ(out[255 * 256], end.last * 256);
        EXPECT_EQ(out[255 * 256 + 128], (end.last + end.beyond) * 128) << int{end.before} << ' ' << int{end.last};
        EXPECT_EQ(out[254 * 256 + 64], end.before * 192 + end.last * 64);
    }
}

TEST(VormObject, TableFor16BitFramesIsBuiltWhereThereIsOneFor8) {
    CVorm vorm;
    vorm.SetContrast(200, 15);
    _vorm_settings settings = vorm.settings;
    for (const bool natural : {true, false}) {
        EXPECT_EQ(vorm.BuildLut16WhenNotRunning(&settings, natural), 1);
        ASSERT_NE(settings.lut16, nullptr);
        const Words expected = lut16_of(curve(100, 200, 0), 280, natural);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), settings.lut16));
    }
    settings.lut_size = 0;
    EXPECT_EQ(vorm.BuildLut16WhenNotRunning(&settings, 0), 1);
    EXPECT_EQ(settings.lut16, nullptr);
    settings.lut = nullptr;
    EXPECT_EQ(vorm.BuildLut16WhenNotRunning(&settings, 1), 1);
    EXPECT_EQ(settings.lut16, nullptr);
}

}  // namespace
