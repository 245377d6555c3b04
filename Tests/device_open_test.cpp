// SPDX-License-Identifier: Apache-2.0
// Opening, enumerating and closing cameras.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "search.h"
#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;
namespace simulator = tovix::simulator;
using tovix::platform::Operation;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// The register answers with that, and goes on doing so.
Fault lie(std::uint32_t address, std::uint32_t value) {
    Fault fault{.place = Place::kRegisterRead, .kind = FaultKind::kHostileValue};
    fault.address = address, fault.value = value;
    fault.times = Fault::kForEver;
    return fault;
}

TEST(Open, ColourCodesDecideTheLayout) {
    const struct {
        std::uint32_t code, is_color, color_id;
        const char* printed;
    } cases[] = {{0, 0, 0, ""},
                 {5, 0, 0, ""},
                 {24, 1, 8, "format: rggb\n"},
                 {13, 1, 9, "format: grbg\n"},
                 {10, 1, 10, "format: gbrg\n"},
                 {27, 1, 11, "format: bggr\n"},
                 {7, 0, 0, "error: unsupported image format 7\n"},
                 {0xFFFFFFFF, 0, 0, "error: unsupported image format FFFFFFFF\n"}};
    for (const auto& expected : cases) {
        SimulatedBus bus;
        Port& port = bus.attach("mira13c", DeviceOptions::State::kReady,
                                [&](DeviceOptions& options) { options.camera.color_inquiry = expected.code; });
        const std::string text = printed_by([&] {
            OpenCamera camera;
            EXPECT_EQ(tovix_is_color(camera), static_cast<int>(expected.is_color)) << expected.code;
            EXPECT_EQ(camera->color_id, expected.color_id);
        });
        EXPECT_TRUE(contains(text, expected.printed)) << expected.code << ": " << text;
        EXPECT_EQ(contains(text, "format"), *expected.printed != '\0');
        EXPECT_EQ(port.access()->registers().read(TOVIX_FO_COLOR_ID), expected.color_id) << "told to the camera";
    }
}

TEST(Open, DataRatesComeInPairs) {
    for (const char* model : {"mira13c", "atlas13c"}) {
        for (const std::uint16_t count : std::initializer_list<std::uint16_t>{0, 1, 2, 5, 1000}) {
            SimulatedBus bus;
            Port& port = bus.attach(model, DeviceOptions::State::kReady, [&](DeviceOptions& options) {
                options.camera.data_rates.clear();
                for (std::uint16_t i = 0; i < count; ++i)
                    options.camera.data_rates.push_back(static_cast<std::uint16_t>(100 + i));
            });
            OpenCamera camera;
            std::vector<std::uint32_t> rates(2000, 7);
            ASSERT_EQ(tovix_count_available_data_rates(camera), count);
            EXPECT_EQ(tovix_enum_available_data_rates(camera, rates.data(), 2000), count);
            for (std::uint32_t i = 0; i < count; ++i)
                EXPECT_EQ(rates[i], 100 + i);
            EXPECT_EQ(rates[count], 7u) << "nothing beyond the last";
            EXPECT_EQ(tovix_enum_available_data_rates(camera, rates.data(), 0), 0);
            EXPECT_EQ(tovix_enum_available_data_rates(camera, rates.data(), -3), -3);
            if (count == 0) continue;
            // With an FPGA the last rate is the default, without one the first.
            const bool has_fpga = std::string_view(model) == "mira13c";
            EXPECT_EQ(port.access()->registers().read(TOVIX_FO_KPS), has_fpga ? 99u + count : 100u);
        }
    }
}

