// SPDX-License-Identifier: Apache-2.0
// Properties of an open camera: where each is kept, what it reports, and what goes over the wire for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <numeric>

#include "camera_properties.h"
#include "simulated_bus.h"
#include "stderr_capture.h"
#include "tovixapi/vorm.h"

namespace {

using namespace tovix::test;
using Lines = std::vector<std::string>;

constexpr std::uint32_t kPresent = 0x80000000;
constexpr char kReadFailed[] =
    "TVXUSBReadControlPipe Err 0xE000404F -536854449\n"
    "error: unable to read register from camera\n";
constexpr char kWriteFailed[] =
    "TVXUSBWriteControlPipe Err 0xE000404F -536854449\n"
    "error: unable to write register to camera\n";

/// Range, value and flags of a property, as the calls that read it leave them.
struct Report {
    std::int32_t result;
    int min, max, value;
    std::uint32_t flags;
    bool operator==(const Report&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Report& r) {
    return out << r.result << ": " << r.value << " in " << r.min << " to " << r.max << ", flags " << r.flags;
}
Report range_of(_tovix* camera, std::uint32_t property) {
    Report r{0, 99, 99, 99, 99};
    r.result = tovix_property_get_range(camera, property, &r.min, &r.max, &r.value, &r.flags);
    return r;
}
Report value_of(_tovix* camera, std::uint32_t property) {
    Report r{0, 0, 0, 99, 99};
    r.result = tovix_property_get(camera, property, &r.value, &r.flags);
    return r;
}

/// What has passed: direction, register and length of each transfer.
std::string passed(Wire& wire) {
    std::string all;
    for (const std::string& line : wire.take())
        all +=
            (line[8] == '4' ? "> " : "< ") + line.substr(31, 4) + " " + line.substr(43, line.find(' ', 43) - 43) + ", ";
    return all;
}

/// Register, range and value after open, flags, a value to set, what that returns, and what is read afterwards.
struct Row {
    std::uint32_t property, address;
    int min, max, value;
    std::uint32_t flags;
    int set, result, read;
};
constexpr Row kRows[] = {
    {0, 0, -10000, 10000, 0, kPresent, -500, 0, -500},
    {1, 0, 0, 10000, 100, kPresent, 150, 0, 150},
    {5, 0, 1, 500, 100, kPresent, 220, 0, 220},
    {20, 0x04A0, 10, 60'000'000, 10'000, kPresent, 12'500, 0, 12'500},
    {40, 0x04F0, 4096, 32768, 4096, kPresent, 6144, 0, 6144},
    {41, 0x0500, 4096, 16384, 4096, kPresent, 5120, 0, 5120},
    {42, 0x0530, 4096, 16384, 4096, kPresent, 5120, 0, 5120},
    {43, 0x0510, 4096, 16384, 4096, kPresent, 5120, 0, 5120},
    {44, 0x0520, 4096, 16384, 4096, kPresent, 20480, 0, 16384},  // the camera limits it
    {64, 0, 0, 2, 1, 0, 8, 1, 8},
    {64, 0, 0, 2, 1, 0, 3, 0, 1},  // refused, and not a failure
    {65, 0, 0, 5, 1, 0, 16, 1, 16},
    {65, 0, 0, 5, 1, 0, 17, 0, 1},
    {66, 0, 0, 3, 0, 0, 1, 0, 1},
    {66, 0, 0, 3, 0, 0, 6, 0, 2},  // other bits do not count
    {67, 0, 5, 200, 100, 0, 57, 0, 57},
    {68, 0, -18000, 18000, 0, 0, 4500, 0, 4500},
    {69, 0, -100, 100, 0, 0, 40, 0, 40},
    {70, 0, -100, 100, 0, 0, -30, 0, -29},  // rounding adds a half and truncates
    {71, 0, 100, 200, 100, 0, 140, 0, 140},
    {72, 0, 100, 250, 100, 0, 175, 0, 175},
    {73, 0, 100, 250, 100, 0, 175, 0, 175},
    {74, 0, 100, 250, 100, 0, 175, 0, 175},
    {108, 0x0690, -30, 30, 25, kPresent, 10, 0, 25},  // reads the sensor, which takes its time
    {258, 0x0640, 0, 255, 0, kPresent, 7, 0, 7},
};
constexpr std::pair<std::uint32_t, int> kFixed[] = {{81, 1280}, {82, 1024}, {83, 16}, {84, 2}, {85, 4}};

TEST(Properties, EveryRowIsReadSetAndRanged) {
    std::map<std::uint32_t, std::uint32_t> served, listed;  // registers by property
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.property);
        Wire wire;
        EXPECT_EQ(range_of(wire.camera, row.property), (Report{0, row.min, row.max, row.value, row.flags}));
        EXPECT_EQ(value_of(wire.camera, row.property), (Report{0, 0, 0, row.value, row.flags}));
        EXPECT_EQ(tovix_property_set(wire.camera, row.property, row.set, 0), row.result);
        EXPECT_EQ(range_of(wire.camera, row.property), (Report{0, row.min, row.max, row.read, row.flags}));
        served[row.property] = row.address;
    }
    for (const auto& [property, value] : kFixed) {
        Wire wire;
        EXPECT_EQ(value_of(wire.camera, property), (Report{0, 0, 0, value, 0})) << property;
        EXPECT_EQ(tovix_property_set(wire.camera, property, 1, 0), TOVIX_EINVAL);
        EXPECT_EQ(range_of(wire.camera, property), (Report{TOVIX_EINVAL, 0, 0, 0, 0}));
        EXPECT_EQ(passed(wire), property == 85 ? "< 101C 4, " : "");
        served[property] = property <= 82 ? TOVIX_FO_MAX_SIZE : property <= 84 ? TOVIX_FO_UNIT_SIZE : 0x101C;
    }
    for (int i = 0; i < tovix_property_count; ++i)
        listed[tovix_properties[i].property] = tovix_properties[i].address;
    EXPECT_EQ(listed, served);
}

TEST(Properties, AMonochromeCameraReportsNeutralColours) {
    Wire wire("mira13m");
    for (std::uint32_t property = 69; property <= 74; ++property) {
        EXPECT_EQ(tovix_property_set(wire.camera, property, 150, 0), 0);
        const int neutral = property <= 70 ? 0 : 100;
        EXPECT_EQ(range_of(wire.camera, property), (Report{0, neutral, neutral, neutral, 0})) << property;
    }
    EXPECT_EQ(range_of(wire.camera, TOVIX_PROP_DIGITAL_SATURATION), (Report{0, 5, 200, 100, 0}));
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_GAIN_RED, 8192, 0), 0) << "the camera ignores it";
    EXPECT_EQ(range_of(wire.camera, TOVIX_PROP_GAIN_RED), (Report{0, 4096, 16384, 4096, 0}));
}

