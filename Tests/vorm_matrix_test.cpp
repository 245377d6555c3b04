// SPDX-License-Identifier: Apache-2.0
// Colour matrices: how they are built, what white balance makes of them, and their way over the pixels.
#include <gtest/gtest.h>
#include <tovixapi/matrix.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace {

using Weights = std::array<int, 12>;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

Weights matrix_of(CVorm& vorm) {
    short current[12];
    EXPECT_EQ(vorm.GetCurrentMatrix(current), 0);
    Weights weights;
    std::copy_n(current, 12, weights.begin());
    return weights;
}

void set_custom(CVorm& vorm, const Weights& weights) {
    short custom[12];
    for (unsigned i = 0; i < 12; ++i)
        custom[i] = static_cast<short>(weights[i]);
    EXPECT_EQ(vorm.CustomCorrectionMatrixSetup(custom), 0);
}

struct Settings {
    unsigned selector = 14;
    double gain = 1, saturation_u = 1, saturation_v = 1, hue = 0, white_balance_u = 0, white_balance_v = 0;
};
void apply(CVorm& vorm, const Settings& s) {
    vorm.CorrectionMatrixSet(s.selector), vorm.SetGain(s.gain), vorm.SetHue(s.hue);
    vorm.SetSaturation(s.saturation_u, s.saturation_v), vorm.SetWhiteBalance(s.white_balance_u, s.white_balance_v);
}

constexpr Weights kIdentity{4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096, 0};
constexpr Weights kDefault{5025, -413, -516, 0, -712, 5193, -385, 0, 208, -3571, 7458, 0};
constexpr Weights kGrey{1224, 2404, 466, 0, 1224, 2404, 466, 0, 1224, 2404, 466, 0};
constexpr Weights kBright{5320, 2404, 466, 0, 1224, 6500, 466, 0, 1224, 2404, 4562, 0};

TEST(VormMatrix, KnownValues) {
    const struct {
        const char* name;
        Settings settings;
        Weights expected;
    } cases[] = {
        {"identity", {}, kIdentity},
        {"the default matrix", {.selector = 1}, kDefault},
        {"the default matrix, last selector", {.selector = 13}, kDefault},
        {"no saturation", {.saturation_u = 0, .saturation_v = 0}, kGrey},
        {"gain 2", {.gain = 2}, kBright},
    };
    for (const auto& c : cases) {
        CVorm vorm;
        apply(vorm, c.settings);
        EXPECT_EQ(matrix_of(vorm), c.expected) << c.name;
        EXPECT_EQ(vorm.settings.matrix_stale, 0u);
        vorm.CorrectionMatrixSet(0);
        EXPECT_EQ(matrix_of(vorm), c.expected) << "selector 0 keeps the last";
    }
    EXPECT_EQ(CVorm().GetCurrentMatrix(nullptr), -22);
}

/// What the matrix does to one raw colour, channel by channel, from the meaning of the settings.
std::array<double, 3> converted(const Settings& s, std::array<double, 3> raw) {
    const auto [r, g, b] = raw;
    const double y = 0.299 * r + 0.587 * g + 0.114 * b;
    const double u = -0.169 * r - 0.331 * g + 0.5 * b, v = 0.5 * r - 0.419 * g - 0.081 * b;
    const double angle = s.hue / 180 * std::acos(-1.0), c = std::cos(angle), n = std::sin(angle);
    const double out_y = s.gain * y, out_u = s.saturation_u * (u * c - v * n + s.white_balance_u / 2 * y);
    const double out_v = s.saturation_v * (u * n + v * c + s.white_balance_v / 2 * y);
    // Back: solve for r, g and b by elimination of g, whose weight is the same combination in the first two.
    const double k1 = 0.331 / 0.587, k2 = 0.419 / 0.587;  // of Y, so that U and V lose their green
    const double p = out_u + k1 * out_y, q = out_v + k2 * out_y;
    const double a11 = -0.169 + k1 * 0.299, a12 = 0.5 + k1 * 0.114, a21 = 0.5 + k2 * 0.299, a22 = -0.081 + k2 * 0.114;
    const double determinant = a11 * a22 - a12 * a21;
    const double red = (p * a22 - a12 * q) / determinant, blue = (a11 * q - a21 * p) / determinant;
    return {red, (out_y - 0.299 * red - 0.114 * blue) / 0.587, blue};
}