TEST(Open, ACountBeyondAnyCameraIsUnreadable) {
    SimulatedBus bus;
    bus.attach().access().plant(lie(TOVIX_FO_KPS_ARRAY_CNT, 65'536));
    _tovix* camera = nullptr;
    tovix_version wanted{};
    wanted.product_id = 0x0113;
    const std::string text = printed_by([&] { EXPECT_EQ(tovix_camera_open(&camera, &wanted), 0); });
    EXPECT_EQ(camera, nullptr);
    EXPECT_TRUE(
        text.ends_with("error: unable to read param 'TOVIX_FO_KPS_ARRAY_CNT'\nerror: unable to open usb device\n"))
        << text;
}

TEST(Open, FanFollowsTheTemperatureControl) {
    const struct {
        std::uint32_t temperature, fan, fan_after;
    } cases[] = {{0x80008000, 0x80000000, 0x80008000},
                 {0x80000000, 0x80008123, 0x80000123},
                 {0x80008000, 0x80008000, 0x80008000},
                 {0x00008000, 0x80000000, 0x80000000}};
    for (const auto& [temperature, fan, fan_after] : cases) {
        SimulatedBus bus;
        Port& port = bus.attach();
        unsigned writes = 0;
        port.access().plant(lie(TOVIX_TEMPERATURE, temperature));
        port.access()->registers().write(TOVIX_FAN, fan);
        port.access()->set_observer([&](const simulator::Transfer& transfer) {
            writes += transfer.setup.request_type == 0x40 && transfer.setup.index == TOVIX_FAN;
        });
        OpenCamera();
        EXPECT_EQ(port.access()->registers().read(TOVIX_FAN), fan_after);
        EXPECT_EQ(writes, fan == fan_after ? 0u : 1u) << std::hex << temperature << " " << fan;
    }
}

TEST(Open, ChoosesBySerialNumberAndProduct) {
    SimulatedBus bus;
    for (const char* model : {"mira13c", "mira13m", "mira13c", "lyra14c-2", "atlas13c"})
        bus.attach(model);
    tovix_version records[5] = {};
    std::uint32_t count = 2;
    EXPECT_EQ(tovix_enum_cameras(records, &count), 5) << "more than there is room for";
    EXPECT_EQ(count, 5u);
    EXPECT_EQ(records[2].product_id, 0u) << "nothing beyond the room";
    EXPECT_EQ(tovix_enum_cameras(records, &count), 5);
    for (const tovix_version& record : records) {
        _tovix* camera = nullptr;
        ASSERT_EQ(tovix_camera_open(&camera, &record), 0);
        ASSERT_NE(camera, nullptr);
        tovix_version opened{};
        EXPECT_EQ(tovix_get_version(camera, &opened), 0);
        EXPECT_EQ(std::memcmp(&opened, &record, sizeof record), 0);
        EXPECT_EQ(tovix_camera_close(&camera), 0);
        EXPECT_EQ(camera, nullptr);
    }
    _tovix* camera = nullptr;
    tovix_version wanted = records[0];
    wanted.serial_number = 77;
    EXPECT_EQ(tovix_camera_open(&camera, &wanted), 0);
    EXPECT_EQ(camera, nullptr) << "no camera has that serial number";
    EXPECT_EQ(tovix_camera_open_by_pid(&camera, 0x8114), 0) << "bit 15 does not count";
    ASSERT_NE(camera, nullptr);
    char name[8] = "untouch";
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_get_model_name(camera, name, 7), TOVIX_EINVAL); }),
              "error: provided string is too small for model name");
    EXPECT_STREQ(name, "untouch");
    EXPECT_EQ(tovix_get_model_name(camera, name, -1), TOVIX_EINVAL);
    EXPECT_EQ(tovix_get_model_name(camera, name, 8), 0);
    EXPECT_STREQ(name, "mira13m");
    // An open camera is somebody's: enumeration reports it and goes on.
    EXPECT_TRUE(contains(printed_by([&] { EXPECT_EQ(tovix_enum_cameras(records, &count), 4); }),
                         "usb_open_device: usb device open error: Device or resource busy\n"
                         "error: unable to open USB device during enumeration\n"));
    tovix_camera_close(&camera);
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_camera_open_by_pid(&camera, 0x7777), -1); }),
              "error: unable to find specified camera");
    EXPECT_EQ(tovix_camera_open(&camera, nullptr), -1);
    EXPECT_EQ(tovix_camera_open(nullptr, &wanted), -1);
    EXPECT_EQ(tovix_camera_close(nullptr), 0);
    EXPECT_EQ(tovix_enum_cameras(nullptr, &count), -1);
}

TEST(Open, WithoutCamerasThereIsNothing) {
    SimulatedBus bus;
    std::uint32_t count = 3;
    tovix_version records[3];
    EXPECT_EQ(tovix_enum_cameras(records, &count), 0);
    EXPECT_EQ(count, 0u);
    _tovix* camera = nullptr;
    EXPECT_EQ(tovix_camera_open_any(&camera), -1);
    EXPECT_EQ(tovix_camera_open_by_pid(&camera, 0x0113), 0);
    EXPECT_EQ(camera, nullptr);
}

/// A bring-up, enumeration and open, with whatever results it has.
void visit_cameras() {
    usb_init = 0;
    tovix_init(TOVIX_RESOURCES);
    tovix_version records[4];
    std::uint32_t count = 4;
    tovix_enum_cameras(records, &count);
    _tovix* camera = nullptr;
    if (tovix_camera_open_any(&camera) == 0 && camera != nullptr) {
        const _tovix_frame_format format = format_of(640, 480);
        tovix_set_video_format(camera, &format);
        tovix_camera_close(&camera);
    }
}

