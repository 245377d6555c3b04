// SPDX-License-Identifier: Apache-2.0
// Firmware for a bare FX2: a memory image sent record by record to its boot loader, while its CPU is held in reset.
#pragma once

#include <cstdint>

#include "platform.h"

/// Download firmware to each device of the iterator and release its entry; adds 1 to *counter for each device
/// that received it. A device that fails is reported and left out.
void usb_load_firmware(std::uint32_t* counter, io_iterator_t iterator);

/// Download the firmware of a product to an opened device. 0; -1 after a report.
[[nodiscard]] std::int32_t usb_fx2_send_firmware(IOUSBDeviceInterface197** device, std::uint16_t vendor_id,
                                                 std::uint16_t product_id, std::uint16_t release);

/// Write `length` bytes into the FX2's memory at `address`. The platform's status.
[[nodiscard]] std::int32_t usb_fx2_write(IOUSBDeviceInterface197** device, std::uint16_t address, std::uint16_t length,
                                         std::uint8_t* data);
