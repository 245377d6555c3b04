// SPDX-License-Identifier: Apache-2.0
// The automatic adjustment on the simulated camera, which looks at the neutral patch of its chart.
#include <gtest/gtest.h>
#include <tovixapi/vorm.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "auto.h"
#include "handle.h"
#include "scene.h"
#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;
using Light = std::array<double, 3>;
using Gains = std::array<int, 4>;
using Levels = std::array<double, 4>;  // red, green in red rows, green in blue rows, blue

constexpr int kSide = 64;      // of the measured rectangle
constexpr int kX = 8, kY = 4;  // its place in the frame
constexpr int kFrameWidth = 80, kFrameHeight = 72;
constexpr std::uint16_t kGainRed = 0x0500, kGainGreen1 = 0x0510, kGainGreen2 = 0x0520, kGainBlue = 0x0530;

/// An open camera that sees the neutral patch and little else.
class Subject {
  public:
    explicit Subject(std::string_view model, Light light = {1, 1, 1})
        : port(bus.attach(model, DeviceOptions::State::kReady, [&](DeviceOptions& o) { o.camera.light = light; })) {
        camera = std::make_unique<OpenCamera>();
        const double width = (*camera)->max_width, height = (*camera)->max_height;
        const double unit = std::min(width / 1.25, height), centre_x = width * 0.75 + 0.095 * unit;
        _tovix_frame_format format = format_of(kFrameWidth, kFrameHeight);
        format.x_offset = (static_cast<std::uint32_t>(centre_x) - kFrameWidth / 2) & ~1u;
        format.y_offset = static_cast<std::uint32_t>(height / 2 - 0.21 * unit) & ~1u;
        EXPECT_EQ(tovix_set_video_format(handle(), &format), 0);
    }

    _tovix* handle() const { return *camera; }

    /// The next frame, as the sensor takes it with the registers as they are.
    const std::uint8_t* look() {
        sensor.render(port.access()->registers().sensor_settings(), 0, frame);
        EXPECT_EQ(frame.size(), std::size_t{kFrameWidth * kFrameHeight});
        return frame.data();
    }

    /// Mean levels in the rectangle by place in the colour filter, found pixel by pixel.
    Levels levels() {
        look();
        Levels sums{};
        const bool red_row_first = (*camera)->color_id == 8 || (*camera)->color_id == 9;
        const bool red_column_first = (*camera)->color_id == 8 || (*camera)->color_id == 10;
        for (int y = kY; y < kY + kSide; ++y)
            for (int x = kX; x < kX + kSide; ++x) {
                const bool red_row = (y % 2 == 0) == red_row_first, red_column = (x % 2 == 0) == red_column_first;
                const int place = red_row ? (red_column ? 0 : 1) : (red_column ? 2 : 3);
                sums[std::size_t(place)] += frame[std::size_t(y * kFrameWidth + x)];
            }
        for (double& sum : sums)
            sum /= kSide * kSide / 4;
        return sums;
    }

    int value(std::uint32_t property) const {
        int now = 0;
        std::uint32_t flags = 0;
        EXPECT_EQ(tovix_property_get(*camera, property, &now, &flags), 0);
        return now;
    }
    void set(std::uint32_t property, int to) const { EXPECT_GE(tovix_property_set(*camera, property, to, 0), 0); }
    void plant(Place place, std::uint32_t address, std::uint32_t skip = 0, std::uint32_t times = Fault::kForEver) {
        port.access().plant({.place = place, .address = address, .skip = skip, .times = times});
    }

    SimulatedBus bus;
    Port& port;
    std::unique_ptr<OpenCamera> camera;
    tovix::simulator::Sensor sensor{tovix::simulator::test_chart()};
    std::vector<std::uint8_t> frame;
};

/// By how much the largest exceeds the smallest.
double spread(const auto& levels) {
    const auto [least, most] = std::minmax_element(levels.begin(), levels.end());
    return *most / *least - 1;
}

