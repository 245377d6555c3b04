// SPDX-License-Identifier: Apache-2.0
// The simulated device as a host sees it on the wire, and the faults that are planted in it.
#include "simulated_device.h"

#include "simulated_bus.h"

namespace {

using namespace tovix::test;
using namespace tovix::simulator;
using Bytes = std::vector<std::uint8_t>;

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
