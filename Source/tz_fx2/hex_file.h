// SPDX-License-Identifier: Apache-2.0
// Intel HEX records, as far as a boot loader that writes memory needs them.
#pragma once

#include <cstdint>

/// One record but for its data. The checksum is kept, not verified, and the type not interpreted: firmware
/// files in the field have both wrong.
struct usb_firmware_header {
    std::uint8_t length;
    std::uint16_t address;
    std::uint8_t type;
    std::uint8_t checksum;
};

constexpr int kMaxRecordBytes = 255;

/// Read the next record of the file into `header` and up to kMaxRecordBytes bytes at `data`. White space
/// between records is skipped. The record's length; 0 at the end of the file; -1, with errno set, for a stray
/// character, a record that the file cuts off (its data is not to be used), or a read that failed.
[[nodiscard]] std::int32_t hex_read_section(int fd, usb_firmware_header* header, std::uint8_t* data);
