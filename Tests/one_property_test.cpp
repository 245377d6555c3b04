// SPDX-License-Identifier: Apache-2.0
// The calls that adjust one property, with a property that this program brings itself: any value, range and failure, and
// the focus drive and the iris that no camera has.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>
#include <vector>

#include "auto.h"
#include "focus_search.h"
#include "handle.h"

namespace {

/// What the property of the handle answers, and what was written to it.
struct TheProperty {
    std::uint32_t id = TOVIX_PROP_FOCUS;
    FocusDrive drive{0, 3200, 1600, true, true};
    std::int32_t result_of_read = 0, result_of_write = 0;
    std::vector<int> writes;
} property;

}  // namespace

std::int32_t tovix_property_get_range(_tovix*, std::uint32_t id, int* min, int* max, int* value, std::uint32_t* flags) {
    EXPECT_EQ(id, property.id);
    const FocusDrive& drive = property.drive;
    *min = drive.min, *max = drive.max, *value = drive.position;
    *flags = 0xFFFFFFFCu | (drive.lower_bounded ? 0u : 1u) | (drive.upper_bounded ? 0u : 2u);
    return property.result_of_read;
}

std::int32_t tovix_property_set(_tovix*, std::uint32_t id, int value, std::uint32_t flags) {
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(id, property.id);
    property.writes.push_back(value);
    return property.result_of_write;
}

namespace {

class OneProperty : public ::testing::Test {
  protected:
    static constexpr int kWidth = 64, kHeight = 48;

    void SetUp() override {
        property = {};
        camera.width = kWidth, camera.height = kHeight;
        camera.subsample_x = camera.subsample_y = 1;
    }
    std::int32_t start() { return tovix_autofocus_start(&camera, 0, 0, kWidth, kHeight); }
    std::int32_t process() { return tovix_autofocus_process(&camera, frame.data()); }
    void look_from(int position, int sharpest) {
        const double contrast = 200 / (1 + std::pow((position - sharpest) / 400.0, 2));
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = static_cast<std::uint8_t>(i / 4 % 2 == 0 ? contrast : 0);
    }

