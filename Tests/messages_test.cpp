// SPDX-License-Identifier: Apache-2.0
// The messages that no other test provokes on its way, each as a whole line, with what makes it come.
#include <gtest/gtest.h>

#include "search.h"
#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;
using enum tovix::platform::Operation;

testing::AssertionResult ends_with_lines(const std::string& text, const std::string& expected) {
    if (("\n" + text).ends_with("\n" + expected)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << text << "does not end with\n" << expected;
}

std::int32_t open_mira() {
    _tovix* camera = nullptr;
    const std::int32_t result = tovix_camera_open_by_pid(&camera, 0x0113);
    tovix_camera_close(&camera);
    return result;
}

TEST(Messages, OfAnOpenWhosePlatformOperationFails) {
    const auto lost = [](const std::string& line) { return line + "\nerror: unable to open usb device\n"; };
    const auto device = [&](const std::string& what) { return lost("usb_open_device: " + what + ": No such device"); };
    const auto interface = [&](const std::string& what) {
        return what + " Err 0xe00002c0 -536870208\n" + device("unable to create usb interface");
    };
    const struct {
        tovix::platform::Operation operation;
        std::uint32_t skip;
        std::string printed;
        std::int32_t result = 0;
    } cases[] = {
        {kIOMasterPort, 0, "ERR: Couldn't create a master IOKit Port(e00002c0)\n", -1},
        {kIOServiceMatching, 0, "Can't create a USB matchingUnenumeratedDict dictionary\n", -1},
        {kCFNumberCreate, 1, "Can't create a USB matchingUnenumeratedDict dictionary\n", -1},
        {kIOServiceGetMatchingServices, 0, "error: unable to find matching services: err=E00002C0\n", -3},
        {kIOCreatePlugInInterfaceForService, 0,
         lost("IOCreatePlugInInterfaceForService(usb_device Err 0xe00002c0 -536870208")},
        {kQueryInterface, 0, device("query interface error")},
        {kGetDeviceVendor, 0, device("get device vendor error")},
        {kGetDeviceProduct, 0, device("get device product error")},
        {kGetDeviceReleaseNumber, 0, device("get device release error")},
        {kUSBDeviceOpen, 0, device("usb device open error")},
        {kGetConfigurationDescriptorPtr, 0, device("usb get config descriptor error")},
        {kSetConfiguration, 0, device("usb set config error")},
        {kCreateInterfaceIterator, 0, device("usb create interface iterator error")},
        {kIOCreatePlugInInterfaceForService, 1, interface("IOCreatePlugInInterfaceForService usb_interface")},
        {kQueryInterface, 1, interface("QueryInterface")},
        {kUSBInterfaceOpen, 0, interface("USBInterfaceOpen(ref->usb_interface_if")},
    };
    for (const auto& expected : cases) {
        SimulatedBus bus;
        bus.attach("mira13c");
        bus->plant({.operation = expected.operation, .skip = expected.skip, .times = 1, .status = kIOReturnNoDevice});
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(open_mira(), expected.result); }), expected.printed);
    }
}

TEST(Messages, OfAnOpenThatGoesOnWithoutAnAnswer) {
    const struct {
        tovix::platform::Operation operation;
        std::uint32_t skip;
        const char* printed;
    } cases[] = {
        {kGetDeviceSpeed, 0, "error: unable to read camera's device speed\n"},
        {kGetDeviceReleaseNumber, 1, "error: unable to read camera's device release number\n"},
        {kUSBGetProductStringIndex, 0, "error: unable to get camera's model name\n"},
        {kUSBGetSerialNumberStringIndex, 0, "error: unable to get camera's serial number\n"},
        {kDeviceRequestTO, 0, "error: unable to read camera's serial number\n"},
        {kDeviceRequestTO, 2, "error: unable to read camera's model name\n"},
    };
    for (const auto& [operation, skip, printed] : cases) {
        SimulatedBus bus;
        bus.attach("mira13c");
        bus->plant({.operation = operation, .skip = skip});
        _tovix* camera = nullptr;
        const std::string text = printed_by([&] { EXPECT_EQ(tovix_camera_open_by_pid(&camera, 0x0113), 0); });
        EXPECT_NE(camera, nullptr) << printed;
        EXPECT_NE(text.find(printed), std::string::npos) << printed << " not in " << text;
        tovix_camera_close(&camera);
    }
}

const std::string kUnreadable =
    "TVXUSBReadControlPipe Err 0xE000404F -536854449\nerror: unable to read register from camera\n";
const std::string kUnwritable =
    "TVXUSBWriteControlPipe Err 0xE000404F -536854449\nerror: unable to write register to camera\n";

