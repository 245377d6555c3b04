// SPDX-License-Identifier: Apache-2.0
// Properties as older applications know them: floats, flags in the upper half, 1 or 0.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cmath>

#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;

constexpr std::uint32_t kHundredths[] = {0, 1, 5, 67, 68, 71, 72, 73, 74};
constexpr std::uint32_t kTimes[] = {20, 50, 56, 96, 97, 98, 100, 116};
constexpr std::uint32_t kGains[] = {40, 41, 42, 43, 44, 51, 52, 53, 54, 55};
constexpr std::uint32_t kIris[] = {21}, kTemperature[] = {108}, k256[] = {256};
constexpr std::uint32_t kPlain[] = {2, 19, 22, 39, 45, 49, 57, 64, 65, 66, 69, 70, 75, 81, 99, 107, 258, UINT32_MAX};

struct Case {
    std::span<const std::uint32_t> properties;
    std::vector<std::pair<int, float>> floats;  // of integers
    std::vector<std::pair<float, int>> longs;   // of floats
};
const Case kCases[] = {
    {kHundredths, {{250, 2.5f}, {-1, -0.01f}}, {{2.5f, 250}, {0.125f, 13}, {-1.5f, -149}, {1e30f, INT_MAX}}},
    {kTimes,
     {{12'500, 12.5f}, {-1, 4294967.5f}},
     {{12.5f, 12'500}, {-1.0f, -999}, {4294967.0f, -256}, {5e6f, 705'032'704}, {1e30f, -1}, {-1e30f, 0}}},
    {kGains, {{6144, 1.5f}, {-4096, -1.0f}}, {{1.5f, 6144}, {-1e30f, INT_MIN}}},
    {kIris, {{0, 10'000.0f}, {-5, 10'000.0f}, {10, 100.0f}, {100, 1.0f}}, {{0.0f, 1000}, {-3.0f, 1000}, {1.0f, 100}}},
    {kTemperature, {{298'000, 25.0f}, {0, -273.0f}}, {{25.0f, 298'000}, {-273.0f, 0}, {1e30f, INT_MAX}}},
    {k256,
     {{0, 100.0f}, {256, 50.0f}, {257, 12800.0f / 257.0f}, {512, 25.0f}},
     {{0.1f, 65'535}, {0.0f, 65'535}, {25.0f, 512}, {50.0f, 256}, {75.0f, 128}, {100.0f, 1}, {1e30f, 1}}},
    {kPlain,
     {{640, 640.0f}, {16'777'217, 16'777'216.0f}},
     {{2.5f, 3}, {-2.5f, -2}, {2147483648.0f, INT_MAX}, {-INFINITY, INT_MIN}}},
};

TEST(Conversion, FollowsTheTable) {
    for (const auto& [properties, floats, longs] : kCases) {
        for (const std::uint32_t property : properties) {
            for (const auto& [integer, number] : floats)
                EXPECT_EQ(ConvertPropToFloat(property, integer), number) << property << ": " << integer;
            for (const auto& [number, integer] : longs)
                EXPECT_EQ(ConvertPropToLong(property, number), integer) << property << ": " << number;
            EXPECT_EQ(ConvertPropToLong(property, NAN), 0) << property;
            EXPECT_EQ(PropMinMaxSwap(property), property == 21 || property == 256) << property;
            for (const int extreme : {INT_MIN, INT_MAX})
                EXPECT_TRUE(std::isfinite(ConvertPropToFloat(property, extreme))) << property;
        }
    }
}

TEST(Compatibility, FlagsTravelInTheUpperHalf) {
    Wire wire;
    EXPECT_EQ(TovixSetProperty(wire.camera, TOVIX_PROP_EXPOSURE, 12.5f, INT_MIN), 1);
    EXPECT_EQ(wire.take(),
              std::vector<std::string>{"control 40 12 value=0000 index=04A0 length=8 done 8: 00 80 FF FF D4 30 00 00"});
    EXPECT_EQ(TovixSetProperty(wire.camera, TOVIX_PROP_EXPOSURE, 12.5f, 0x00030001), 1);
    float value = 0, min = 0, max = 0;
    std::uint32_t flags = 0;
    EXPECT_EQ(TovixGetProperty(wire.camera, TOVIX_PROP_EXPOSURE, &value, &flags), 1);
    EXPECT_EQ(value, 12.5f);
    EXPECT_EQ(flags, 0x00030000u) << "the camera's own bit 31 is dropped";
    EXPECT_EQ(TovixPropertyRange(wire.camera, TOVIX_PROP_EXPOSURE, &min, &max, &value, &flags), 1);
    EXPECT_EQ((std::array{min, max, value}), (std::array{0.01f, 60'000.0f, 12.5f}));
    EXPECT_EQ(flags, 0x80000003u);
}

TEST(Compatibility, FailuresAre0AndWriteNothing) {
    Wire wire;
    float min = 99, max = 99, value = 99;
    std::uint32_t flags = 99;
    EXPECT_EQ(TovixSetProperty(wire.camera, TOVIX_PROP_FOCUS, 1.0f, 0), 0);
    EXPECT_EQ(TovixGetProperty(wire.camera, TOVIX_PROP_FOCUS, &value, &flags), 0);
    EXPECT_EQ(TovixGetProperty(wire.camera, TOVIX_PROP_GAIN, nullptr, &flags), 0);
    EXPECT_EQ(TovixGetProperty(wire.camera, TOVIX_PROP_GAIN, &value, nullptr), 0);
    EXPECT_EQ(TovixPropertyRange(wire.camera, TOVIX_PROP_GAIN, &min, &max, &value, nullptr), 0);
    EXPECT_EQ(TovixPropertyRange(wire.camera, TOVIX_PROP_GAIN, nullptr, &max, &value, &flags), 0);
    EXPECT_EQ(TovixPropertyRange(wire.camera, TOVIX_PROP_GAIN, &min, nullptr, &value, &flags), 0);
    EXPECT_EQ(TovixPropertyRange(wire.camera, TOVIX_PROP_GAIN, &min, &max, nullptr, &flags), 0);
    wire.plant({.place = Place::kRegisterRead});
    EXPECT_EQ(TovixGetProperty(wire.camera, TOVIX_PROP_GAIN, &value, &flags), 0);
    EXPECT_TRUE(min == 99 && max == 99 && value == 99 && flags == 99);
    EXPECT_EQ(TovixPropertyRange(wire.camera, TOVIX_PROP_FOCUS, &min, &max, &value, &flags), 0);
    EXPECT_TRUE(min == 99 && max == 99 && value == 99);
    EXPECT_EQ(TovixSetProperty(wire.camera, TOVIX_PROP_DEMOSAICING_METHOD, 3.0f, 0), 1) << "refused, and no failure";
    int integer = 99;
    EXPECT_FALSE(TovixPropertySet(wire.camera, TOVIX_PROP_MAX_WIDTH, 1, 0));
    EXPECT_FALSE(TovixPropertyGet(nullptr, TOVIX_PROP_MAX_WIDTH, &integer, &flags));
    EXPECT_TRUE(TovixPropertyGet(wire.camera, TOVIX_PROP_MAX_WIDTH, &integer, &flags));
    EXPECT_EQ(integer, 1280);
    EXPECT_FALSE(TovixPropertyGetRange(wire.camera, TOVIX_PROP_MAX_WIDTH, nullptr, nullptr, &integer, &flags));
    EXPECT_EQ(TovixLastError, 0u);
}

}  // namespace
