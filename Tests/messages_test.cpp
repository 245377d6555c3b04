// SPDX-License-Identifier: Apache-2.0
// The messages that no other test provokes on its way, each as a whole line, with what makes it come.
#include <gtest/gtest.h>

#include "search.h"
#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;
using tovix::platform::Operation;

std::string last_lines(const std::string& text, const std::string& expected) {
    const auto lines = static_cast<std::size_t>(std::count(expected.begin(), expected.end(), '\n'));
    std::size_t at = text.size();
    for (std::size_t i = 0; i <= lines && at != std::string::npos && at > 0; ++i)
        at = text.rfind('\n', at - 1);
    return at == std::string::npos || at == 0 ? text : text.substr(at + 1);
}

std::int32_t open_mira() {
    _tovix* camera = nullptr;
    const std::int32_t result = tovix_camera_open_by_pid(&camera, 0x0113);
    tovix_camera_close(&camera);
    return result;
}

TEST(Messages, OfAnOpenWhosePlatformOperationFails) {
    const std::string lost = "error: unable to open usb device\n";
    const struct {
        Operation operation;
        std::uint32_t skip;
        std::string printed;
        std::int32_t result;
    } cases[] = {
        {Operation::kIOMasterPort, 0, "ERR: Couldn't create a master IOKit Port(e00002c0)\n", -1},
        {Operation::kIOServiceMatching, 0, "Can't create a USB matchingUnenumeratedDict dictionary\n", -1},
        {Operation::kCFNumberCreate, 1, "Can't create a USB matchingUnenumeratedDict dictionary\n", -1},
        {Operation::kIOServiceGetMatchingServices, 0, "error: unable to find matching services: err=E00002C0\n", -3},
        {Operation::kIOCreatePlugInInterfaceForService, 0,
         "IOCreatePlugInInterfaceForService(usb_device Err 0xe00002c0 -536870208\n" + lost, 0},
        {Operation::kQueryInterface, 0, "usb_open_device: query interface error: No such device\n" + lost, 0},
        {Operation::kGetDeviceVendor, 0, "usb_open_device: get device vendor error: No such device\n" + lost, 0},
        {Operation::kGetDeviceProduct, 0, "usb_open_device: get device product error: No such device\n" + lost, 0},
        {Operation::kGetDeviceReleaseNumber, 0, "usb_open_device: get device release error: No such device\n" + lost,
         0},
        {Operation::kUSBDeviceOpen, 0, "usb_open_device: usb device open error: No such device\n" + lost, 0},
        {Operation::kGetConfigurationDescriptorPtr, 0,
         "usb_open_device: usb get config descriptor error: No such device\n" + lost, 0},
        {Operation::kSetConfiguration, 0, "usb_open_device: usb set config error: No such device\n" + lost, 0},
        {Operation::kCreateInterfaceIterator, 0,
         "usb_open_device: usb create interface iterator error: No such device\n" + lost, 0},
        {Operation::kIOCreatePlugInInterfaceForService, 1,
         "IOCreatePlugInInterfaceForService usb_interface Err 0xe00002c0 -536870208\n"
         "usb_open_device: unable to create usb interface: No such device\n" +
             lost,
         0},
        {Operation::kQueryInterface, 1,
         "QueryInterface Err 0xe00002c0 -536870208\n"
         "usb_open_device: unable to create usb interface: No such device\n" +
             lost,
         0},
        {Operation::kUSBInterfaceOpen, 0,
         "USBInterfaceOpen(ref->usb_interface_if Err 0xe00002c0 -536870208\n"
         "usb_open_device: unable to create usb interface: No such device\n" +
             lost,
         0},
    };
    for (const auto& [operation, skip, printed, result] : cases) {
        SimulatedBus bus;
        bus.attach("mira13c");
        bus->plant({.operation = operation, .skip = skip, .times = 1, .status = kIOReturnNoDevice});
        const std::int32_t expected = result;
        EXPECT_EQ(printed_by([&] { EXPECT_EQ(open_mira(), expected); }), printed);
    }
}