/// What `call` prints on the standard output.
std::string output_of(const auto& call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

void one_shot_makes_grey_neutral(Subject& subject) {
    subject.set(70, 20);
    EXPECT_GT(spread(subject.levels()), 0.2);
    EXPECT_EQ(tovix_oneshot_autowhitebalance(subject.handle(), subject.look(), kX, kY, kSide, kSide), 0);
    EXPECT_LT(spread(subject.levels()), 0.02);
    EXPECT_EQ(subject.value(69), 0);
    EXPECT_EQ(subject.value(70), 0);
}

void steps_make_grey_neutral(Subject& subject) {
    int steps = 0;
    while (tovix_whitebalance_step(subject.handle(), subject.look(), kX, kY, kSide, kSide) == 1)
        ASSERT_LT(++steps, 10);
    EXPECT_GT(steps, 0);
    const Levels raw = subject.levels();
    const std::array<double, 3> seen{raw[0] * subject.value(72), (raw[1] + raw[2]) / 2 * subject.value(73),
                                     raw[3] * subject.value(74)};
    EXPECT_LT(spread(seen), 0.03);
}

void conversion_makes_grey_neutral(Subject& subject) {
    subject.set(20, 13'000);
    subject.set(65, 1);
    subject.set(64, 1);
    const int gain = subject.value(41);
    EXPECT_EQ(tovix_digital_whitebalance(subject.handle(), subject.look(), kX, kY, kSide, kSide), 0);
    EXPECT_EQ(subject.value(41), gain) << "the camera is left alone";
    tovix_image_format format{};
    ASSERT_EQ(tovix_get_image_format(subject.handle(), &format), 0);
    std::vector<std::uint8_t> image(3 * kFrameWidth * kFrameHeight);
    ASSERT_EQ((*subject.camera)->vorm->ConvertToRgb(image.data(), subject.frame.data(), 24, &format, nullptr), 0);
    std::array<double, 3> sums{};
    for (std::size_t i = 0; i < image.size(); ++i)
        sums[i % 3] += image[i];
    EXPECT_LT(spread(sums), 0.03);
    sums[1] *= 1 + 2 / subject.levels()[1];  // green is measured half a quarter level too bright, which is two levels
    EXPECT_LT(spread(sums), 0.01);
    EXPECT_LT(sums[1] / (kFrameWidth * kFrameHeight), 250);
    subject.set(65, 0);
    EXPECT_EQ(tovix_digital_whitebalance(subject.handle(), subject.frame.data(), kX, kY, kSide, kSide), -22);
}

TEST(WhiteBalance, MakesGreyNeutral) {
    for (const auto make : {&one_shot_makes_grey_neutral, &steps_make_grey_neutral, &conversion_makes_grey_neutral}) {
        for (const char* const model : {"mira13c", "lyra08c", "mira20c", "lyra03c"}) {  // RGGB, GRBG, GBRG, BGGR
            for (const Light& light : {Light{1.0, 0.75, 0.45}, Light{0.5, 0.8, 1.0}, Light{0.6, 1.0, 0.55}}) {
                SCOPED_TRACE(testing::Message() << model << ", light " << light[0] << " " << light[2]);
                Subject subject(model, light);
                make(subject);
            }
        }
    }
    Subject nearly_without_blue("mira13c", {1.0, 0.9, 0.05});
    steps_make_grey_neutral(nearly_without_blue);
}

/// A frame whose cells are all alike, for a camera of RGGB.
std::vector<std::uint8_t> cells(int red, int green1, int green2, int blue) {
    std::vector<std::uint8_t> frame;
    for (int y = 0; y < kFrameHeight; ++y)
        for (int x = 0; x < kFrameWidth; ++x)
            frame.push_back(
                static_cast<std::uint8_t>(y % 2 == 0 ? (x % 2 == 0 ? red : green1) : (x % 2 == 0 ? green2 : blue)));
    return frame;
}

constexpr std::uint32_t kGains[] = {41, 43, 44, 42};  // in the order of Levels

void set_gains(const Subject& subject, const Gains& gains) {
    for (std::size_t i = 0; i < 4; ++i)
        subject.set(kGains[i], gains[i]);
}
Gains gains_of(const Subject& subject) {
    return {subject.value(41), subject.value(43), subject.value(44), subject.value(42)};
}

std::int32_t balance(const Subject& subject, const std::vector<std::uint8_t>& frame, float red_ratio = 1,
                     float blue_ratio = 1) {
    return tovix_oneshot_autowhitebalance_ex(subject.handle(), frame.data(), kX, kY, kSide, kSide, red_ratio,
                                             blue_ratio);
}

const std::string kName = "tovix_oneshot_autowhitebalance_ex: ";

/// What it prints of one measure. The averages are a quarter of each place's level.
std::string measure(const std::string& averages, const std::string& average) {
    return kName + "averages: " + averages + ", samples: 4096\n" + kName + "average: " + average + "\n";
}

TEST(WhiteBalance, OneShotByHand) {
    const auto thrice = [](const std::string& text) { return text + text + text; };
    const std::string reddish = thrice(measure("16.000000/32.000000/32.000000/24.000000", "26.000000"));
    const std::string grey = measure("32.000000/32.000000/32.000000/32.000000", "32.000000");
    const auto reddish_cells = cells(64, 128, 128, 96), grey_cells = cells(128, 128, 128, 128);
    const struct {
        const char* what;
        std::vector<std::uint8_t> frame;
        Gains before, after;                        // 4096 is 1.0, the minimum; 16384 is the maximum
        std::string measures, gains, middle, last;  // printed
        std::uint32_t unreadable = 0;               // register of a gain
        float red_ratio = 1, blue_ratio = 1;
    } cases[] = {
        {"raised to the minimum", reddish_cells, Gains{8192, 4096, 4096, 4096}, Gains{16384, 4096, 4096, 5461}, reddish,
         "3.250000/0.812500/0.812500/1.083333", "1.000000 and 4.000000/1.000000/1.000000/1.333333",
         "1.000000 and 4.000000/1.000000/1.000000/1.333333"},
        {"scaled to the maximum, raised to the minimum, cut off", reddish_cells, Gains{16384, 4096, 4096, 4096},
         Gains{16384, 4096, 4096, 5461}, reddish, "6.500000/0.812500/0.812500/1.083333",
         "1.000000 and 8.000000/1.000000/1.000000/1.333333", "1.000000 and 4.000000/1.000000/1.000000/1.333333"},
        {"ratios and the floor", grey_cells, Gains{4096, 4096, 4096, 4096}, Gains{16384, 16384, 16384, 4096},
         grey + measure("0.500000/32.000000/32.000000/2048.000000", "528.125000") +
             measure("4.125977/32.000000/32.000000/2048.000000", "528.125000"),
         "128.000000/16.503906/16.503906/0.257874", "", "1.000000 and 4.000000/4.000000/4.000000/1.000000", 0, 64,
         1 / 64.0f},
        {"without green gains", reddish_cells, Gains{4096, 5000, 5001, 4096}, Gains{8192, 5000, 5001, 5461}, reddish,
         "2.000000/1.000000/1.000000/1.333333", "1.333333 and 2.000000/1.000000/1.000000/1.333333",
         "1.333333 and 2.000000/1.000000/1.000000/1.333333", kGainGreen1},
        {"without green 2", grey_cells, Gains{4096, 8192, 5001, 4096}, Gains{4096, 8192, 5001, 4096}, thrice(grey),
         "1.000000/2.000000/2.000000/1.000000", "1.000000 and 1.000000/2.000000/2.000000/1.000000",
         "1.000000 and 1.000000/2.000000/2.000000/1.000000", kGainGreen2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Subject subject("mira13c");
        set_gains(subject, c.before);
        if (c.unreadable != 0) subject.plant(Place::kRegisterRead, c.unreadable);
        std::int32_t result = -1;
        const std::string output = output_of([&] { result = balance(subject, c.frame, c.red_ratio, c.blue_ratio); });
        EXPECT_EQ(result, 0);
        const std::string first = c.measures + kName + "gains: " + c.gains + "\n" + kName + "gains: " + c.middle;
        EXPECT_EQ(output.substr(0, first.size()), first);
        const std::string last = kName + "gains: " + c.last + "\n";
        EXPECT_EQ(output.substr(output.size() - last.size()), last);
        EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 9);
        subject.port.access().clear_faults();
        EXPECT_EQ(gains_of(subject), c.after);
    }
}

TEST(WhiteBalance, OneShotPrintsTheSensorsOrderFirst) {
    Subject subject("lyra08c");  // green and red, then blue and green
    const std::string output = output_of([&] { EXPECT_EQ(balance(subject, cells(64, 128, 120, 96)), 0); });
    const std::string expected = measure("16.000000/32.000000/30.000000/24.000000", "25.500000") + kName +
                                 "averages: 32.000000/16.000000/24.000000/30.000000, samples: 4096\n";
    EXPECT_EQ(output.substr(0, expected.size()), expected);
}

TEST(WhiteBalance, OneShotFailsAsItShould) {
    Subject subject("mira13c");
    const std::vector<std::uint8_t> reddish = cells(64, 128, 128, 96);
    const Gains before{8192, 4097, 4098, 4099};
    set_gains(subject, before);
    const struct {
        const char* what;
        std::uint32_t unreadable, skip;
    } reads[] = {{"red", kGainRed, 0}, {"blue", kGainBlue, 0}, {"green, after its range", kGainGreen1, 1}};
    for (const auto& c : reads) {
        subject.plant(Place::kRegisterRead, c.unreadable, c.skip);
        EXPECT_EQ(balance(subject, reddish), TOVIX_EADJUST) << c.what;
        subject.port.access().clear_faults();
    }
    std::int32_t result = 0;
    const std::string output = output_of([&] { result = balance(subject, cells(16, 16, 16, 16)); });
    EXPECT_EQ(result, TOVIX_ELIGHT);
    EXPECT_EQ(output, measure("4.000000/4.000000/4.000000/4.000000", "4.000000"));
    using Rectangle = std::array<int, 4>;
    for (const auto& [x, y, width, height] :
         {Rectangle{1, 0, 8, 8}, Rectangle{0, 1, 8, 8}, Rectangle{0, 0, 7, 8}, Rectangle{0, 0, 8, 7},
          Rectangle{0, 0, 0, 8}, Rectangle{74, 0, 8, 8}, Rectangle{0, 66, 8, 8}, Rectangle{-2, 0, 8, 8}}) {
        EXPECT_EQ(tovix_oneshot_autowhitebalance(subject.handle(), reddish.data(), x, y, width, height), TOVIX_EINVAL);
        EXPECT_EQ(tovix_digital_whitebalance(subject.handle(), reddish.data(), x, y, width, height), TOVIX_EINVAL);
    }
    EXPECT_EQ(gains_of(subject), before);

    subject.set(69, 30);
    subject.plant(Place::kRegisterWrite, kGainRed, 0, 1);
    EXPECT_EQ(balance(subject, reddish), TOVIX_EADJUST);
    EXPECT_EQ(gains_of(subject), (std::array{8192, 4096, 4097, 5464})) << "one that fails does not stop the others";
    EXPECT_EQ(subject.value(69), 0);
    EXPECT_EQ(tovix_oneshot_autowhitebalance(subject.handle(), nullptr, 0, 0, 8, 8), TOVIX_EFAIL);
}

TEST(WhiteBalance, LevelsBearAnyRatio) {
    Subject subject("mira13c");
    const std::vector<std::uint8_t> frame = cells(64, 120, 128, 96);
    const auto levels = [&](float red_ratio, float blue_ratio) {
        std::array<float, 3> all{};
        EXPECT_EQ(tovix_get_whitebalance_adjustment_ex(subject.handle(), frame.data(), red_ratio, blue_ratio, kX, kY,
                                                       kSide, kSide, &all[0], &all[1], &all[2]),
                  0);
        return all;
    };
    EXPECT_EQ(levels(1, 1), (std::array{16.0f, 31.5f, 24.0f}));
    EXPECT_EQ(levels(0.5, 2), (std::array{32.0f, 31.5f, 12.0f}));
    for (const float least : {0.01f, 0.0f, -5.0f, std::nanf("")})
        EXPECT_EQ(levels(1, least), (std::array{16.0f, 31.5f, 2400.0f})) << least;
    EXPECT_EQ(levels(INFINITY, 1)[0], (30 + 32 + 24) / 4.0f / 128) << "the floor";
}

std::int32_t step(const Subject& subject, const std::vector<std::uint8_t>& frame) {
    return tovix_whitebalance_step(subject.handle(), frame.data(), kX, kY, kSide, kSide);
}

TEST(WhiteBalance, StepByHand) {
    using Digital = std::array<int, 3>;
    const struct {
        const char* what;
        std::vector<std::uint8_t> frame;
        std::int32_t result;
        Gains gains;
        Digital digital;
        std::string printed;
    } cases[] = {
        // Green counts half a quarter level more than it is: 16 / 32.5 / 24, so that red wants 2.03125 and gets 90 % of it.
        {"by analogue gains", cells(64, 128, 128, 96), 1, Gains{7898, 4096, 4096, 5402}, Digital{100, 100, 100},
         "2.03/1.00/1.35\n"},
        // 32 / 32.5 / 1: blue wants 1 + 0.9 x 31.5 = 29.35, 4.0 of it by the analogue gain.
        {"rest by digital gains", cells(128, 128, 128, 4), 1, Gains{4154, 4096, 4096, 16384}, Digital{100, 100, 734},
         "1.02/1.00/32.50\n"},
        {"nothing to do", cells(128, 128, 128, 129), 0, Gains{4096, 4096, 4096, 4096}, Digital{100, 100, 100},
         "1.02/1.00/1.01\ntovix_whitebalance_step_ex: no whitebalance change required\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Subject subject("mira13c");
        std::int32_t result = -1;
        const std::string errors = printed_by([&] { result = step(subject, c.frame); });
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(errors.substr(errors.find('\n') + 1), "tovix_whitebalance_step_ex: " + c.printed);
        EXPECT_EQ(gains_of(subject), c.gains);
        for (std::uint32_t i = 0; i < 3; ++i)
            EXPECT_NEAR(subject.value(72 + i), c.digital[i], 1);
    }
}

TEST(WhiteBalance, StepReportsNoFailingProperty) {
    Subject subject("mira13c");
    const std::vector<std::uint8_t> reddish = cells(64, 128, 128, 96);
    int transfers = 0;
    subject.port.access()->set_observer([&](const tovix::simulator::Transfer&) { ++transfers; });
    EXPECT_EQ(tovix_whitebalance_step(subject.handle(), reddish.data(), 1, 0, 8, 8), TOVIX_EINVAL);
    EXPECT_EQ(step(subject, cells(16, 16, 16, 16)), TOVIX_ELIGHT);
    EXPECT_EQ(transfers, 0) << "refused before any property was touched";
    subject.port.access()->set_observer({});
    for (const Place place : {Place::kRegisterRead, Place::kRegisterWrite}) {
        std::uint32_t good = 0;
        for (;; ++good) {  // the first transfer fails, the second, ...
            ASSERT_LT(good, 20u);
            set_gains(subject, {4096, 4096, 4096, 4096});
            subject.plant(place, Fault::kAnyAddress, good, 1);
            const std::int32_t result = step(subject, reddish);
            if (result == 1) break;
            EXPECT_EQ(result, 0) << good;
            EXPECT_EQ(subject.value(41) != 4096, place == Place::kRegisterRead ? good >= 4 : good >= 1) << good;
        }
        EXPECT_EQ(good, place == Place::kRegisterRead ? 8u : 4u);
        subject.port.access().clear_faults();
    }
}

TEST(WhiteBalance, ModelsWithUnequalGreensAreInTheTable) {
    int models = 0;
    for (int i = 0; i < camera_id_count; ++i)
        models += IsCameraDifferentGreenResponses(camera_ids[i].product_id);
    EXPECT_EQ(models, 2);
}

}  // namespace