/// Once the trouble is over, the camera opens as if nothing had been.
void expect_healthy(SimulatedBus& bus, int product_id) {
    bus->step(2'000'000);  // a device that got its firmware, or was pulled out, may still be on its way back
    visit_cameras();
    _tovix* camera = nullptr;
    EXPECT_EQ(tovix_camera_open_by_pid(&camera, product_id), 0);
    EXPECT_NE(camera, nullptr);
    tovix_camera_close(&camera);
}

TEST(Open, AnyFailingOperationLeavesNoObjectBehind) {
    // Every platform operation of a bring-up fails once, in every way that an operation can be refused. The
    // bus's destructor counts the objects that are left over.
    for (const IOReturn status : {kIOReturnError, kIOReturnNoDevice, kIOReturnNoMemory, kIOReturnExclusiveAccess}) {
        std::uint64_t operations = 1;
        for (std::uint32_t step = 0; step < operations; ++step) {
            SCOPED_TRACE(testing::Message() << "operation " << step << " fails with " << std::hex << status);
            SimulatedBus bus;
            bus.attach("mira13c", DeviceOptions::State::kBare);
            if (step % 2 == 0) bus.attach("atlas13c", DeviceOptions::State::kReady);
            bus->plant({.operation = Operation::kCount, .skip = step, .times = 1, .status = status});
            StderrCapture quiet;
            visit_cameras();
            operations = bus->operations();
            bus->clear_faults();
            expect_healthy(bus, 0x0113);
        }
        EXPECT_GT(operations, 100u);
    }
}

TEST(Open, ADeviceThatFailsAtAnyTransferIsLeftCleanly) {
    for (std::size_t i = 0; i < simulator::kPlaces * simulator::kFaultKinds; ++i) {
        const auto place = static_cast<Place>(i / simulator::kFaultKinds);
        const auto kind = static_cast<FaultKind>(i % simulator::kFaultKinds);
        if (!simulator::is_possible(place, kind) || place == Place::kMoment) continue;
        bool strikes = true;
        for (std::uint32_t skip = 0; strikes; ++skip) {  // the first transfer of its sort fails, then the second, ...
            SCOPED_TRACE(testing::Message() << "place " << i / simulator::kFaultKinds << ", kind "
                                            << i % simulator::kFaultKinds << ", skip " << skip);
            SimulatedBus bus;
            Port& port = bus.attach("lyra03c", DeviceOptions::State::kBare);
            port.access().plant({.place = place, .kind = kind, .skip = skip, .value = 0xFFFFFFFF});
            StderrCapture quiet;
            visit_cameras();
            {
                const auto device = port.access();
                strikes = !device->faults().pending() && !device.host_faults().pending();
                device.clear_faults();
            }
            if (kind == FaultKind::kUnplug) port.access()->plug_in();
            if (kind == FaultKind::kHostileValue) port.access()->replug();  // its identity is asked for once
            expect_healthy(bus, 0x0203);
        }
    }
}

/// Registers that an open and a close read.
std::set<std::uint16_t> registers_read() {
    std::set<std::uint16_t> addresses;
    SimulatedBus bus;
    bus.attach("lyra03c").access()->set_observer([&](const simulator::Transfer& transfer) {
        if (transfer.setup.request_type == 0xC0) addresses.insert(transfer.setup.index);
    });
    OpenCamera();
    return addresses;
}

TEST(Open, HostileRegistersDoNoHarm) {
    const std::set<std::uint16_t> addresses = registers_read();
    EXPECT_GE(addresses.size(), 10u);
    for (const std::uint16_t address : addresses) {
        for (const std::uint32_t value : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            SCOPED_TRACE(testing::Message() << std::hex << address << " answers " << value);
            SimulatedBus bus(Pace::kAsFastAsItGoes);
            Port& port = bus.attach("lyra03c");
            port.access().plant(lie(address, value));
            StderrCapture quiet;
            _tovix* camera = nullptr;
            const bool opened = tovix_camera_open_any(&camera) == 0;
            EXPECT_EQ(opened, camera != nullptr);
            if (opened && tovix_enable_streaming(camera) == 0 && tovix_start_streaming(camera) == 0) {
                EXPECT_EQ(tovix_stop_streaming(camera), 0);
            }
            tovix_camera_close(&camera);
            port.access().clear_faults();
            expect_healthy(bus, 0x0203);
        }
    }
}

}  // namespace