TEST(Properties, ReachTheConversionObject) {
    Wire wire;
    CVorm& vorm = *(tz_usb_create_vorm(wire.camera), wire.camera->vorm);
    // One of several numbers is set without the others.
    for (const auto& [property, value] : {std::pair{72u, 125}, {73u, 150}, {74u, 200}})
        EXPECT_EQ(tovix_property_set(wire.camera, property, value, 0), 0);
    double red = 0, green = 0, blue = 0;
    vorm.GetDigitalColorGains(&red, &green, &blue);
    EXPECT_TRUE(std::abs(red - 1.25) + std::abs(green - 1.5) + std::abs(blue - 2.0) < 1e-9);
    for (const auto& [property, value] : {std::pair{66u, 2}, {67u, 50}, {68u, 4500}, {69u, 40}, {70u, -20}, {71u, 140}})
        EXPECT_EQ(tovix_property_set(wire.camera, property, value, 0), 0);
    const _vorm_settings& now = vorm.settings;
    EXPECT_TRUE(now.flip_x == 0 && now.flip_y == 2);
    EXPECT_TRUE(now.saturation_u == 0.5 && now.saturation_v == 0.5 && now.hue == 45.0 && now.gain == 1.4);
    EXPECT_TRUE(now.white_balance_u == 0.4 && now.white_balance_v == -0.2);
    vorm.SetSaturation(0.01, 1.0);
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_DIGITAL_GAIN_RED, 150, 0), TOVIX_EMODEL);
    // Numbers that no int can hold.
    for (const auto& [gain, read] : {std::pair{1e300, INT_MAX}, {-1e300, INT_MIN}, {std::nan(""), 0}}) {
        vorm.SetGain(gain);
        EXPECT_EQ(value_of(wire.camera, TOVIX_PROP_DIGITAL_GAIN).value, read);
    }
}