TEST(Messages, OfAnOpenThatGoesOnWithoutAnAnswer) {
    const struct {
        Operation operation;
        std::uint32_t skip;
        const char* printed;
    } cases[] = {
        {Operation::kGetDeviceSpeed, 0, "error: unable to read camera's device speed\n"},
        {Operation::kGetDeviceReleaseNumber, 1, "error: unable to read camera's device release number\n"},
        {Operation::kUSBGetProductStringIndex, 0, "error: unable to get camera's model name\n"},
        {Operation::kUSBGetSerialNumberStringIndex, 0, "error: unable to get camera's serial number\n"},
        {Operation::kDeviceRequestTO, 0, "error: unable to read camera's serial number\n"},
        {Operation::kDeviceRequestTO, 2, "error: unable to read camera's model name\n"},
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

TEST(Messages, OfRegistersThatDoNotAnswer) {
    const auto unreadable = [](const std::string& name) {
        return "TVXUSBReadControlPipe Err 0xE000404F -536854449\nerror: unable to read register from camera\n"
               "error: unable to read param '" +
               name + "'\n";
    };
    const auto unwritable = [](const std::string& name) {
        return "TVXUSBWriteControlPipe Err 0xE000404F -536854449\nerror: unable to write register to camera\n"
               "error: unable to write param '" +
               name + "'\n";
    };
    const std::string lost = "error: unable to open usb device\n";
    const struct {
        Place place;
        std::uint32_t address;
        std::string printed;
    } cases[] = {
        {Place::kRegisterRead, TOVIX_FO_MAX_SIZE, unreadable("TOVIX_FO_MAX_SIZE") + lost},
        {Place::kRegisterRead, TOVIX_FO_UNIT_SIZE, unreadable("TOVIX_FO_UNIT_SIZE") + lost},
        {Place::kRegisterRead, TOVIX_FO_POSITION, unreadable("TOVIX_FO_POSITION") + lost},
        {Place::kRegisterRead, TOVIX_FO_SIZE, unreadable("TOVIX_FO_SIZE") + lost},
        {Place::kRegisterRead, TOVIX_FO_SUBSAMPLING, unreadable("TOVIX_FO_SUBSAMPLING") + lost},
        {Place::kRegisterRead, TOVIX_FO_COLOR_INQ, unreadable("TOVIX_FO_COLOR_INQ") + lost},
        {Place::kRegisterRead, TOVIX_FO_SUBSAMPLING_INQ, unreadable("TOVIX_FO_SUBSAMPLING_INQ") + lost},
        {Place::kRegisterWrite, TOVIX_FO_COLOR_ID, unwritable("TOVIX_FO_COLOR_ID") + lost},
        {Place::kRegisterRead, TOVIX_FO_KPS_MINMAX_INQ, unreadable("TOVIX_FO_KPS_MINMAX_INQ") + lost},
        {Place::kRegisterRead, TOVIX_FO_KPS_ARRAY_CNT, unreadable("TOVIX_FO_KPS_ARRAY_CNT") + lost},
        {Place::kRegisterRead, TOVIX_FO_KPS_ARRAY, unreadable("TOVIX_FO_KPS_ARRAY") + lost},
        {Place::kRegisterWrite, TOVIX_FO_KPS, unwritable("TOVIX_FO_KPS") + lost},
        {Place::kRegisterWrite, TOVIX_VIDEO_SWITCH,
         "TVXUSBWriteControlPipe Err 0xE000404F -536854449\nerror: unable to write register to camera\n"
         "error: unable to send stop video command\n"},
    };
    for (const auto& [place, address, printed] : cases) {
        SimulatedBus bus;
        bus.attach("mira13c").access()->faults().plant({.place = place, .kind = FaultKind::kStall, .address = address});
        EXPECT_EQ(last_lines(printed_by([] { EXPECT_EQ(open_mira(), 0); }), printed), printed);
    }
    for (const bool write : {false, true}) {
        SimulatedBus bus;
        Port& port = bus.attach("mira13c");
        port.access()->registers().write(TOVIX_FAN, 0x8000);
        port.access()->faults().plant({.place = write ? Place::kRegisterWrite : Place::kRegisterRead,
                                       .kind = FaultKind::kStall,
                                       .address = TOVIX_FAN});
        const std::string text = printed_by([] { EXPECT_EQ(open_mira(), 0); });
        EXPECT_NE(text.find(write ? unwritable("TOVIX_FAN") : unreadable("TOVIX_FAN")), std::string::npos) << text;
    }
}

TEST(Messages, OfFormatsAndDataRates) {
    SimulatedBus bus;
    Port& port = bus.attach("mira13c");
    OpenCamera camera;
    const _tovix_frame_format format = format_of(64, 16);
    std::uint32_t rate = 0;
    const struct {
        Place place;
        std::uint32_t address;
        std::function<std::int32_t()> call;
        const char* printed;
    } cases[] = {
        {Place::kRegisterWrite, TOVIX_FO_SIZE, [&] { return tovix_set_video_format(camera, &format); },
         "error: unable to write param 'TOVIX_FO_SIZE'\n"},
        {Place::kRegisterWrite, TOVIX_FO_POSITION, [&] { return tovix_set_video_format(camera, &format); },
         "error: unable to write param 'TOVIX_FO_POSITION'\n"},
        {Place::kRegisterWrite, TOVIX_FO_SUBSAMPLING, [&] { return tovix_set_video_format(camera, &format); },
         "error: unable to write param 'TOVIX_FO_SUBSAMPLING'\n"},
        {Place::kRegisterWrite, TOVIX_FO_KPS, [&] { return tovix_set_data_rate(camera, 5000); },
         "error: unable to write param 'TOVIX_FO_KPS'\n"},
        {Place::kRegisterRead, TOVIX_FO_KPS, [&] { return tovix_get_data_rate(camera, &rate); },
         "error: unable to read param 'TOVIX_FO_KPS'\n"},
    };
    for (const auto& [place, address, call, printed] : cases) {
        port.access()->faults().plant({.place = place, .kind = FaultKind::kStall, .address = address});
        EXPECT_EQ(last_lines(printed_by([&] { EXPECT_EQ(call(), -1); }), printed), printed);
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
    bus->plant({.operation = Operation::kReadPipeTO, .skip = 0, .times = 1, .status = kIOUSBTransactionTimeout});
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
        Operation operation;
        std::uint32_t skip;
        std::string printed;
    } bare[] = {
        {Operation::kIOCreatePlugInInterfaceForService, 0, first + "unable to create a plugin (e00002bc)\n"},
        {Operation::kQueryInterface, 0, first + "couldn't create a device interface (e00002bc)\n"},
        {Operation::kGetDeviceVendor, 0, first + "GetDeviceVendor err -536870212\n"},
        {Operation::kGetDeviceProduct, 0, first + "VID = 0xE6C1\nGetDeviceProduct  err -536870212\n"},
        {Operation::kGetDeviceReleaseNumber, 0, ids + "GetDeviceReleaseNumber err -536870212\nDID = 0x0\n" + reset},
        {Operation::kUSBDeviceOpen, 0, opened + "unable to open device: e00002bc\n"},
        {Operation::kGetConfigurationDescriptorPtr, 0,
         opened + "unable to get config descriptor for index 0 (err = e00002bc)\n" + failed},
        {Operation::kSetConfiguration, 0, opened + "unable to set configuration to value 1 (err=e00002bc)\n" + failed},
        {Operation::kDeviceRequestTO, 0, opened + "error: unable to write data to FX2\n" + failed},
        {Operation::kDeviceRequestTO, 9, opened + reset + "error: unable to write data to FX2\n" + failed},
        {Operation::kDeviceRequestTO, 61, opened + reset + "error: unable to write data to FX2\n" + failed},
        {Operation::kIOServiceGetMatchingServices, 1,
         "error: unable to find matching services: err=E00002BC\n"
         "Error: could not find cameras using PID 0x0000E6C2\n"},
        {Operation::kIOServiceGetMatchingServices, 3,
         "error: unable to find matching services: err=E00002BC\n"
         "Error: could not find camera using PID 0x00000113\n"},
    };
    for (const auto& [operation, skip, printed] : bare) {
        SimulatedBus bus;
        if (operation != Operation::kIOServiceGetMatchingServices) bus.attach("mira13c", DeviceOptions::State::kBare);
        bus->plant({.operation = operation, .skip = skip});
        usb_init = 0;
        EXPECT_EQ(printed_by([] { tovix_init(TOVIX_RESOURCES); }).substr(0, printed.size()), printed);
    }

    const std::string loading =
        "loading FPGA binary from disk\nsending FPGA binary to camera\nsent FPGA binary to camera\n";
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
        EXPECT_EQ(last_lines(printed_by([] { EXPECT_EQ(tovix_init(TOVIX_RESOURCES), 0); }), printed), printed);
    }
}

}  // namespace