TEST(VormMatrix, AgreesWithTheMeaningOfTheSettings) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> any(-1.5, 1.5);
    for (int round = 0; round < 200; ++round) {
        const Settings s{15, 1 + any(random), any(random), any(random), 180 * any(random), any(random), any(random)};
        Weights custom;
        for (int& weight : custom)
            weight = static_cast<int>(any(random) * 4096);
        CVorm vorm;
        apply(vorm, s);
        set_custom(vorm, custom);
        const Weights built = matrix_of(vorm);
        for (unsigned column = 0; column < 4; ++column) {
            const auto weight =
                converted(s, {custom[column] / 4096.0, custom[column + 4] / 4096.0, custom[column + 8] / 4096.0});
            for (unsigned row = 0; row < 3; ++row) {
                const double expected = std::clamp(weight[row] * 4096, -32768.0, 32763.9);
                EXPECT_NEAR(built[row * 4 + column], expected, 1.01) << "round " << round;
                EXPECT_LE(std::abs(built[row * 4 + column]), std::abs(expected) + 0.01) << "not cut towards zero";
            }
        }
    }
}

TEST(VormMatrix, CustomMatrixAsItStands) {
    CVorm vorm;
    apply(vorm, {.selector = 16, .gain = 3, .hue = 40});
    set_custom(vorm, {4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096, 4096});
    EXPECT_EQ(matrix_of(vorm)[11], 4096);
    const Weights extremes{32767, -32768, 32763, 32764, 1, -1, 2, -2, 0, 32760, -32767, 7};
    set_custom(vorm, extremes);
    EXPECT_EQ(matrix_of(vorm), (Weights{32763, -32768, 32763, 32763, 1, -1, 2, -2, 0, 32760, -32767, 7}));
    apply(vorm, {.selector = 14, .gain = 100});
    EXPECT_EQ(matrix_of(vorm)[0], 32763);
    apply(vorm, {.selector = 14, .gain = -100});
    EXPECT_EQ(matrix_of(vorm)[0], -32768);
    set_custom(vorm, kIdentity);
    EXPECT_EQ(matrix_of(vorm)[0], -32768) << "not in use";
    EXPECT_EQ(vorm.CustomCorrectionMatrixSetup(nullptr), -22);
}

TEST(VormMatrix, ModelMatrices) {
    CVorm vorm;
    short c[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9}, other[9] = {0, 0, 4096, 0, 4096, 0, 4096, 0, 0};
    EXPECT_EQ(vorm.SpecifyMatrix(0, c), -22);
    EXPECT_EQ(vorm.SpecifyMatrix(16, c), -22);
    EXPECT_EQ(vorm.SpecifyMatrix(0xFFFFFFFF, c), -22);
    EXPECT_EQ(vorm.SpecifyMatrix(1, nullptr), -22);
    for (unsigned id = 1; id < 16; ++id)
        EXPECT_EQ(vorm.SpecifyMatrix(id, c), 0);
    const short stored[12] = {9, 8, 7, 0, 6, 5, 4, 0, 3, 2, 1, 0};
    EXPECT_TRUE(std::equal(stored, stored + 12, vorm.model_matrices[15]));
    EXPECT_EQ(vorm.model_matrices[0], nullptr);

    vorm.CorrectionMatrixSet(2), matrix_of(vorm);
    EXPECT_EQ(vorm.SpecifyMatrix(2, other), 0);
    EXPECT_EQ(vorm.settings.matrix_stale, 1u);
    const Weights swapped{0, 0, 4096, 0, 0, 4096, 0, 0, 4096, 0, 0, 0};  // of red and blue
    for (unsigned i = 0; i < 12; ++i)
        EXPECT_NEAR(matrix_of(vorm)[i], swapped[i], 1) << i;
    for (const unsigned selector : {14u, 15u}) {  // never look at the model's
        vorm.CorrectionMatrixSet(selector);
        EXPECT_EQ(matrix_of(vorm), kIdentity);
    }
}

