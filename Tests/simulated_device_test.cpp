// SPDX-License-Identifier: Apache-2.0
// The simulated device: its registers, how a host sees it on the wire, and the faults that are planted in it.
#include "simulated_device.h"

#include <algorithm>

#include "registers.h"
#include "simulated_bus.h"

namespace {

using namespace tovix::test;
using namespace tovix::simulator;
using Bytes = std::vector<std::uint8_t>;

// ---- Registers -----------------------------------------------------------------------------------------------------

constexpr std::uint16_t kExposure = 0x04A0, kGain = 0x04F0, kGainRed = 0x0500, kTemperature = TOVIX_TEMPERATURE;

TEST(Registers, TakeWhatACameraCanDo) {
    const struct {
        const char* model;
        int address;
        std::uint32_t written, read;
    } cases[] = {
        {"mira13c", kExposure + TOVIX_PROPERTY_CURVAL, 12'345, 12'345},
        {"mira13c", kExposure + TOVIX_PROPERTY_CURVAL, 0, 10},
        {"mira13c", kExposure + TOVIX_PROPERTY_CURVAL, 0x80000000, 10},
        {"mira13c", kExposure + TOVIX_PROPERTY_CURVAL, 0x7FFFFFFF, 60'000'000},
        {"mira13c", kExposure + TOVIX_PROPERTY_MINVAL, 5, 10},
        {"mira13c", kExposure + TOVIX_PROPERTY_MAXVAL, 5, 60'000'000},
        {"mira13c", kGain, 0x00008000, 0x80008000},  // what is there cannot be written away
        {"mira13c", kGainRed + TOVIX_PROPERTY_CURVAL, 99'999, 16'384},
        {"mira13m", kGainRed + TOVIX_PROPERTY_CURVAL, 8192, 4096},  // no such gain
        {"mira13m", kGainRed, 0x80000000, 0},
        {"mira13c", TOVIX_FO_MAX_SIZE, 0, 0x04000500},
        {"mira13c", TOVIX_FO_COLOR_INQ, 5, 8},
        {"mira13c", TOVIX_FIRMWARE_VERSION, 5, 0x00010203},
        {"mira13c", TOVIX_FO_SIZE, 0x00F1'0147, 0x00F0'0140},  // 16 columns, 2 rows
        {"mira13c", TOVIX_FO_SIZE, 0, 0x0002'0010},
        {"mira13c", TOVIX_FO_SIZE, 0xFFFF'FFFF, 0x0400'0500},
        {"mira13c", TOVIX_FO_POSITION, 0x0010'0010, 0},  // the whole sensor is read
        {"mira13c", TOVIX_FO_SUBSAMPLING, 0, 0x0001'0001},
        {"mira13c", TOVIX_FO_SUBSAMPLING, 0x0003'0009, 0x0003'0004},
        {"mira20c", TOVIX_FO_SUBSAMPLING, 0x0002'0002, 0x0001'0001},
        {"mira13c", TOVIX_FO_KPS, 27'000, 27'000},
        {"mira13c", TOVIX_FO_KPS, 12'345, 5'000},  // not one of its rates
        {"mira13c", TOVIX_FAN, 0x8123, 0x80008123},
        {"mira13c", TOVIX_MSG_MASK, 0, 3},
        {"mira13c", 0x0ABC, 7, 0},
    };
    for (const auto& [model, address, written, read] : cases) {
        Registers registers(options_of(model).camera);
        registers.write(static_cast<std::uint16_t>(address), written);
        EXPECT_EQ(registers.read(static_cast<std::uint16_t>(address)), read)
            << model << std::hex << " " << address << " = " << written;
    }
    CameraSetup bare = options_of("mira13c").camera;
    bare.fan = bare.temperature_control = false;
    Registers registers(bare);
    for (const int address : {+TOVIX_FAN, +TOVIX_TEMPERATURE}) {
        registers.write(static_cast<std::uint16_t>(address), 0x80008000);
        EXPECT_EQ(registers.read(static_cast<std::uint16_t>(address)), 0u) << "not there";
    }
}

TEST(Registers, AreaStaysOnTheSensor) {
    Registers registers(options_of("mira13c").camera);
    registers.write(TOVIX_FO_SIZE, pair(640, 480));
    registers.write(TOVIX_FO_POSITION, pair(1000, 100));
    EXPECT_EQ(registers.read(TOVIX_FO_POSITION), pair(640, 100));
    registers.write(TOVIX_FO_SIZE, pair(1280, 480));
    EXPECT_EQ(registers.read(TOVIX_FO_POSITION), pair(0, 100)) << "makes way for a larger area";
}

TEST(Registers, FramesTakeTheirExposureOrTheirReadout) {
    Registers registers(options_of("mira13c").camera);
    registers.write(kExposure + TOVIX_PROPERTY_CURVAL, 1000);
    registers.write(TOVIX_FO_SIZE, pair(800, 500));
    registers.write(TOVIX_FO_KPS, 40'000);
    EXPECT_EQ(registers.frame_period_us(), 10'000) << "400,000 pixels at 40 million a second";
    registers.write(TOVIX_FO_SUBSAMPLING, pair(2, 2));
    EXPECT_EQ(registers.frame_period_us(), 2'500);
    registers.write(kExposure + TOVIX_PROPERTY_CURVAL, 70'000);
    EXPECT_EQ(registers.frame_period_us(), 70'000);
}

TEST(Registers, KeepTheMessagesTheyKnowOfWhichTheFirstIsTheToneCurve) {
    CameraSetup setup = options_of("lyra03m").camera;
    setup.message_mask = 5;
    Registers registers(setup);
    ToneCurve inverse = straight_tone_curve();
    std::ranges::reverse(inverse);
    for (const std::uint32_t message : {1u, 2u, 77u, 0u}) {
        registers.write(TOVIX_MSG_SELECT, message);
        registers.write_message(TOVIX_MSG_DATA, inverse.data(), 100);
        registers.write_message(TOVIX_MSG_DATA + 100, inverse.data() + 100, 156);
        std::uint8_t back[3] = {};
        registers.read_message(TOVIX_MSG_DATA + 99, back, 3);
        EXPECT_EQ(back[0], message == 0 || message == 2 ? 156 : 0) << "message " << message;
        EXPECT_EQ(registers.sensor_settings().tone_curve == inverse, message == 0) << "message " << message;
    }
}

TEST(Registers, TemperatureGoesToItsSetPoint) {
    constexpr std::int64_t kSecond = 1'000'000;
    for (const std::int64_t step_us : {20 * kSecond, kSecond / 10}) {
        Registers registers(options_of("mira13c").camera);
        auto temperature_after = [&, now_us = std::int64_t{0}](std::int64_t seconds) mutable {
            for (const std::int64_t end_us = now_us + seconds * kSecond; now_us < end_us;)
                registers.advance(now_us += step_us);
            return static_cast<std::int32_t>(registers.read(kTemperature + TOVIX_PROPERTY_CURVAL));
        };
        registers.write(kTemperature + TOVIX_PROPERTY_CURVAL, static_cast<std::uint32_t>(-99));
        EXPECT_EQ(temperature_after(100), 25) << "not switched on";
        registers.write(TOVIX_TEMPERATURE, 0x8000);
        EXPECT_EQ(temperature_after(20), -10) << "all but one e-th of the way to -30";
        EXPECT_EQ(temperature_after(200), -30) << "its least";
        EXPECT_EQ(registers.sensor_settings().temperature, -30);
        registers.write(TOVIX_TEMPERATURE, 0);
        EXPECT_EQ(temperature_after(200), 25);
    }
}

// ---- On the wire ---------------------------------------------------------------------------------------------------

struct Read final : BulkRead {
    Read() {
        data = bytes.data();
        size = static_cast<std::uint32_t>(bytes.size());
    }
    void finished(Outcome result, std::uint32_t count) override {
        outcome = result;
        bytes.resize(count);
    }
    Bytes bytes = Bytes(640 * 480, 0x77);
    std::optional<Outcome> outcome;
};

/// A camera whose video runs, with nobody in between.
struct Streaming {
    Streaming() {
        device.plug_in();
        device.control({usb::kInterface, usb::kSetInterface, 2, 0, 0}, nullptr);
        Bytes on{0x80, 0, 0, 0};
        device.control({usb::kVendorType, 0x12, 0, TOVIX_VIDEO_SWITCH, 4}, on.data());
        device.advance(device.next_event_us());
    }
    Read read() {
        Read next;
        device.bulk_in(Descriptors::kInEndpoint, next);
        if (!next.outcome) device.advance(device.next_event_us());
        device.cancel(next);
        return next;
    }
    Device device{[] {
        DeviceOptions options = options_of("lyra03m");
        options.mark_frames = true;
        return options;
    }()};
};

TEST(SimulatedDevice, AFaultyReadLosesTheRestOfItsFrameAndNoMore) {
    constexpr std::size_t kFrame = 640 * 480;
    Streaming healthy;
    const Bytes first = healthy.read().bytes, second = healthy.read().bytes;
    ASSERT_EQ(first.size(), kFrame);
    ASSERT_NE(first, second);
    const struct {
        FaultKind kind;
        std::optional<Outcome> outcome;
        Bytes bytes;
    } cases[] = {
        {FaultKind::kShortAnswer, Outcome::kDone, Bytes(first.begin(), first.begin() + kFrame / 2)},
        {FaultKind::kEmptyAnswer, Outcome::kDone, {}},
        {FaultKind::kOverrun, Outcome::kOverrun, first},
        {FaultKind::kStall, Outcome::kStall, {}},
        {FaultKind::kHostileValue, Outcome::kDone, Bytes(kFrame, 0xA5)},
    };
    for (const auto& [kind, outcome, bytes] : cases) {
        Streaming faulty;
        faulty.device.faults().plant({.place = Place::kBulkIn, .kind = kind, .value = 0xA5A5A5A5});
        const Read read = faulty.read();
        EXPECT_EQ(read.outcome, outcome);
        EXPECT_TRUE(read.bytes == bytes) << static_cast<int>(kind);
        if (kind == FaultKind::kStall) {
            EXPECT_EQ(faulty.read().outcome, Outcome::kStall) << "the pipe is halted";
        }
        faulty.device.control({usb::kEndpoint, usb::kClearFeature, 0, Descriptors::kInEndpoint, 0}, nullptr);
        EXPECT_TRUE(faulty.read().bytes == second) << static_cast<int>(kind);
    }
    Streaming silent;
    silent.device.faults().plant({.place = Place::kBulkIn, .kind = FaultKind::kTimeout});
    EXPECT_EQ(silent.read().outcome, std::nullopt);
    EXPECT_TRUE(silent.read().bytes == second);
}

TEST(SimulatedDevice, AMomentComesOnceWhateverElseItsRecordSays) {
    for (const std::uint32_t number : {0u, 1u, Fault::kForEver}) {
        SimulatedBus bus;
        Port& port = bus.attach();
        {
            const auto device = port.access();
            for (const FaultKind kind : {FaultKind::kStall, FaultKind::kReplug})
                device.plant(
                    {.place = Place::kMoment, .kind = kind, .address = number, .skip = number, .times = number});
        }
        EXPECT_TRUE(port.access()->attached());  // the first of them did nothing
        EXPECT_FALSE(port.access()->attached()) << number;
        bus->step(10'000'000);
        EXPECT_TRUE(port.access()->attached()) << number;
        EXPECT_FALSE(port.access()->faults().pending());
    }
}

TEST(SimulatedDevice, IsNotShownUntilItSaysWhatItIs) {
    std::uint32_t count = 0;
    for (const FaultKind kind : {FaultKind::kStall, FaultKind::kTimeout, FaultKind::kShortAnswer,
                                 FaultKind::kEmptyAnswer, FaultKind::kHostileValue, FaultKind::kReplug}) {
        SimulatedBus bus;
        Port& port = bus.attach();
        port.access()->faults().plant(
            {.place = Place::kDescriptor, .kind = kind, .address = usb::descriptor(usb::kDeviceType), .value = 0xFFFF});
        EXPECT_EQ(tovix_enum_cameras(nullptr, &count), 0) << static_cast<int>(kind);
        if (kind == FaultKind::kHostileValue) port.access()->replug();  // a host asks once
        bus->step(2'000'000);
        count = 0;
        EXPECT_EQ(tovix_enum_cameras(nullptr, &count), 1) << static_cast<int>(kind);
        count = 0;
    }
}

}  // namespace
