// SPDX-License-Identifier: Apache-2.0
// Control and bulk transfers, registers and strings: what goes over the wire, and what comes of answers that are wrong.
#include "transport.h"

#include <cstdlib>
#include <memory>

#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;

TEST(Registers, GoOverTheWireAsVendorRequests) {
    Wire wire;
    EXPECT_EQ(tz_usb_write_tovix_two_u16(wire.camera, 0x100C, 0x0280, 0x01E0), 0);
    std::uint16_t first = 0, second = 0;
    EXPECT_EQ(tz_usb_read_tovix_two_u16(wire.camera, 0x1100C, &first, &second), 0) << "low 16 bits of the address";
    EXPECT_EQ(first, 0x0280);
    EXPECT_EQ(second, 0x01E0);
    std::uint32_t block[4] = {};
    EXPECT_EQ(tz_usb_read_tovix_array(wire.camera, 0x04A0, block, 4), 0);
    EXPECT_EQ(block[1], 10'000u);
    EXPECT_EQ(wire.lines, (std::vector<std::string>{
                              "control 40 12 value=0000 index=100C length=4 done 4: 80 02 E0 01",
                              "control C0 12 value=0000 index=100C length=4 done 4: 80 02 E0 01",
                              "control C0 12 value=0000 index=04A0 length=16 done 16: 00 00 00 80 10 27 00 00 0A 00 "
                              "00 00 00 87 93 03",
                          }));
}

TEST(Registers, RefuseWhatCannotBeTransferred) {
    Wire wire;
    std::uint32_t word = 7;
    std::vector<std::uint8_t> large(70'000);
    EXPECT_EQ(tz_usb_write_tovix_bytes(wire.camera, 0x5000, large.data(), 65'536), -1);
    EXPECT_EQ(tz_usb_read_tovix_bytes(wire.camera, 0x5000, large.data(), 70'000), -1);
    EXPECT_EQ(tz_usb_control_write(wire.camera, nullptr, 4, 0x12, 0, 0), -1);
    EXPECT_EQ(tz_usb_control_read(nullptr, &word, 4, 0x12, 0, 0), -1);
    EXPECT_EQ(tz_usb_bulk_read(wire.camera, 1, &word, 0), -1);
    for (const int count : {0, -1, INT32_MIN, 16'384, INT32_MAX}) {
        EXPECT_EQ(tz_usb_read_tovix_array(wire.camera, 0x04A0, &word, count), -1) << count;
        EXPECT_EQ(tz_usb_write_tovix_array(wire.camera, 0x04A0, &word, count), -1) << count;
    }
    EXPECT_EQ(tz_usb_read_tovix_two_u16(wire.camera, 0x1000, nullptr, nullptr), -1);
    EXPECT_TRUE(wire.lines.empty()) << "something was sent";
    EXPECT_EQ(word, 7u);
}

TEST(Registers, AFailedReadLeavesOutputsAlone) {
    for (const FaultKind kind : {FaultKind::kStall, FaultKind::kTimeout, FaultKind::kShortAnswer,
                                 FaultKind::kEmptyAnswer, FaultKind::kUnplug}) {
        Wire wire;
        wire.plant({.place = Place::kRegisterRead, .kind = kind});
        std::uint16_t first = 1, second = 2;
        EXPECT_EQ(tz_usb_read_tovix_two_u16(wire.camera, TOVIX_FO_MAX_SIZE, &first, &second), -1);
        EXPECT_EQ(first, 1);
        EXPECT_EQ(second, 2);
    }
    Wire wire;
    wire.plant({.place = Place::kRegisterRead, .kind = FaultKind::kShortAnswer});
    std::uint32_t rate = 0xDEADBEEF;
    EXPECT_EQ(tovix_get_data_rate(wire.camera, &rate), -1);
    EXPECT_EQ(rate, 0xDEADBEEF);
}

TEST(Control, OverrunIsSuccessForReadsOnly) {
    Wire wire;
    wire.plant({.place = Place::kRegisterRead, .kind = FaultKind::kOverrun});
    wire.plant({.place = Place::kRegisterWrite, .kind = FaultKind::kOverrun});
    std::uint32_t word = 0;
    EXPECT_EQ(tz_usb_control_read(wire.camera, &word, 4, 0x12, 0, TOVIX_FO_MAX_SIZE), 0);
    EXPECT_EQ(word, 0x04000500u);
    EXPECT_EQ(tz_usb_control_write(wire.camera, &word, 4, 0x12, 0, TOVIX_FO_COLOR_ID), kIOReturnOverrun);
}

TEST(Bulk, TimeoutGrowsWithTheLength) {
    // A pipe of a silent device: the time that passes is the time-out. 4 x trunc(bytes x 1000 / 1024 / 468750) ms, and
    // at least 5 s. The data is never looked at, so its pages need not exist.
    constexpr std::size_t kMost = 1'000'000'000;
    const std::unique_ptr<void, decltype(&std::free)> data(std::malloc(kMost), std::free);
    ASSERT_NE(data, nullptr);
    for (const auto& [bytes, timeout_ms] :
         {std::pair{1u, 5000}, {479'999u, 5000}, {600'479'999u, 5000}, {600'480'000u, 5004}, {1'000'000'000u, 8332}}) {
        Wire wire;
        (*wire.camera->interface)->SetAlternateInterface(wire.camera->interface, 1);
        wire.plant({.place = Place::kBulkOut, .kind = FaultKind::kTimeout});
        const std::int64_t before_us = wire.bus->now_us();
        EXPECT_EQ(tz_usb_bulk_write(wire.camera, 1, data.get(), bytes), static_cast<std::int32_t>(bytes));
        EXPECT_EQ(wire.bus->now_us() - before_us, timeout_ms * 1000) << bytes;
    }
}

TEST(Bulk, AFailedTransferLeavesThePipeReady) {
    Wire wire;
    (*wire.camera->interface)->SetAlternateInterface(wire.camera->interface, 1);
    wire.plant({.place = Place::kBulkOut, .kind = FaultKind::kStall});
    const std::uint8_t byte = 1;
    EXPECT_EQ(tz_usb_bulk_write(wire.camera, 1, &byte, 1), 1) << "a failed write still returns the length";
    EXPECT_EQ((*wire.camera->interface)->GetPipeStatus(wire.camera->interface, 1), 0);
    EXPECT_EQ(tz_usb_bulk_write(wire.camera, 2, &byte, 1), -1) << "no such pipe";
    std::uint8_t data[4];
    EXPECT_EQ(tz_usb_bulk_read(wire.camera, 1, data, 4), 0) << "an output pipe gives nothing";
}

/// The string that a device with such a descriptor is taken to have, or the result.
std::string string_of(std::vector<std::uint8_t> descriptor, int max = 32, std::int32_t* result = nullptr) {
    // A device object that answers with the descriptor, and nothing else.
    struct FakeDevice {
        const IOUSBDeviceInterface197* table;
        std::vector<std::uint8_t> descriptor;
    };
    IOUSBDeviceInterface197 table{};
    table.DeviceRequestTO = [](void* self, IOUSBDevRequestTO* request) {
        const auto& bytes = static_cast<FakeDevice*>(self)->descriptor;
        request->wLenDone = static_cast<UInt32>(std::min<std::size_t>(bytes.size(), request->wLength));
        std::copy_n(bytes.begin(), request->wLenDone, static_cast<UInt8*>(request->pData));
        return kIOReturnSuccess;
    };
    FakeDevice device{&table, std::move(descriptor)};
    _tovix camera{};
    camera.device = reinterpret_cast<IOUSBDeviceInterface197**>(&device);
    std::vector<char> text(256, '#');
    const std::int32_t status = usb_get_string_descriptor(&camera, 1, text.data(), max, 0);
    if (result != nullptr) *result = status;
    return status == 0 ? text.data() : "failed";
}

TEST(Bulk, AReadBringsAFrameOrNothingInTime) {
    Wire wire;
    const _tovix_frame_format format = format_of(64, 16);
    ASSERT_EQ(tovix_set_video_format(wire.camera, &format), 0);
    std::vector<std::uint8_t> frame(64 * 16 + 1, 0xA5);
    const std::int64_t before_us = wire.bus->now_us();
    EXPECT_EQ(tz_usb_bulk_read(wire.camera, 1, frame.data(), 64 * 16), 0) << "the video is off";
    EXPECT_EQ(wire.bus->now_us() - before_us, 5'000'000) << "the time limit of a read";

    ASSERT_EQ(tz_usb_write_tovix_u32(wire.camera, TOVIX_VIDEO_SWITCH, 0x80), 0);
    EXPECT_EQ(tz_usb_bulk_read(wire.camera, 1, frame.data(), 64 * 16), 64 * 16);
    EXPECT_NE(frame, std::vector<std::uint8_t>(frame.size(), 0xA5));
    EXPECT_EQ(frame.back(), 0xA5) << "beyond the frame";
}

TEST(Strings, AreTakenAsTheyComeAndNeverBelieved) {
    std::int32_t result = 0;
    EXPECT_EQ(string_of({6, 3, 'a', 0, 'b', 0}), "ab");
    EXPECT_EQ(string_of({2, 3}), "");
    EXPECT_EQ(string_of({0, 0}), "");
    EXPECT_EQ(string_of({}), "") << "an answer of no bytes";
    EXPECT_EQ(string_of({6, 3, 0xE9, 0, 0x41, 0x4E}),
              "\xE9"
              "A")
        << "low bytes only";
    for (const std::vector<std::uint8_t>& malformed :
         {std::vector<std::uint8_t>{5, 3, 'a', 0, 'b'}, {6, 2, 'a', 0, 'b', 0}}) {
        string_of(malformed, 32, &result);
        EXPECT_EQ(result, kIOReturnUnderrun);
    }
    std::vector<std::uint8_t> longest{254, 3};
    for (int i = 0; i < 126; ++i)
        longest.insert(longest.end(), {static_cast<std::uint8_t>('A' + i % 26), 0});
    EXPECT_EQ(string_of(longest), "ABCDEFGHIJKLMNOPQRSTUVWXYZABCDE") << "31 characters";
    EXPECT_EQ(string_of(longest, 2), "A");
    longest.resize(10);
    EXPECT_EQ(string_of(longest), "ABCD") << "the device sent less than it claims";
    string_of({6, 3, 'a', 0, 'b', 0}, 1, &result);
    EXPECT_EQ(result, -1);
}

TEST(Strings, SerialNumbersCountEveryCharacter) {
    for (const auto& [text, serial] :
         {std::pair{"0123", 123u}, {"12A", 127u}, {"", 0u}, {"1 ", 4u}, {"99999999999", 1215752191u}, {"\xE9", 5u}}) {
        SimulatedBus bus;
        Port& port = bus.attach("mira13c");
        port.access()->setup().serial_text = text;
        OpenCamera camera;
        tovix_version version{};
        EXPECT_EQ(tovix_get_version(camera, &version), 0);
        EXPECT_EQ(version.serial_number, serial) << text;
        EXPECT_EQ(version.high_speed, 1u);
        EXPECT_EQ(version.reserved, 0u);
    }
}

}  // namespace