TEST(VormMatrix, HostileSettingsAreSafe) {
    CVorm vorm;
    for (const double bad : {kNan, kInfinity, -kInfinity, 1e308}) {
        apply(vorm, {1, bad, bad, bad, bad, bad, bad});
        matrix_of(vorm);
        EXPECT_EQ(vorm.AdjustWhiteBalanceForRGBvalues(1, 1, 1), -22) << "no hue, no chroma";
    }
    EXPECT_EQ(matrix_of(vorm).size(), 12u);
    apply(vorm, {.selector = 14, .hue = kNan});
    EXPECT_EQ(matrix_of(vorm), Weights{});
    _vorm_settings settings = CVorm().settings;
    settings.matrix = settings.matrix_storage;
    for (const unsigned selector : {17u, 0xFFFFFFFFu}) {
        settings.correction_matrix = selector;
        EXPECT_EQ(vorm.BuildMatrix(&settings), 1);
        EXPECT_EQ(settings.matrix[0], kDefault[0]);
    }
}

TEST(VormMatrix, WeightsBecomeNumbers) {
    CMatrix matrix;
    short weights[12] = {4096, 0, 0, 0, 0, 4096, 0, -1024, 0, 0, 4096, 0};
    ConvertMatrixShortToDouble3x4(&matrix, weights);
    EXPECT_EQ((std::array{matrix[0][0], matrix[1][3], matrix[2][3]}), (std::array{1.0, -0.25, 0.0}));
}

TEST(VormWhiteBalance, GainsOfTheChannels) {
    CVorm vorm;
    double r, g, b, u = 9, v = 9, y = 9;
    vorm.GetDigitalColorGains(&r, &g, &b);
    EXPECT_TRUE(std::abs(r - 1) < 1e-15 && std::abs(g - 1) < 1e-15 && std::abs(b - 1) < 1e-15);
    vorm.SetSaturation(0.5, 2);
    EXPECT_EQ(vorm.SetDigitalColorGains(1.5, 0.75, 2), 0);
    vorm.GetWhiteBalance(&u, &v), vorm.GetGain(&y);
    EXPECT_NEAR(y, 1.11675, 1e-12);            // 0.4485 + 0.44025 + 0.228
    EXPECT_NEAR(u, 2 * 0.49825 / 0.5, 1e-12);  // -0.2535 - 0.24825 + 1
    EXPECT_NEAR(v, 2 * 0.27375 / 2, 1e-12);    // 0.75 - 0.31425 - 0.162
    vorm.GetDigitalColorGains(nullptr, nullptr, nullptr);
    vorm.SetSaturation(1, 1), vorm.SetDigitalColorGains(1, 1, 1);
    vorm.GetWhiteBalance(&u, &v), vorm.GetGain(&y);
    EXPECT_NEAR(std::abs(u) + std::abs(v) + y, 1, 1e-12);
    EXPECT_EQ(vorm.settings.matrix_stale, 0u);

    // S stands after the offsets: with gain 2 and saturations 1 and 1, YUV is (2, 0.1, -0.2).
    vorm.SetGain(2), vorm.SetWhiteBalance(0.2, -0.4);
    vorm.GetDigitalColorGains(&r, &g, &b);
    EXPECT_NEAR(0.299 * r + 0.587 * g + 0.114 * b, 2, 1e-12);
    EXPECT_NEAR(-0.169 * r - 0.331 * g + 0.5 * b, 0.1, 1e-12);
    EXPECT_NEAR(0.5 * r - 0.419 * g - 0.081 * b, -0.2, 1e-12);

    for (const auto& [sat_u, sat_v] : {std::pair{0.05, 1.0}, {1.0, 0.05}, {-1.0, 1.0}, {kNan, 1.0}}) {
        u = 9;
        EXPECT_EQ(vorm.ConvertDigitalGainsColorToWBGainY(sat_u, sat_v, 1, 1, 1, &u, &v, &y), 0);
        EXPECT_EQ(u, 9);
        vorm.SetSaturation(sat_u, sat_v);
        EXPECT_EQ(vorm.SetDigitalColorGains(3, 3, 3), -14);
    }
    vorm.GetWhiteBalance(&u, &v), vorm.GetGain(&y);
    EXPECT_TRUE(u == 0.2 && v == -0.4 && y == 2) << "changed by a refused call";
}

