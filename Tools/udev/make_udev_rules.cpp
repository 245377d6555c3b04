// SPDX-License-Identifier: Apache-2.0
// Prints a udev rule for every camera of the table, with and without firmware.
#include <cstdint>
#include <cstdio>
#include <set>
#include <utility>

#include "tovixapi/tovixapi.h"

int main() {
    constexpr std::uint16_t kBareBit = 0x8000;  // of the product ID while a camera has no firmware
    std::set<std::pair<std::uint16_t, std::uint16_t>> devices;
    for (std::int32_t i = 0; i < camera_id_count; ++i) {
        const camera_id& row = camera_ids[i];
        devices.insert({row.vendor_id, row.product_id});
        devices.insert({row.vendor_id, static_cast<std::uint16_t>(row.product_id | kBareBit)});
    }
    std::puts("# Opens Tovix cameras to the user at the machine. Generated from the camera table.");
    for (const auto& [vendor, product] : devices) {
        std::printf(
            "SUBSYSTEM==\"usb\", ENV{DEVTYPE}==\"usb_device\", ATTR{idVendor}==\"%04x\", "
            "ATTR{idProduct}==\"%04x\", TAG+=\"uaccess\"\n",
            unsigned{vendor}, unsigned{product});
    }
    return std::ferror(stdout) != 0;
}