TEST(Properties, RefusedOnesChangeNothing) {
    Wire wire;
    for (const std::uint32_t property : {2u, 21u, 22u, 63u, 80u, 256u, 259u, UINT32_MAX}) {
        EXPECT_EQ(tovix_property_set(wire.camera, property, 1, 0), TOVIX_EINVAL) << property;
        EXPECT_EQ(range_of(wire.camera, property), (Report{TOVIX_EINVAL, 0, 0, 0, 0}));
        EXPECT_EQ(value_of(wire.camera, property), (Report{TOVIX_EINVAL, 0, 0, 0, 0}));
    }
    int value = 99;
    std::uint32_t flags = 99;
    EXPECT_EQ(tovix_property_get_range(wire.camera, 20, nullptr, nullptr, nullptr, &flags), TOVIX_EINVAL);
    EXPECT_EQ(tovix_property_get_range(wire.camera, 20, nullptr, nullptr, &value, nullptr), TOVIX_EINVAL);
    EXPECT_EQ(tovix_property_get(wire.camera, 81, nullptr, &flags), TOVIX_EINVAL);
    EXPECT_EQ(tovix_property_get(wire.camera, 81, &value, nullptr), TOVIX_EINVAL);
    EXPECT_TRUE(value == 99 && flags == 99);
    EXPECT_EQ(passed(wire), "");
    const std::function<std::int32_t()> without_camera[] = {
        [&] { return tovix_property_set(nullptr, 20, 1, 0); },
        [&] { return tovix_property_get(nullptr, 20, &value, &flags); },
        [&] { return tovix_property_get_range(nullptr, 20, nullptr, nullptr, &value, &flags); },
        [&] { return tovix_enable_callback_notification(nullptr, 1, nullptr, nullptr); },
        [&] { return tovix_disable_callback_notification(nullptr, 0); }};
    for (const auto& call : without_camera)
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(call(), -1); }), "error: camera reference cannot be NULL\n");
}

TEST(Properties, AModelWithoutMatricesFailsOnce) {
    // The call that makes the conversion object hands the model's failing up, and has done nothing else.
    Wire wire("atlas13c");
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_EXPOSURE, 500, 0), TOVIX_EMODEL);
    EXPECT_EQ(passed(wire), "");
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_EXPOSURE, 500, 0), 0);
    EXPECT_EQ(value_of(wire.camera, TOVIX_PROP_EXPOSURE).value, 500);
}

TEST(Properties, ABlockIsOneTransfer) {
    Wire wire;
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_GAIN_BLUE, 8192, 0x12345678), 0);
    EXPECT_EQ(range_of(wire.camera, TOVIX_PROP_GAIN_BLUE), (Report{0, 4096, 16384, 8192, 0x92345678}));
    EXPECT_EQ(wire.take(),
              (Lines{"control 40 12 value=0000 index=0530 length=8 done 8: 78 56 34 12 00 20 00 00",
                     "control C0 12 value=0000 index=0530 length=16 done 16: 78 56 34 92 00 20 00 00 00 10 "
                     "00 00 00 40 00 00"}));
    for (const FaultKind kind : {FaultKind::kStall, FaultKind::kShortAnswer}) {
        wire.plant({.place = Place::kRegisterRead, .kind = kind});
        EXPECT_EQ(range_of(wire.camera, TOVIX_PROP_EXPOSURE), (Report{-1, 0, 0, 0, 0}));
    }
    wire.plant({.place = Place::kRegisterWrite});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_GAIN, 1, 0), -1); }), kWriteFailed);
    wire.plant({.place = Place::kRegisterRead, .address = TOVIX_FO_SUBSAMPLING_INQ});
    EXPECT_EQ(printed_by([&] {
                  EXPECT_EQ(value_of(wire.camera, 85), (Report{-1, 0, 0, 0, 0}));
              }),
              std::string(kReadFailed) + "error: unable to read param 'TOVIX_FO_SUBSAMPLING_INQ'\n");
}

// ---- Tone curve ----------------------------------------------------------------------------------------------------

