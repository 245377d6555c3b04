// SPDX-License-Identifier: Apache-2.0
// Settings and look-up tables of the conversion object.
#include <gtest/gtest.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
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

TEST(VormObject, StartsNeutral) {
    CVorm vorm;
    EXPECT_EQ(curve_of(vorm), (CurveValues{100, 100, 0}));
    int x = 9, y = 9;
    EXPECT_EQ(vorm.GetFlipping(&x, &y), 0);
    EXPECT_EQ(x | y, 0);
    double u, v, hue, gain;
    vorm.GetSaturation(&u, &v), vorm.GetHue(&hue), vorm.GetGain(&gain);
    EXPECT_TRUE(u == 1.0 && v == 1.0 && hue == 0.0 && gain == 1.0);
    vorm.GetWhiteBalance(&u, &v);
    EXPECT_TRUE(u == 0.0 && v == 0.0);
    unsigned method = 9, selector = 9, size = 0;
    vorm.DemosaicMethodGet(&method), vorm.CorrectionMatrixGet(&selector);
    EXPECT_TRUE(method == 1 && selector == 1);
    short custom[12], current[12];
    vorm.GetCustomMatrix(custom), vorm.CorrectionMatrixSet(0), vorm.GetCurrentMatrix(current);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(custom[i] << 16 | current[i], i % 5 == 0 ? 4096 << 16 | 4096 : 0) << i;
    EXPECT_EQ(vorm.GetLUT(nullptr, &size, 15), 84);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(vorm.settings.matrix) % 16, 0u);
}

TEST(VormObject, SettersKeepWhatTheyAccept) {
    CVorm vorm;
    EXPECT_EQ(vorm.SetFlipping(1, 7) | vorm.SetSaturation(0.5, 2.5) | vorm.SetHue(-30) | vorm.SetGain(3) |
                  vorm.SetWhiteBalance(0.25, -0.75),
              0);
    int x, y;
    double u, v, hue, gain;
    vorm.GetFlipping(&x, &y), vorm.GetSaturation(&u, &v), vorm.GetHue(&hue), vorm.GetGain(&gain);
    EXPECT_TRUE(x == 1 && y == 7 && u == 0.5 && v == 2.5 && hue == -30 && gain == 3);
    vorm.GetWhiteBalance(&u, nullptr), vorm.GetWhiteBalance(nullptr, &v);
    EXPECT_TRUE(u == 0.25 && v == -0.75);
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

TEST(VormObject, CurveMakesTheTable) {
    CVorm vorm;
    EXPECT_EQ(vorm.SetGamma(100, 15), 0);
    auto table = table_of(vorm);
    ASSERT_EQ(table.size(), 280u);
    for (unsigned i = 0; i < 256; ++i)
        EXPECT_EQ(table[i], i);
    EXPECT_EQ(vorm.SetContrast(200, 15), 0);
    table = table_of(vorm);
    EXPECT_EQ((std::vector<int>{table[0], table[64], table[100], table[128], table[200]}),
              (std::vector<int>{0, 0, 72, 128, 255}));
    // 10000 adds 256 levels; -39 takes off 0.9984, and what is left of the centre is cut towards it.
    vorm.SetContrast(100, 15), vorm.SetBrightness(10000, 15);
    table = table_of(vorm);
    EXPECT_TRUE(std::all_of(table.begin(), table.begin() + 256, [](int level) { return level == 255; }));
    vorm.SetBrightness(-39, 15);
    table = table_of(vorm);
    EXPECT_EQ((std::vector<int>{table[0], table[1], table[127], table[128], table[129], table[255]}),
              (std::vector<int>{0, 1, 127, 128, 128, 254}));
    // Gamma 2 is a square root: 255 * sqrt(64 / 255) = 127.7, 255 * sqrt(1 / 255) = 15.97.
    vorm.SetBrightness(0, 15), vorm.SetGamma(200, 15);
    table = table_of(vorm);
    EXPECT_EQ((std::vector<int>{table[0], table[1], table[64]}), (std::vector<int>{0, 15, 127}));
    EXPECT_EQ(curve_of(vorm), (CurveValues{200, 100, 0}));
}

TEST(VormObject, AnyCurveIsSafe) {
    CVorm vorm;
    for (const int gamma : {INT_MIN, -1, 0}) {
        vorm.SetGamma(gamma, 15);
        EXPECT_EQ(table_of(vorm)[77], 77) << "as gamma 1";
        EXPECT_EQ(lut16_of(*vorm.settings.lut, 280)[777], 777);
        EXPECT_EQ(curve_of(vorm).gamma, gamma);
    }
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

TEST(VormObject, SixteenBitCurve) {
    const Words doubled = lut16_of(curve(100, 200, 0), 280), swapped = lut16_of(curve(100, 200, 0), 280, false);
    EXPECT_EQ((Words{doubled[16384], doubled[30000], doubled[32768], doubled[40000], doubled[50000]}),
              (Words{0, 27232, 32768, 47232, 65535}));
    EXPECT_EQ(swapped[0x3075], doubled[0x7530]);
    EXPECT_EQ(lut16_of(curve(100, 100, 39), 280)[1000], 1256) << "255.6 levels more, cut towards the centre";
    EXPECT_EQ(lut16_of(curve(200, 100, 0), 280)[16384], 32767) << "65535 * sqrt(0.250004) = 32767.7";
    EXPECT_EQ(lut16_of(curve(200, 200, 0), 100)[16384], 0) << "any other size: the table, which is all 0";

    CVorm vorm;
    _vorm_settings settings = vorm.settings;
    EXPECT_EQ(vorm.BuildLut16WhenNotRunning(&settings, 1), 1);
    EXPECT_EQ(settings.lut16, nullptr);
    vorm.SetContrast(200, 15);
    settings = vorm.settings;
    EXPECT_EQ(vorm.BuildLut16WhenNotRunning(&settings, 1), 1);
    ASSERT_NE(settings.lut16, nullptr);
    EXPECT_TRUE(std::equal(doubled.begin(), doubled.end(), settings.lut16));
    EXPECT_EQ(vorm.BuildLut16WhenNotRunning(&settings, 0), 1);
    EXPECT_TRUE(std::equal(swapped.begin(), swapped.end(), settings.lut16));
    settings.lut_size = 0;
    EXPECT_EQ(vorm.BuildLut16WhenNotRunning(&settings, 0), 1);
    EXPECT_EQ(settings.lut16, nullptr);
}

}  // namespace