    _tovix camera{};
    std::vector<std::uint8_t> frame = std::vector<std::uint8_t>(kWidth * kHeight);
};

TEST_F(OneProperty, DrivesTheLensToTheSharpestFrame) {
    property.drive.position = 700;
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(camera.focus.af_desc.win_x, 2);
    EXPECT_EQ(camera.focus.af_desc.win_width, kWidth - 4);
    int frames = 0;
    for (; camera.focus.af_state != 9 && frames < 500; ++frames) {
        look_from(property.drive.position, 2345);
        ASSERT_EQ(process(), 0);
        if (!property.writes.empty()) property.drive.position = std::clamp(property.writes.back(), 0, 3200);
    }
    EXPECT_NEAR(property.drive.position, 2345, 100);
    const std::size_t writes = property.writes.size();
    EXPECT_EQ(process(), 0) << "awaits one more frame";
    EXPECT_EQ(process(), -1);
    EXPECT_EQ(property.writes.size(), writes);
    EXPECT_EQ(start(), 0);
    EXPECT_EQ(process(), 0);
    EXPECT_EQ(property.writes.size(), writes + 1) << "begun anew";
}

TEST_F(OneProperty, ReadsOnlyTheLimitsFromTheFlags) {
    for (const auto& [lower, upper, first] : {std::tuple{true, true, 1800}, {false, true, 1550}, {true, false, 1650}}) {
        property.drive = {0, 3200, 1600, lower, upper};
        EXPECT_EQ(start(), 0);
        EXPECT_EQ(process(), 0);
        EXPECT_EQ(property.writes.back(), first);
    }
}

TEST_F(OneProperty, SaysWhyItCannot) {
    EXPECT_EQ(process(), -22) << "not begun";
    EXPECT_EQ(tovix_autofocus_start(&camera, 0, 0, kWidth + 1, 4), -22);
    EXPECT_EQ(tovix_autofocus_start(&camera, 0, 0, 2, 2), -22) << "nothing is left inside the border";
    EXPECT_EQ(process(), -22);
    property.result_of_read = -7;
    EXPECT_EQ(start(), -7);
    EXPECT_EQ(process(), -5);
    property.result_of_read = 0;
    property.drive = {5, 5, 5, true, true};
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(process(), -1);
    property.drive = {0, 3200, 1600, true, true};
    EXPECT_EQ(process(), -22) << "a start that failed begins nothing";
    EXPECT_TRUE(property.writes.empty());

    EXPECT_EQ(start(), 0);
    property.result_of_read = -7;
    const FocusState before = camera.focus;
    EXPECT_EQ(process(), -5);
    EXPECT_EQ(camera.focus.af_state, before.af_state);
    property.result_of_read = 0;
    property.result_of_write = -1;
    EXPECT_EQ(process(), -1);
    EXPECT_EQ(camera.focus.af_state, 1) << "it has advanced all the same";
    property.result_of_write = 0;
    camera.height -= 2;
    EXPECT_EQ(process(), -22) << "these are other frames";
    camera.height += 2;
    std::int32_t result = 0;
    for (int frames = 0; result == 0; ++frames) {
        ASSERT_LT(frames, 200);
        result = process();
    }
    EXPECT_EQ(result, -60) << "nothing to be seen";
    EXPECT_EQ(process(), 0);
    EXPECT_EQ(process(), -1);
    EXPECT_EQ(tovix_autofocus_start(nullptr, 0, 0, 4, 4), -1);
    EXPECT_EQ(tovix_autofocus_process(&camera, nullptr), -1);
}

TEST_F(OneProperty, PositionsBeyondThePropertySaturate) {
    property.drive = {0, 0, INT32_MAX, false, false};
    EXPECT_EQ(start(), 0);
    camera.focus.af_state = 7;
    camera.focus.af_peak_position = INT64_MAX;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(process(), 0);
    EXPECT_EQ(property.writes.back(), INT32_MAX);
}

TEST_F(OneProperty, OneShotsMeetTheTarget) {
    using Call = std::int32_t (*)(_tovix*, int, const std::uint8_t*, int, int, int, int);
    const Call exposure = [](_tovix* handle, int target, const std::uint8_t* at, int x, int y, int width, int height) {
        return tovix_oneshot_autoexposure(handle, target, at, x, y, width, height, -1e300);
    };
    const struct {
        std::uint32_t id;
        Call call;
        int value, target;
        std::uint8_t level;
        int expected;
    } cases[] = {
        {20, exposure, 10'000, 120, 60, 20'000},
        {20, exposure, 10'000, 50, 50, 10'000},
        {20, exposure, 10, 99, 0, 12},
        {20, exposure, 0, 99, 0, 2},
        {20, exposure, 1, 99, 0, 2},
        {20, exposure, 1, 60, 20, 6},
        {20, exposure, 1, 20, 40, 1},
        {20, exposure, 7, 100, 200, 4},
        {20, exposure, 2'000'000'000, 200, 1, 3'000'000},
        {20, exposure, 10, -100, 1, 0},
        {20, exposure, 500, 0, 9, 0},
        {40, tovix_oneshot_autogain, 4096, 90, 60, 6144},
        {40, tovix_oneshot_autogain, 0, 99, 0, 1},
        {40, tovix_oneshot_autogain, 0, 80, 20, 4},
        {40, tovix_oneshot_autogain, 1, 99, 0, 1},
        {40, tovix_oneshot_autogain, 10, 99, 0, 12},
        {40, tovix_oneshot_autogain, INT32_MAX, INT32_MAX, 1, 3'000'000},
        {40, tovix_oneshot_autogain, -10, INT32_MAX, 1, 0},
        // A larger iris admits less light.
        {21, tovix_oneshot_autoiris, 400, 200, 50, 200},
        {21, tovix_oneshot_autoiris, 400, 25, 50, 566},
        {21, tovix_oneshot_autoiris, 400, 0, 50, 3'000'000},
        {21, tovix_oneshot_autoiris, 400, -1, 50, 0},
        {21, tovix_oneshot_autoiris, 0, 0, 50, 0},
    };
    for (const auto& c : cases) {
        property = {};
        property.id = c.id;
        property.drive = {0, 3'000'000, c.value, true, true};
        std::fill(frame.begin(), frame.end(), c.level);
        SCOPED_TRACE(testing::Message() << c.id << ": " << c.value << " of " << int{c.level} << " to " << c.target);
        EXPECT_EQ(c.call(&camera, c.target, frame.data(), 1, 3, 6, 4), 0);
        EXPECT_EQ(property.writes, std::vector<int>{c.expected});
        property.result_of_write = -1;
        EXPECT_EQ(c.call(&camera, c.target, frame.data(), 0, 0, kWidth, kHeight), -5);
        property.result_of_read = -22;
        EXPECT_EQ(c.call(&camera, c.target, frame.data(), 0, 0, kWidth, kHeight), -5);
        EXPECT_EQ(property.writes.size(), 2u) << "nothing is changed when the read fails";
        EXPECT_EQ(c.call(&camera, c.target, frame.data(), 0, 0, kWidth + 1, kHeight), -22);
        EXPECT_EQ(c.call(&camera, c.target, nullptr, 0, 0, kWidth, kHeight), -1);
    }
}

TEST_F(OneProperty, DescribesRectanglesWhateverTheNumbers) {
    using Rectangle = std::array<std::int64_t, 4>;
    struct Case {
        int x, y, width, height, border;
        std::int32_t result = -22;
        Rectangle window = {};
    };
    constexpr int kMost = INT32_MAX;
    for (const Case& c :
         {Case{0, 0, 64, 48, 0, 0, Rectangle{0, 0, 64, 48}}, Case{0, 0, 20, 48, 2, 0, Rectangle{2, 2, 18, 44}},
          Case{1, 40, 63, 8, 2, 0, Rectangle{2, 40, 60, 6}}, Case{2, 2, 60, 44, 2, 0, Rectangle{2, 2, 60, 44}},
          Case{63, 47, 1, 1, 0, 0, Rectangle{63, 47, 1, 1}}, Case{0, 0, 2, 48, 2}, Case{0, 46, 64, 2, 2},
          Case{-1, 0, 4, 4, 0}, Case{0, -1, 4, 4, 0}, Case{0, 0, 4, 4, -1}, Case{1, 0, 64, 4, 0}, Case{0, 1, 4, 48, 0},
          Case{4, 4, 0, 4, 0}, Case{4, 4, 4, -4, 0}, Case{kMost, 0, kMost, 4, 0}, Case{0, 4, 4, kMost, kMost},
          Case{0, 0, INT32_MIN, INT32_MIN, kMost}}) {
        _FrameDesc desc{};
        EXPECT_EQ(fill_FrameDesc(&camera, 0, &desc, c.x, c.y, c.width, c.height, c.border), c.result);
        EXPECT_EQ((Rectangle{desc.win_x, desc.win_y, desc.win_width, desc.win_height}), c.window)
            << c.width << "x" << c.height << "+" << c.x << "+" << c.y << ", border " << c.border;
    }
    _FrameDesc desc{};
    camera.subsample_x = 0;  // what only a camera gone wrong says
    camera.subsample_y = 65535;
    for (const std::uint32_t format : {0u, 6u, 23u, 24u, 27u, 28u}) {
        camera.pixel_format = format;
        EXPECT_EQ(fill_FrameDesc(&camera, 0, &desc, 0, 0, 2, 2, 0), 0);
        EXPECT_EQ(desc.sample_msb_second, format == 6 || format == 24 || format == 27) << format;
    }
    EXPECT_EQ(desc.frame_width, kWidth);
    EXPECT_EQ(desc.frame_height, kHeight);
}

}  // namespace