TEST(ToneCurve, IsMadeOfThreeSettings) {
    // By hand: ((level + b - 128) x c + 128), to the power 1/g, times 255 to the power 1 - 1/g.
    const struct {
        int brightness, contrast, gamma;
        std::map<int, int> levels;
    } cases[] = {
        {0, 100, 100, {{0, 0}, {1, 1}, {128, 128}, {255, 255}}},
        {2050, 100, 100, {{0, 20}, {234, 254}, {235, 255}, {255, 255}}},
        {-500, 100, 100, {{0, 0}, {5, 0}, {6, 1}, {255, 250}}},
        {0, 0, 100, {{0, 128}, {77, 128}, {255, 128}}},
        {0, 200, 100, {{0, 0}, {64, 0}, {65, 2}, {100, 72}, {191, 254}, {192, 255}}},
        {-1000, 200, 100, {{74, 0}, {75, 2}, {138, 128}, {201, 254}, {202, 255}}},  // brightness comes first
        {0, 100, 200, {{0, 0}, {1, 15}, {16, 63}, {64, 127}, {128, 180}}},
        {0, 100, 50, {{15, 0}, {16, 1}, {128, 64}, {200, 156}}},
        {0, 100, 1, {{128, 0}, {254, 172}}},
        {0, 100, 0, {{128, 0}, {254, 172}}},  // counts as the smallest
        {0, 100, -7, {{128, 0}, {254, 172}}},
        {INT_MAX, INT_MAX, INT_MAX, {{0, 255}}},
        {INT_MIN, INT_MAX, 1, {{255, 0}}},
        {INT_MIN, INT_MIN, 1, {{255, 255}}},
    };
    for (const auto& [brightness, contrast, gamma, levels] : cases) {
        Wire wire;
        for (const auto& [property, value] : {std::pair{0u, brightness}, {1u, contrast}, {5u, gamma}}) {
            EXPECT_EQ(tovix_property_set(wire.camera, property, value, 0), 0);
            EXPECT_EQ(value_of(wire.camera, property).value, value);
            EXPECT_EQ(passed(wire), "< 4FF8 4, > 4FFC 4, > 5000 64, > 5040 64, > 5080 64, > 50C0 64, ");
        }
        const auto curve = wire.port.access()->registers().sensor_settings().tone_curve;
        for (const auto& [level, expected] : levels)
            EXPECT_EQ(curve[static_cast<std::size_t>(level)], expected)
                << level << " at " << brightness << ", " << contrast << ", " << gamma;
    }
}

std::vector<std::int64_t> software_curve(const CVorm& vorm) {
    if (vorm.settings.lut_size != 280) return {};
    return {vorm.settings.lut->gamma, vorm.settings.lut->contrast, vorm.settings.lut->brightness};
}

TEST(ToneCurve, IsAppliedInSoftwareWhereTheCameraDoesNotTakeIt) {
    Wire without("mira13c", [](DeviceOptions& options) { options.camera.message_mask = ~1u; });
    for (const auto& wanted : {std::pair{5u, 220}, {1u, 120}, {0u, -30}})
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_property_set(without.camera, wanted.first, wanted.second, 0), 0); }),
                  "tovix message 0 is not supported\n");
    EXPECT_EQ(software_curve(*without.camera->vorm), (std::vector<std::int64_t>{220, 120, -30}));
    Wire wire;
    wire.plant({.place = Place::kRegisterWrite, .address = 0x5080});
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_GAMMA, 200, 0), 0);
    EXPECT_EQ(software_curve(*wire.camera->vorm), (std::vector<std::int64_t>{200, 100, 0}));
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_GAMMA, 180, 0), 0);
    EXPECT_EQ(wire.camera->vorm->settings.lut_size, 0u) << "the camera applies it again, and nobody else";
    wire.camera->vorm->SetGamma(150, 15);
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_GAMMA, 180, 0), 0);
    EXPECT_EQ(software_curve(*wire.camera->vorm), (std::vector<std::int64_t>{150, 100, 0})) << "an application's own";
}

// ---- Messages ------------------------------------------------------------------------------------------------------