TEST(Messages, OfRegistersThatDoNotAnswer) {
    const std::string lost = "error: unable to open usb device\n";
    const _tovix_frame_format format = format_of(64, 16);
    std::uint32_t rate = 0;
    using Call = std::function<std::int32_t(_tovix*)>;
    const Call set_format = [&](_tovix* camera) { return tovix_set_video_format(camera, &format); };
    const Call set_rate = [](_tovix* camera) { return tovix_set_data_rate(camera, 5000); };
    const Call get_rate = [&](_tovix* camera) { return tovix_get_data_rate(camera, &rate); };
    const struct {
        Place place;
        std::uint32_t address;
        const char* name;
        Call call = {};  // of an open camera; without one, of the open
    } cases[] = {
        {Place::kRegisterRead, TOVIX_FO_MAX_SIZE, "TOVIX_FO_MAX_SIZE"},
        {Place::kRegisterRead, TOVIX_FO_UNIT_SIZE, "TOVIX_FO_UNIT_SIZE"},
        {Place::kRegisterRead, TOVIX_FO_POSITION, "TOVIX_FO_POSITION"},
        {Place::kRegisterRead, TOVIX_FO_SIZE, "TOVIX_FO_SIZE"},
        {Place::kRegisterRead, TOVIX_FO_SUBSAMPLING, "TOVIX_FO_SUBSAMPLING"},
        {Place::kRegisterRead, TOVIX_FO_COLOR_INQ, "TOVIX_FO_COLOR_INQ"},
        {Place::kRegisterRead, TOVIX_FO_SUBSAMPLING_INQ, "TOVIX_FO_SUBSAMPLING_INQ"},
        {Place::kRegisterWrite, TOVIX_FO_COLOR_ID, "TOVIX_FO_COLOR_ID"},
        {Place::kRegisterRead, TOVIX_FO_KPS_MINMAX_INQ, "TOVIX_FO_KPS_MINMAX_INQ"},
        {Place::kRegisterRead, TOVIX_FO_KPS_ARRAY_CNT, "TOVIX_FO_KPS_ARRAY_CNT"},
        {Place::kRegisterRead, TOVIX_FO_KPS_ARRAY, "TOVIX_FO_KPS_ARRAY"},
        {Place::kRegisterWrite, TOVIX_FO_KPS, "TOVIX_FO_KPS"},
        {Place::kRegisterWrite, TOVIX_FO_SIZE, "TOVIX_FO_SIZE", set_format},
        {Place::kRegisterWrite, TOVIX_FO_POSITION, "TOVIX_FO_POSITION", set_format},
        {Place::kRegisterWrite, TOVIX_FO_SUBSAMPLING, "TOVIX_FO_SUBSAMPLING", set_format},
        {Place::kRegisterWrite, TOVIX_FO_KPS, "TOVIX_FO_KPS", set_rate},
        {Place::kRegisterRead, TOVIX_FO_KPS, "TOVIX_FO_KPS", get_rate},
    };
    for (const auto& c : cases) {
        const bool read = c.place == Place::kRegisterRead;
        const std::string printed = (read ? kUnreadable : kUnwritable) + "error: unable to " +
                                    (read ? "read" : "write") + " param '" + c.name + "'\n" + (c.call ? "" : lost);
        SimulatedBus bus;
        Port& port = bus.attach("mira13c");
        _tovix* camera = nullptr;
        if (c.call) {
            EXPECT_EQ(tovix_camera_open_any(&camera), 0);
        }
        port.access()->faults().plant({.place = c.place, .kind = FaultKind::kStall, .address = c.address});
        const auto provoke = [&] { EXPECT_EQ(c.call ? c.call(camera) : open_mira(), c.call ? -1 : 0) << c.name; };
        EXPECT_TRUE(ends_with_lines(printed_by(provoke), printed));
        tovix_camera_close(&camera);
    }
    // These do not keep a camera from being opened.
    for (const auto& [place, address, printed] :
         {std::tuple{Place::kRegisterRead, TOVIX_FAN, kUnreadable + "error: unable to read param 'TOVIX_FAN'\n"},
          {Place::kRegisterWrite, TOVIX_FAN, kUnwritable + "error: unable to write param 'TOVIX_FAN'\n"},
          {Place::kRegisterWrite, TOVIX_VIDEO_SWITCH, kUnwritable + "error: unable to send stop video command\n"}}) {
        SimulatedBus bus;
        Port& port = bus.attach("mira13c");
        port.access()->registers().write(TOVIX_FAN, 0x8000);
        port.access()->faults().plant({.place = place, .kind = FaultKind::kStall, .address = address});
        const std::string text = printed_by([] { EXPECT_EQ(open_mira(), 0); });
        EXPECT_NE(text.find(printed), std::string::npos) << printed << " not in " << text;
    }
}

