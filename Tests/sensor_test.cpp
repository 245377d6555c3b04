// SPDX-License-Identifier: Apache-2.0
#include "sensor.h"

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <utility>

#include "scene.h"

namespace tovix::simulator {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ScenePointer = std::shared_ptr<const Scene>;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// A file that goes with it.
struct TemporaryFile {
    std::string path = testing::TempDir() + "sensor_test_" + std::to_string(getpid());
    ~TemporaryFile() { std::remove(path.c_str()); }
    void write(const Bytes& bytes) const {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    }
};

template <class Sample>
ScenePointer picture(unsigned width, unsigned height, unsigned format, const std::vector<Sample>& samples) {
    const TemporaryFile file;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width, image.height = height, image.format = format;
    EXPECT_TRUE(png_image_write_to_file(&image, file.path.c_str(), 0, samples.data(), 0, nullptr));
    std::string error;
    ScenePointer scene = load_picture(file.path, error);
    EXPECT_TRUE(scene) << error;
    return scene;
}

ScenePointer plain(double red, double green, double blue) {
    const auto sample = [](double value) { return static_cast<std::uint16_t>(value * 65535 + 0.5); };
    const std::vector<std::uint16_t> pixel{sample(red), sample(green), sample(blue)};
    return picture(1, 1, PNG_FORMAT_LINEAR_RGB, pixel);
}

SensorSettings whole(std::uint32_t width, std::uint32_t height, std::uint32_t color_id = 0) {
    SensorSettings settings;
    settings.sensor_width = settings.width = width;
    settings.sensor_height = settings.height = height;
    settings.color_id = color_id;
    return settings;
}

Bytes render(const ScenePointer& scene, const SensorSettings& settings, std::uint64_t number = 0) {
    Bytes frame{1, 2, 3};
    Sensor(scene).render(settings, number, frame);
    return frame;
}

struct ColourFilter {
    std::uint32_t color_id;
    const char* cell;  // left to right, then down; r and b are the greens of red and of blue rows
};
constexpr ColourFilter kFilters[] = {{8, "RrbB"}, {9, "rRBb"}, {10, "bBRr"}, {11, "BbrR"}};

TEST(Picture, FileBecomesLinearLight) {
    const auto first = [](const ScenePointer& scene) { return scene->project(1, 1).samples; };
    const auto codes = first(picture<std::uint8_t>(1, 1, PNG_FORMAT_RGB, {188, 0, 255}));
    EXPECT_NEAR(codes[0], 0.503, 0.002);
    EXPECT_FLOAT_EQ(codes[1], 0);
    EXPECT_FLOAT_EQ(codes[2], 1);
    EXPECT_NEAR(first(picture<std::uint8_t>(1, 1, PNG_FORMAT_GRAY, {99}))[2], 0.125, 0.002);
    EXPECT_NEAR(first(picture<std::uint16_t>(1, 1, PNG_FORMAT_LINEAR_RGB, {13107, 0, 0}))[0], 0.2, 1e-4);
}

TEST(Picture, FillsTheSensorWithAreaMeans) {
    const struct {
        unsigned width, height;
        Bytes codes;
        unsigned columns, rows;
        std::vector<float> light;
    } cases[] = {
        {4, 2, {0, 255, 0, 255, 255, 0, 255, 0}, 2, 1, {0.5f, 0.5f}},  // codes would average to 0.21
        {3, 1, {255, 0, 0}, 1, 1, {0}},                                // the sides hang over
        {1, 3, {0, 255, 0}, 1, 1, {1}},
        {3, 3, {255, 0, 0, 255, 0, 0, 255, 0, 0}, 2, 2, {2 / 3.f, 0, 2 / 3.f, 0}},
        {2, 1, {255, 0}, 4, 2, {1, 1, 0, 0, 1, 1, 0, 0}},
    };
    for (const auto& c : cases) {
        const Irradiance image = picture(c.width, c.height, PNG_FORMAT_GRAY, c.codes)->project(c.columns, c.rows);
        for (std::size_t i = 0; i < c.light.size(); ++i)
            EXPECT_NEAR(image.samples[3 * i], c.light[i], 1e-5) << c.width << " x " << c.height << " at " << i;
    }
}

TEST(Picture, RefusesWhatItCannotUse) {
    const TemporaryFile file;
    const Bytes huge{0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x48,
                     0x44, 0x52, 0x00, 0x00, 0x23, 0x28, 0x00, 0x00, 0x23, 0x28, 0x08, 0x02, 0x00, 0x00,
                     0x00, 0xE2, 0xB7, 0xE5, 0xED, 0x00, 0x00, 0x00, 0x0A, 0x49, 0x44, 0x41, 0x54};
    Bytes cut = huge;
    cut[18] = cut[22] = 0;  // 40 x 40, but with a wrong check sum
    const auto expect_refused = [](const std::string& path, const std::string& reason) {
        std::string error;
        EXPECT_FALSE(load_picture(path, error));
        EXPECT_EQ(error.find("cannot use picture '" + path + "': "), 0u) << error;
        EXPECT_NE(error.find(reason), error.npos) << error;
    };
    expect_refused(file.path, "No such file");
    expect_refused(testing::TempDir(), "");
    for (const auto& [bytes, reason] :
         {std::pair{huge, "64 million"}, {cut, "CRC"}, {Bytes{'n', 'o'}, ""}, {Bytes{}, ""}}) {
        file.write(bytes);
        expect_refused(file.path, reason);
    }
}

TEST(Sensor, ReadsTheSitesAskedFor) {
    // Each pixel of the scene holds its own number, 16 y + x, and the settings below deliver just that.
    std::vector<std::uint16_t> numbers;
    for (unsigned i = 0; i < 16 * 12; ++i)
        numbers.insert(numbers.end(), 3, std::uint16_t(i * 257));
    const ScenePointer scene = picture(16, 12, PNG_FORMAT_LINEAR_RGB, numbers);
    using Places = std::vector<unsigned>;
    const struct {
        const char* name;
        std::uint32_t color_id, x_offset, y_offset, width, height, subsample_x, subsample_y;
        Places columns, rows;
    } cases[] = {
        {"area", 0, 3, 1, 4, 3, 1, 1, {3, 4, 5, 6}, {1, 2, 3}},
        {"every n-th pixel", 0, 1, 1, 10, 5, 3, 2, {1, 4, 7}, {1, 3}},
        {"over the edge", 0, 14, 11, 5, 3, 1, 1, {14, 15, 15, 15, 15}, {11, 11, 11}},
        {"outside", 0, 4'000'000'000, 70'000, 2, 1, 1, 1, {15, 15}, {11}},
        {"no subsampling", 0, 2, 2, 2, 1, 0, 0, {2, 3}, {2}},
        {"odd offset", 9, 3, 5, 4, 2, 1, 1, {2, 3, 4, 5}, {4, 5}},
        {"every second cell", 8, 2, 0, 12, 8, 2, 2, {2, 3, 6, 7, 10, 11}, {0, 1, 4, 5}},
        {"every third cell", 10, 0, 0, 10, 6, 3, 1, {0, 1, 6}, {0, 1, 2, 3, 4, 5}},
    };
    for (const auto& c : cases) {
        SensorSettings settings = whole(16, 12, c.color_id);
        settings.x_offset = c.x_offset, settings.y_offset = c.y_offset;
        settings.width = c.width, settings.height = c.height;
        settings.subsample_x = c.subsample_x, settings.subsample_y = c.subsample_y;
        settings.exposure_us = 10'000 * 255.0 / 242;
        settings.temperature = -200;
        Bytes expected;
        for (const unsigned y : c.rows)
            for (const unsigned x : c.columns)
                expected.push_back(std::uint8_t(16 * y + x));
        EXPECT_EQ(render(scene, settings), expected) << c.name;
    }
}

TEST(Sensor, ColoursAndGainsActWhereTheFilterHasThem) {
    // Levels on a site: 1 + 242 times its share of the light, times the gain of its place.
    const ScenePointer grey = plain(0.25, 0.25, 0.25);
    const struct {
        const char* what;
        ScenePointer scene;
        double SensorSettings::*gain;  // that is 2
        std::map<char, int> on;        // R, B and the greens of their rows
        int on_monochrome;
    } cases[] = {
        {"red", plain(1, 0, 0), nullptr, {{'R', 199}, {'r', 25}, {'b', 25}, {'B', 8}}, 74},
        {"green", plain(0, 1, 0), nullptr, {{'R', 35}, {'r', 190}, {'b', 190}, {'B', 42}}, 98},
        {"blue", plain(0, 0, 1), nullptr, {{'R', 11}, {'r', 30}, {'b', 30}, {'B', 195}}, 74},
        {"red gain", grey, &SensorSettings::gain_red, {{'R', 122}, {'r', 62}, {'b', 62}, {'B', 62}}, 62},
        {"gain of green 1", grey, &SensorSettings::gain_green_red, {{'R', 62}, {'r', 122}, {'b', 62}, {'B', 62}}, 62},
        {"gain of green 2", grey, &SensorSettings::gain_green_blue, {{'R', 62}, {'r', 62}, {'b', 122}, {'B', 62}}, 62},
        {"blue gain", grey, &SensorSettings::gain_blue, {{'R', 62}, {'r', 62}, {'b', 62}, {'B', 122}}, 62},
    };
    for (const auto& c : cases) {
        SensorSettings settings = whole(64, 64);
        if (c.gain != nullptr) settings.*c.gain = 2;
        settings.x_offset = 7, settings.y_offset = 5;
        settings.width = 12, settings.height = 12;
        settings.subsample_x = settings.subsample_y = 3;
        EXPECT_EQ(render(c.scene, settings), Bytes(16, std::uint8_t(c.on_monochrome))) << c.what;
        for (const ColourFilter& filter : kFilters) {
            settings.color_id = filter.color_id;
            Bytes expected;
            for (std::size_t i = 0; i < 16; ++i)
                expected.push_back(std::uint8_t(c.on.at(filter.cell[i / 4 % 2 * 2 + i % 2])));
            EXPECT_EQ(render(c.scene, settings), expected) << c.what << ", filter " << filter.color_id;
        }
    }
    SensorSettings blue_light = whole(1, 1);
    blue_light.light = {0, 0, 1};
    EXPECT_EQ(render(plain(1, 1, 1), blue_light), Bytes{74});
}

TEST(Sensor, LevelFollowsExposureGainAndTemperature) {
    const struct {
        double exposure_us, gain, temperature;
        int level;
        int word;  // 257 times the level with its fraction
    } cases[] = {
        {10'000, 1, 25, 243, 62451}, {5'000, 1, 25, 122, 31354},  {500, 4, 25, 49, 12696},
        {1'000, 1, 25, 25, 6476},    {10'600, 1, 25, 255, 65535}, {1e300, 1, 25, 255, 65535},
        {0, 1, 25, 1, 257},          {5'000, 0, 33, 2, 514},      {0, 1, 1000, 32, 8224},
        {-5'000, 1, 25, 1, 257},     {5'000, kNan, 25, 1, 257},   {kInfinity, kInfinity, 25, 255, 65535},
        {0, 1, kNan, 1, 257},
    };
    const ScenePointer scene = plain(1, 1, 1);
    for (const auto& c : cases) {
        SensorSettings settings = whole(1, 1);
        settings.exposure_us = c.exposure_us, settings.gain = c.gain, settings.temperature = c.temperature;
        EXPECT_EQ(render(scene, settings), Bytes{std::uint8_t(c.level)}) << c.exposure_us << " us";
        for (int level = 0; level < 256; ++level)
            settings.tone_curve[std::size_t(level)] = std::uint8_t(255 - level);
        EXPECT_EQ(render(scene, settings), Bytes{std::uint8_t(255 - c.level)}) << "the curve comes last";
        settings.tone_curve = straight_tone_curve();
        settings.bytes_per_sample = 2;
        const Bytes word = render(scene, settings);
        ASSERT_EQ(word.size(), 2u);
        EXPECT_NEAR(word[0] * 256 + word[1], c.word, 1) << c.exposure_us << " us";
    }
}

TEST(Sensor, NoiseHasTheSpreadItShould) {
    SensorSettings settings = whole(200, 200);
    settings.bytes_per_sample = 2;
    settings.noise = 2;
    for (const double gain : {1.0, 4.0})
        for (const double light : {0.05, 0.15}) {
            settings.gain = gain;
            const double level = 242 * light * gain, variance = 4 * (gain * gain + gain * level / 32);
            settings.temperature = 1000;  // a dark level of 32 keeps the noise off the lower end
            const Bytes frame = render(plain(light, light, light), settings, 3);
            double sum = 0, squares = 0, neighbours = 0, last = 0;
            for (std::size_t i = 0; i < frame.size(); i += 2) {
                const double off = (frame[i] * 256 + frame[i + 1]) / 257.0 - level - 32;
                sum += off, squares += off * off, neighbours += off * std::exchange(last, off);
            }
            EXPECT_NEAR(sum / 40'000, 0, 0.02 * std::sqrt(variance)) << gain << ", " << light;
            EXPECT_NEAR(squares / 40'000, variance, 0.03 * variance) << gain << ", " << light;
            EXPECT_NEAR(neighbours / 40'000, 0, 0.02 * variance) << gain << ", " << light;
        }
    EXPECT_EQ(render(test_chart(), settings, 5), render(test_chart(), settings, 5));
    EXPECT_NE(render(test_chart(), settings, 5), render(test_chart(), settings, 6));
    settings.noise = 0;
    EXPECT_EQ(render(test_chart(), settings, 5), render(test_chart(), settings, 6));
}

TEST(Sensor, BlurSpreadsAPointAsAGaussian) {
    std::vector<std::uint16_t> dot(3 * 41 * 41);
    std::fill_n(dot.begin() + 3 * (20 * 41 + 20), 3, std::uint16_t{65535});
    const ScenePointer scene = picture(41, 41, PNG_FORMAT_LINEAR_RGB, dot);
    SensorSettings settings = whole(41, 41);
    settings.bytes_per_sample = 2;
    settings.temperature = -200;
    for (const double blur : {0.0, 0.7, 2.0, 4.0}) {
        settings.blur = blur;
        const Bytes frame = render(scene, settings);
        double sum = 0, centre = 0, across = 0, down = 0;
        for (int i = 0; i < 41 * 41; ++i) {
            const double light = (frame[std::size_t(2 * i)] * 256 + frame[std::size_t(2 * i + 1)]) / (257 * 242.0);
            const double dx = i % 41 - 20, dy = i / 41 - 20;
            sum += light, centre += light * (dx + 100 * dy), across += light * dx * dx, down += light * dy * dy;
        }
        EXPECT_NEAR(sum, 1, 0.01) << blur;
        EXPECT_NEAR(centre, 0, 0.01) << blur;
        EXPECT_NEAR(across, blur * blur, 0.05 * blur * blur) << blur;
        EXPECT_NEAR(down, blur * blur, 0.05 * blur * blur) << blur;
    }
}

struct Change {
    const char* name;
    std::function<void(SensorSettings&)> apply;
};

TEST(Sensor, PreparedFramesNeverOutliveTheirSettings) {
    const Change changes[] = {
        {"sensor", [](auto& s) { s.sensor_width = 50; }},
        {"x offset", [](auto& s) { s.x_offset = 8; }},
        {"width", [](auto& s) { s.width = 38; }},
        {"columns", [](auto& s) { s.subsample_x = 2; }},
        {"filter", [](auto& s) { s.color_id = 11; }},
        {"depth", [](auto& s) { s.bytes_per_sample = 2; }},
        {"exposure", [](auto& s) { s.exposure_us = 4000; }},
        {"gain", [](auto& s) { s.gain = 1.5; }},
        {"light", [](auto& s) { s.light[1] = 0.5; }},
        {"blur", [](auto& s) { s.blur = 1.5; }},
        {"noise", [](auto& s) { s.noise = 1; }},
        {"temperature", [](auto& s) { s.temperature = 60; }},
        {"curve", [](auto& s) { s.tone_curve[1] = 9; }},
    };
    const SensorSettings usual = whole(64, 48, 8);
    const Bytes usual_frame = render(test_chart(), usual);
    Sensor sensor(test_chart());
    Bytes frame;
    for (const Change& change : changes) {
        SensorSettings changed = usual;
        change.apply(changed);
        const Bytes expected = render(test_chart(), changed, 1);
        EXPECT_NE(expected, usual_frame) << change.name;
        sensor.render(changed, 1, frame);
        EXPECT_EQ(frame, expected) << change.name;
        sensor.render(usual, 1, frame);
        EXPECT_EQ(frame, usual_frame) << "after " << change.name;
    }
}

TEST(Sensor, BearsAnySettings) {
    constexpr std::uint32_t kMost = 0xFFFFFFFF;
    const struct {
        Change change;
        std::size_t bytes;
    } cases[] = {
        {{"no size", [](auto& s) { s.width = s.height = 0; }}, 0},
        {{"no sensor", [](auto& s) { s.sensor_width = 0; }}, 0},
        {{"subsampled away", [](auto& s) { s.subsample_y = 49; }}, 0},
        {{"product wraps to 0", [](auto& s) { s.width = s.height = 0x10000; }}, 0},
        {{"above 256 MiB", [](auto& s) { s.width = 32768, s.height = 8193; }}, 0},
        {{"largest sensor", [](auto& s) { s.sensor_width = s.sensor_height = 65535; }}, 0},
        {{"one row", [](auto& s) { s.width = 65535, s.height = 1, s.blur = 1; }}, 65535},
        {{"largest offsets", [](auto& s) { s.x_offset = s.y_offset = kMost, s.color_id = 9; }}, 64 * 48},
        {{"every factor",
          [](auto& s) {
              s.exposure_us = s.gain = s.gain_red = s.light[0] = s.noise = s.temperature = kInfinity;
              s.color_id = 8, s.bytes_per_sample = 2;
          }},
         2 * 64 * 48},
        {{"no numbers", [](auto& s) { s.exposure_us = s.light[2] = s.noise = s.blur = kNan; }}, 64 * 48},
        {{"no focus", [](auto& s) { s.blur = 1e300; }}, 64 * 48},
        {{"hardly out of focus", [](auto& s) { s.blur = 1e-300; }}, 64 * 48},
        {{"odd depth", [](auto& s) { s.bytes_per_sample = 77; }}, 64 * 48},
    };
    for (const auto& c : cases) {
        SensorSettings settings = whole(64, 48);
        c.change.apply(settings);
        EXPECT_EQ(render(test_chart(), settings).size(), c.bytes) << c.change.name;
    }
}

TEST(Chart, IsWholeAndLitRightAtAnySize) {
    constexpr std::pair<unsigned, unsigned> kSizes[] = {{1, 1}, {1, 300}, {300, 1}, {3, 5}, {640, 480}, {500, 900}};
    for (const auto& [width, height] : kSizes) {
        const Irradiance chart = test_chart()->project(width, height);
        ASSERT_EQ(chart.samples.size(), 3u * width * height);
        const auto [least, most] = std::ranges::minmax(chart.samples);
        EXPECT_GE(least, 0.0f) << width << " x " << height;
        EXPECT_LE(most, 1.0f) << width << " x " << height;
    }
    const Irradiance chart = test_chart()->project(640, 480);
    for (const auto& [x, y, level] : {std::tuple{525, 180, 0.5f}, {213, 110, 0.3f}, {125, 400, 0.0f}, {515, 400, 1.0f}})
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(chart.row(std::size_t(y))[3 * std::size_t(x) + c], level, 1e-3) << x << ", " << y;
    const float* red_patch = chart.row(145) + 3 * 65;
    EXPECT_GT(red_patch[0], 5 * red_patch[1]);
}

}  // namespace
}  // namespace tovix::simulator