TEST(Messages, GoInPieces) {
    Wire wire("mira13c", [](DeviceOptions& options) { options.camera.message_mask = UINT32_MAX; });
    std::vector<std::uint8_t> data(300), back(300);
    std::iota(data.begin(), data.end(), std::uint8_t{1});
    EXPECT_EQ(cam_write_message(wire.camera, 31, data.data(), 300), 0);
    EXPECT_EQ(cam_read_message(wire.camera, 31, back.data(), 300), 0);
    EXPECT_EQ(back, data);
    const std::string chosen = "< 4FF8 4, > 4FFC 4, ";
    EXPECT_EQ(passed(wire), chosen + "> 5000 256, > 5100 44, " + chosen + "< 5000 256, < 5100 44, ");
    EXPECT_EQ(cam_write_message(wire.camera, 0, data.data(), 65), 0);
    EXPECT_EQ(cam_write_message(wire.camera, 1, data.data(), 256), 0);
    EXPECT_EQ(passed(wire), chosen + "> 5000 64, > 5040 1, " + chosen + "> 5000 256, ");
    wire.plant({.place = Place::kRegisterRead, .address = 0x5100});
    EXPECT_EQ(cam_read_message(wire.camera, 1, back.data(), 300), kIOUSBPipeStalled);
    wire.plant({.place = Place::kRegisterWrite, .address = TOVIX_MSG_SELECT});
    EXPECT_EQ(cam_read_message(wire.camera, 1, back.data(), 300), -1);
    wire.plant({.place = Place::kRegisterRead, .address = TOVIX_MSG_MASK});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(cam_read_message(wire.camera, 1, back.data(), 300), -1); }), kReadFailed);
    EXPECT_EQ(passed(wire), chosen + "< 5000 256, < 5100 44, " + chosen + "< 4FF8 4, ") << "nothing follows a failure";
}

TEST(Messages, RefusesWhatCannotBeOne) {
    Wire wire("mira13c", [](DeviceOptions& options) { options.camera.message_mask = ~2u; });
    std::vector<std::uint8_t> data(0xB001);
    for (const int length : {-1, INT_MIN, 0xB001, INT_MAX})
        EXPECT_EQ(cam_read_message(wire.camera, 0, data.data(), length), TOVIX_EINVAL) << length;
    EXPECT_EQ(cam_write_message(wire.camera, 0, nullptr, 1), TOVIX_EINVAL);
    EXPECT_EQ(passed(wire), "");
    EXPECT_EQ(cam_read_message(wire.camera, 2, data.data(), 0xB000), 0) << "up to the last address";
    wire.take();
    for (const std::uint32_t message : {1u, 32u, 34u, UINT32_MAX})
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(cam_write_message(wire.camera, message, data.data(), 8), TOVIX_EINVAL); }),
                  "tovix message " + std::to_string(message) + " is not supported\n");
    EXPECT_EQ(passed(wire), "< 4FF8 4, < 4FF8 4, < 4FF8 4, < 4FF8 4, ");
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(cam_read_message(wire.camera, 2, nullptr, 0), -1); }),
              "error: unable to write register to camera\n");
    EXPECT_EQ(passed(wire), "< 4FF8 4, > 4FFC 4, ");
}

// ---- Temperature ---------------------------------------------------------------------------------------------------

/// temp_on, fan_on, temp_value
std::vector<int> mirrors(_tovix* camera) {
    return {camera->temp_on, camera->fan_on, static_cast<std::int8_t>(camera->temp_value)};
}

TEST(Temperature, IsLimitedToTheCamerasBounds) {
    const std::string write = "control 40 12 value=0000 index=";
    Wire wire;
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_TEMPERATURE, -500, 0x8001), 0);
    EXPECT_EQ(wire.take(),
              (Lines{write + "0690 length=4 done 4: 01 80 00 00", write + "0694 length=4 done 4: E2 FF FF FF",
                     write + "0730 length=4 done 4: 01 80 00 00"}));
    EXPECT_EQ(mirrors(wire.camera), (std::vector{1, 1, -30}));
    for (const auto& [value, limited] : {std::pair{INT_MAX, 30}, {31, 30}, {-7, -7}, {INT_MIN, -30}}) {
        EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_TEMPERATURE, value, 0), 0);
        EXPECT_EQ(mirrors(wire.camera), (std::vector{0, 0, limited}));
    }
    wire.camera->temp_min = 20, wire.camera->temp_max = -20;
    EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_TEMPERATURE, 0, 0), 0);
    EXPECT_EQ(mirrors(wire.camera), (std::vector{0, 0, -20})) << "the upper bound has the last word";
}

