// SPDX-License-Identifier: Apache-2.0
// Start-up: firmware for the bare cameras, a pause while they come back on the bus, then FPGA images.
#include "firmware.h"
#include "fpga.h"
#include "report.h"
#include "search.h"

std::uint32_t usb_init = 0;

namespace {

constexpr UInt32 kReenumerationPauseUs = 2'500'000;

[[nodiscard]] std::int32_t usb_init_camera_firmware(mach_port_t port, std::uint16_t vendor_id, std::uint32_t* counter) {
    return usb_init_cameras_by_vid_and_pid<std::uint32_t>(port, vendor_id, kWithoutFirmware, usb_load_firmware,
                                                          counter);
}

[[nodiscard]] std::int32_t usb_init_camera_fpga(mach_port_t port, std::uint16_t vendor_id, std::uint16_t product_id) {
    return usb_init_cameras_by_vid_and_pid<void>(port, vendor_id, product_id, usb_load_fpga, nullptr);
}

}  // namespace

std::int32_t tovix_init(const char* resource_dir) {
    if (!set_resource_root(resource_dir)) return TOVIX_ENOMEM;
    if (std::exchange(usb_init, 1) != 0) return TOVIX_OK;

    RegistryPort port;
    if (!port.open()) return TOVIX_EFAIL;
    std::uint32_t firmware_count = 0;
    for (const std::uint16_t vendor_id : kStartupVendors) {
        const std::int32_t result = usb_init_camera_firmware(port.get(), vendor_id, &firmware_count);
        if (result < 0) {
            std::fprintf(stderr, "Error: could not find cameras using PID 0x%08X\n", unsigned{vendor_id});
            return result;
        }
    }
    if (firmware_count > 0) IOSleepMicroseconds(kReenumerationPauseUs);

    return for_each_pair([&](const camera_id& row) {
        const std::int32_t result = usb_init_camera_fpga(port.get(), row.vendor_id, row.product_id);
        if (result < 0)
            std::fprintf(stderr, "Error: could not find camera using PID 0x%08X\n", unsigned{row.product_id});
        return result;
    });
}
