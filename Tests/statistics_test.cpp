// SPDX-License-Identifier: Apache-2.0
// Sums and sharpness against forms that decide everything pixel by pixel, over every rectangle of a small frame.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <random>
#include <vector>

#include "measure.h"

namespace {

using Sums = std::array<std::uint32_t, 4>;
using Bytes = std::vector<std::uint8_t>;

constexpr int kWidth = 10, kHeight = 8;

std::size_t bytes_of(const _FrameDesc& desc) {
    return static_cast<std::size_t>(desc.frame_width * desc.frame_height * (desc.sample_16bit ? 2 : 1));
}

_FrameDesc whole_frame(std::int64_t width, std::int64_t height) {
    return {width, height, 0, 0, 0, 0, 0, width, height};
}

/// The byte to measure of pixel `place`, or 0 beyond the frame.
int sample(const _FrameDesc& desc, const Bytes& frame, std::int64_t place) {
    if (place < 0 || place >= desc.frame_width * desc.frame_height) return 0;
    return frame[static_cast<std::size_t>(desc.sample_16bit ? 2 * place + desc.sample_msb_second : place)];
}

/// A walk along the frame, two columns and two rows at a time.
Sums plain_sums(const _FrameDesc& desc, const Bytes& frame) {
    Sums sums{};
    std::int64_t place = 0;
    const auto row = [&](std::size_t first) {
        for (std::int64_t column = 0; column < desc.win_width; column += 2) {
            sums[first] += static_cast<std::uint32_t>(sample(desc, frame, place++));
            sums[first + 1] += static_cast<std::uint32_t>(sample(desc, frame, place++));
        }
        place += desc.frame_width - desc.win_width;
    };
    if (desc.field_layout == 0) {
        place = desc.frame_width * desc.win_y + desc.win_x;
        for (std::int64_t y = 0; y < desc.win_height; y += 2)
            row(0), row(2);
    } else {
        place = desc.frame_width * desc.win_y / 2 + desc.win_x;
        for (std::int64_t y = 0; y < desc.win_height / 2; ++y)
            row(0);
        place += (desc.frame_height - desc.win_height) / 2 * desc.frame_width;
        for (std::int64_t y = 0; y < desc.win_height / 2; ++y)
            row(2);
    }
    return sums;
}

double plain_sharpness(const _FrameDesc& desc, const Bytes& frame) {
    const auto at = [&](std::int64_t x, std::int64_t y) {
        const std::int64_t row = desc.field_layout ? y / 2 + (y & 1) * desc.frame_height / 2 : y;
        return sample(desc, frame, row * desc.frame_width + x);
    };
    double sum = 0;
    for (std::int64_t y = desc.win_y; y < desc.win_y + desc.win_height; ++y)
        for (std::int64_t x = desc.win_x; x < desc.win_x + desc.win_width; ++x) {
            const int centre = at(x, y) == 255 ? 259 : at(x, y);
            const double difference = 4 * centre - at(x - 2, y) - at(x + 2, y) - at(x, y - 2) - at(x, y + 2);
            sum += difference * difference;
        }
    return sum / static_cast<double>(desc.win_width * desc.win_height);
}

Sums sums_of(const _FrameDesc& desc, const std::uint8_t* frame) {
    Sums sums{9, 9, 9, 9};
    BayerOrMonoComputeSums(&desc, frame, 0, sums.data());
    return sums;
}

/// What `measure` makes of a frame that ends where its memory does, and that it is the same between two poisons.
auto guarded(const Bytes& frame, const auto& measure) {
    const auto result = measure(frame.data());
    for (const std::uint8_t poison : {std::uint8_t{0x5A}, std::uint8_t{0xFF}}) {
        Bytes buffer(64, poison);
        buffer.insert(buffer.end(), frame.begin(), frame.end());
        buffer.resize(buffer.size() + 64, poison);
        EXPECT_EQ(measure(buffer.data() + 64), result) << "read outside the frame";
    }
    return result;
}

/// Calls `check` for every rectangle, in every depth and layout.
void for_each_frame(const std::function<void(const _FrameDesc&, const Bytes&)>& check) {
    std::mt19937 random(1);
    for (const std::uint32_t depth : {0u, 1u, 2u})
        for (const std::uint32_t fields : {0u, 1u}) {
            _FrameDesc desc{kWidth, kHeight, depth != 0, depth == 2, fields, 0, 0, 0, 0};
            Bytes frame(bytes_of(desc));
            for (std::uint8_t& byte : frame)
                byte = random() % 4 == 0 ? 255 : static_cast<std::uint8_t>(random());
            for (desc.win_x = 0; desc.win_x < kWidth; ++desc.win_x)
                for (desc.win_y = 0; desc.win_y < kHeight; ++desc.win_y)
                    for (desc.win_width = 1; desc.win_x + desc.win_width <= kWidth; ++desc.win_width)
                        for (desc.win_height = 1; desc.win_y + desc.win_height <= kHeight; ++desc.win_height) {
                            SCOPED_TRACE(testing::Message()
                                         << "depth " << depth << ", fields " << fields << ": " << desc.win_width << "x"
                                         << desc.win_height << "+" << desc.win_x << "+" << desc.win_y);
                            check(desc, frame);
                            if (testing::Test::HasFailure()) return;
                        }
        }
}

TEST(Sums, AreThoseOfThePlainFormForEveryRectangle) {
    for_each_frame([](const _FrameDesc& desc, const Bytes& frame) {
        EXPECT_EQ(guarded(frame, [&](const std::uint8_t* at) { return sums_of(desc, at); }), plain_sums(desc, frame));
    });
}

TEST(Sums, ByHand) {
    const Bytes cells{10, 20, 10, 20, 30, 40, 30, 40};
    EXPECT_EQ(sums_of(whole_frame(4, 2), cells.data()), (Sums{20, 40, 60, 80}));
    // Fields: the even rows of the picture are the first two stored ones.
    _FrameDesc fields = whole_frame(2, 4);
    fields.field_layout = 1;
    EXPECT_EQ(sums_of(fields, cells.data()), (Sums{20, 40, 60, 80}));
    fields.win_y = fields.win_height = 2;  // the second stored row of each field
    EXPECT_EQ(sums_of(fields, Bytes{1, 2, 3, 4, 5, 6, 7, 8}.data()), (Sums{3, 4, 7, 8}));

    constexpr std::int64_t kSide = 8210;  // a quarter of the pixels, all 255, is 2044079 more than 32 bits hold
    const Bytes white(static_cast<std::size_t>(kSide * kSide), 255);
    EXPECT_EQ(sums_of(whole_frame(kSide, kSide), white.data()), (Sums{2044079, 2044079, 2044079, 2044079}));
}

/// Where no border keeps the rectangle inside, whatever comes out: nothing outside the frame has a part in it.
TEST(Sharpness, IsThatOfThePlainFormForEveryRectangle) {
    for_each_frame([](const _FrameDesc& desc, const Bytes& frame) {
        const double sharpness =
            guarded(frame, [&](const std::uint8_t* at) { return tovix_autofocus_calculation(&desc, at); });
        const bool inside = desc.win_x >= 2 && desc.win_y >= 2 && desc.win_x + desc.win_width <= kWidth - 2 &&
                            desc.win_y + desc.win_height <= kHeight - 2;
        // A picture in fields has rectangles of whole pairs of rows.
        if (inside && (desc.field_layout == 0 || ((desc.win_y | desc.win_height) & 1) == 0)) {
            EXPECT_EQ(sharpness, plain_sharpness(desc, frame));
        }
    });
}

TEST(Sharpness, ByHand) {
    _FrameDesc desc{5, 5, 0, 0, 0, 2, 2, 1, 1};
    const auto of = [&](const Bytes& frame) { return tovix_autofocus_calculation(&desc, frame.data()); };
    Bytes frame(25, 255);
    EXPECT_EQ(of(frame), 256) << "a saturated pixel among saturated ones";
    frame[12] = 254;
    EXPECT_EQ(of(frame), 16) << "its neighbours count as they are";
    std::fill(frame.begin(), frame.end(), 7);
    EXPECT_EQ(of(frame), 0);
    for (const std::size_t neighbour : {2u, 10u, 14u, 22u}) {
        frame[neighbour] = 17;
        EXPECT_EQ(of(frame), 100) << neighbour;
        frame[neighbour] = 7;
    }
    for (const std::size_t other_colour : {6u, 7u, 8u, 11u, 13u, 16u, 17u, 18u})
        frame[other_colour] = 99;
    EXPECT_EQ(of(frame), 0);
    desc.win_width = 0;
    EXPECT_EQ(of(frame), 0) << "empty";
}

}  // namespace