TEST(Temperature, FailuresLeaveWhatWasNotWritten) {
    const struct {
        std::uint32_t address;
        std::string name, passed;
        std::vector<int> mirrors;
    } cases[] = {
        {0x0690, "TOVIX_TEMPERATURE + TOVIX_PROPERTY_FLAGVAL", "> 0690 4, ", {0, 0, 25}},
        {0x0694, "TOVIX_TEMPERATURE + TOVIX_PROPERTY_CURVAL", "> 0690 4, > 0694 4, ", {0, 0, 25}},
        {0x0730, "TOVIX_FAN", "> 0690 4, > 0694 4, > 0730 4, ", {1, 0, 5}},
    };
    for (const auto& each : cases) {
        Wire wire;
        wire.plant({.place = Place::kRegisterWrite, .address = each.address});
        const auto call = [&] { EXPECT_EQ(tovix_property_set(wire.camera, TOVIX_PROP_TEMPERATURE, 5, 0x8000), -1); };
        EXPECT_EQ(printed_by(call), kWriteFailed + ("error: unable to write param '" + each.name + "'\n"));
        EXPECT_EQ(mirrors(wire.camera), each.mirrors) << each.name;
        EXPECT_EQ(passed(wire), each.passed);
    }
}

TEST(Temperature, IsLeftAloneWhereThereIsNone) {
    Wire without("mira13c", [](DeviceOptions& options) { options.camera.temperature_control = false; });
    EXPECT_EQ(tovix_property_set(without.camera, TOVIX_PROP_TEMPERATURE, 5, 0x8000), TOVIX_EINVAL);
    EXPECT_EQ(passed(without), "");
    EXPECT_EQ(range_of(without.camera, TOVIX_PROP_TEMPERATURE).flags, 0u);
    Wire fanless("mira13c", [](DeviceOptions& options) { options.camera.fan = false; });
    EXPECT_EQ(tovix_property_set(fanless.camera, TOVIX_PROP_TEMPERATURE, 5, 0x8000), 0);
    EXPECT_EQ(passed(fanless), "> 0690 4, > 0694 4, ");
    EXPECT_EQ(mirrors(fanless.camera), (std::vector{1, 0, 5}));
}

TEST(Temperature, InKelvinAndBack) {
    for (const auto& [celsius, reg] : {std::pair{25.0f, 298'000u}, {-273.0f, 0u}, {-300.0f, 0u}, {5e6f, UINT32_MAX}}) {
        std::uint32_t word = 99;
        tovix_temp_to_register(celsius, &word);
        EXPECT_EQ(word, reg) << celsius;
    }
    float celsius = 99;
    tovix_register_to_temp(298'150, &celsius);
    EXPECT_EQ(celsius, 25.15f);
}

// ---- Notifications -------------------------------------------------------------------------------------------------

TEST(Notifications, HaveFourSlots) {
    Wire wire;
    int context = 0;
    const tovix_notification callback = [](void*, std::uint32_t) {};
    for (int slot = 0; slot < 4; ++slot)
        EXPECT_EQ(tovix_enable_callback_notification(wire.camera, 7, callback, &context), slot);
    EXPECT_EQ(tovix_enable_callback_notification(wire.camera, 7, callback, &context), TOVIX_ENOSLOT);
    EXPECT_EQ(tovix_disable_callback_notification(wire.camera, 2), 0);
    EXPECT_TRUE(wire.camera->callbacks[2].callback == nullptr && wire.camera->callbacks[2].context == nullptr);
    for (const int id : {2, 4, -1, INT_MIN})
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_disable_callback_notification(wire.camera, id), TOVIX_EINVAL); }),
                  "error: invalid callback ID '" + std::to_string(id) + "' when disabling callback\n");
    EXPECT_EQ(tovix_enable_callback_notification(wire.camera, 9, nullptr, &context), 2);
    EXPECT_TRUE(wire.camera->callbacks[2].context == &context && wire.camera->callbacks[2].type == 9);
}

}  // namespace