TEST(VormWhiteBalance, MeasuredGreyBecomesNeutral) {
    CVorm vorm;
    double u, v, gain;
    for (const unsigned selector : {0u, 16u}) {
        vorm.CorrectionMatrixSet(selector);
        EXPECT_EQ(vorm.AdjustWhiteBalanceForRGBvalues(1, 1, 1), -22);
    }
    for (const unsigned selector : {1u, 14u, 15u}) {
        set_custom(vorm, {4000, 100, 50, 8000, -300, 4300, 10, 8000, 20, 90, 3900, 8000});
        apply(vorm, {.selector = selector, .gain = 1.5, .saturation_u = 0.8, .saturation_v = 1.2, .hue = 12});
        ASSERT_EQ(vorm.AdjustWhiteBalanceForRGBvalues(90, 120, 75), 0);
        const Weights m = matrix_of(vorm);
        double out[3];
        for (unsigned row = 0; row < 3; ++row)
            out[row] = (m[row * 4] * 90 + m[row * 4 + 1] * 120 + m[row * 4 + 2] * 75) / 4096.0;
        EXPECT_NEAR(out[0], out[1], 0.2) << selector;
        EXPECT_NEAR(out[2], out[1], 0.2) << selector;
    }
    apply(vorm, {});
    EXPECT_EQ(vorm.AdjustWhiteBalanceForRGBvalues(100, 100, 100), 0);
    vorm.GetWhiteBalance(&u, &v), vorm.GetGain(&gain);
    EXPECT_NEAR(std::abs(u) + std::abs(v) + gain, 1, 1e-9);

    // Of white, the strongest channel of the measure ends lowest: gain makes up for it, above 0.4 only.
    for (const auto& [before, least_after] : {std::pair{1.0, 1.0}, {0.2, 0.0}}) {
        apply(vorm, {.gain = before});
        EXPECT_EQ(vorm.AdjustWhiteBalanceForRGBvalues(100, 110, 90), 0);
        vorm.GetGain(&gain);
        vorm.GetWhiteBalance(&u, &v);
        const auto white = converted({14, before, 1, 1, 0, u, v}, {1, 1, 1});
        const double least = std::min({white[0], white[1], white[2]});
        EXPECT_LT(least, 1);
        EXPECT_NEAR(gain, least_after > 0 ? before / least : before, 1e-9);
    }
    apply(vorm, {.gain = 1.25});
    for (const auto& [r, g, b] :
         {std::array{0.0, 0.0, 0.0}, {-1.0, -1.0, -1.0}, {kNan, 1.0, 1.0}, {kInfinity, 1.0, 1.0}})
        EXPECT_EQ(vorm.AdjustWhiteBalanceForRGBvalues(r, g, b), -22);
    vorm.GetWhiteBalance(&u, &v), vorm.GetGain(&gain);
    EXPECT_TRUE(u == 0 && v == 0 && gain == 1.25);
}

/// Random pixels and weights, many of them extreme, against the rule in 64 bits. The last pixel is not asked for.
template <class Channel>
void compare(void (*routine)(short const*, Channel*, unsigned long), std::size_t channels) {
    constexpr int kTop = std::numeric_limits<Channel>::max();
    std::mt19937 random(2);
    const auto one_of = [&](std::initializer_list<int> choices) { return choices.begin()[random() % choices.size()]; };
    for (int round = 0; round < 300; ++round) {
        short m[12];
        for (short& weight : m)
            weight = static_cast<short>(one_of({-32768, 32763, 4096, 0, static_cast<int>(random() % 65536) - 32768}));
        std::vector<Channel> pixels(channels * 8);
        for (Channel& channel : pixels)
            channel = static_cast<Channel>(one_of({0, kTop, static_cast<int>(random() % 65536) & kTop}));
        std::vector<Channel> expected = pixels;
        for (std::size_t i = 0; i < channels * 7; ++i) {
            if (i % channels == 3) continue;  // byte 3 stays
            std::int64_t sum = 0;
            for (std::size_t k = 0; k < channels; ++k)
                sum += std::int64_t{m[i % channels * 4 + k]} * pixels[i - i % channels + k];
            expected[i] = static_cast<Channel>(std::clamp<std::int64_t>(sum / 4096, 0, kTop));
        }
        routine(m, pixels.data(), 7);
        ASSERT_EQ(pixels, expected) << round;
    }
}

TEST(MatrixPostProcess, AgreesWithPlainArithmeticAtTheExtremes) {
    compare(MatrixPostProcess4096, 3);
    compare(MatrixPostProcess4096to32, 4);
    compare(MatrixPostProcess16_4096, 3);
}

}  // namespace