TEST(Messages, OfTransfers) {
    SimulatedBus bus;
    Port& port = bus.attach("mira13c");
    OpenCamera camera;
    std::uint32_t word = 0;
    const auto plant = [&](Place place, FaultKind kind) {
        port.access()->faults().plant({.place = place, .kind = kind});
    };
    plant(Place::kRegisterRead, FaultKind::kShortAnswer);
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tz_usb_read_tovix_u32(camera, TOVIX_FO_SIZE, &word), -1); }),
              "TVXUSBReadControlPipe Err 0xFFFFFFFF -1\nerror: unable to read register from camera\n");
    plant(Place::kRegisterWrite, FaultKind::kOverrun);
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tz_usb_write_tovix_u32(camera, TOVIX_FO_COLOR_ID, 8), -1); }),
              "TVXUSBWriteControlPipe Err 0xE00002E8 -536870168\nerror: unable to write register to camera\n");
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tz_usb_read_tovix_u32(nullptr, 0, &word), -1); }),
              "error: camera reference cannot be NULL\n");
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tz_usb_bulk_read(camera, 9, &word, 4), -1); }),
              "pipe is not ready: status=E0004061\n");
    bus->plant({.operation = kReadPipeTO, .skip = 0, .times = 1, .status = kIOUSBTransactionTimeout});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tz_usb_bulk_read(camera, 1, &word, 4), 0); }),
              "myUSBReadBulkPipe WritePipeTO failed 0xE0004051 -536854447\n");
}

TEST(Messages, OfStartUp) {
    const std::string first = "Raw device added.\n";
    const std::string ids = first + "VID = 0xE6C1\nPID = 0x8113\n";
    const std::string opened = ids + "DID = 0x0\n";
    const std::string reset = "myAnchorFX2WriteFirmWare reset FX2 successfully\n";
    const std::string failed = "unable to download to device: -1 ffffffff\n";
    const struct {
        tovix::platform::Operation operation;
        std::uint32_t skip;
        std::string printed;
    } bare[] = {
        {kIOCreatePlugInInterfaceForService, 0, first + "unable to create a plugin (e00002bc)\n"},
        {kQueryInterface, 0, first + "couldn't create a device interface (e00002bc)\n"},
        {kGetDeviceVendor, 0, first + "GetDeviceVendor err -536870212\n"},
        {kGetDeviceProduct, 0, first + "VID = 0xE6C1\nGetDeviceProduct  err -536870212\n"},
        {kGetDeviceReleaseNumber, 0, ids + "GetDeviceReleaseNumber err -536870212\nDID = 0x0\n" + reset},
        {kUSBDeviceOpen, 0, opened + "unable to open device: e00002bc\n"},
        {kGetConfigurationDescriptorPtr, 0,
         opened + "unable to get config descriptor for index 0 (err = e00002bc)\n" + failed},
        {kSetConfiguration, 0, opened + "unable to set configuration to value 1 (err=e00002bc)\n" + failed},
        {kDeviceRequestTO, 0, opened + "error: unable to write data to FX2\n" + failed},
        {kDeviceRequestTO, 9, opened + reset + "error: unable to write data to FX2\n" + failed},
        {kDeviceRequestTO, 61, opened + reset + "error: unable to write data to FX2\n" + failed},
        {kIOServiceGetMatchingServices, 1,
         "error: unable to find matching services: err=E00002BC\n"
         "Error: could not find cameras using PID 0x0000E6C2\n"},
        {kIOServiceGetMatchingServices, 3,
         "error: unable to find matching services: err=E00002BC\n"
         "Error: could not find camera using PID 0x00000113\n"},
    };
    for (const auto& [operation, skip, printed] : bare) {
        SimulatedBus bus;
        if (operation != kIOServiceGetMatchingServices) bus.attach("mira13c", DeviceOptions::State::kBare);
        bus->plant({.operation = operation, .skip = skip});
        usb_init = 0;
        EXPECT_EQ(printed_by([] { tovix_init(TOVIX_RESOURCES); }).substr(0, printed.size()), printed);
    }

    const struct {
        Place place;
        std::uint32_t address, skip;
        std::string printed;
    } fpga[] = {
        {Place::kRegisterRead, TOVIX_FPGA_CONTROL, 0, "usb_load_fpga: unable to read register: Broken pipe\n"},
        {Place::kSetAlternate, 1, 0, "usb_load_fpga: unable to set alternate interface: Broken pipe\n"},
        {Place::kRegisterWrite, TOVIX_FPGA_CONTROL, 0, "usb_load_fpga: unable to write register: Broken pipe\n"},
        {Place::kRegisterWrite, TOVIX_FPGA_CONTROL, 1, "usb_load_fpga: unable to write register: Broken pipe\n"},
        {Place::kBulkOut, Fault::kAnyAddress, 0,
         "myUSBReadBulkPipe WritePipeTO failed 0xE000404F -536854449\nsent FPGA binary to camera\n"
         "usb_load_fpga: unable to load FPGA: timeout\n"},
    };
    for (const auto& [place, address, skip, printed] : fpga) {
        SimulatedBus bus;
        bus.attach("mira13c", DeviceOptions::State::kWithoutFpga)
            .access()
            ->faults()
            .plant({.place = place, .kind = FaultKind::kStall, .address = address, .skip = skip});
        usb_init = 0;
        EXPECT_TRUE(ends_with_lines(printed_by([] { EXPECT_EQ(tovix_init(TOVIX_RESOURCES), 0); }), printed));
    }
}

}  // namespace
