// SPDX-License-Identifier: Apache-2.0
// The camera's registers: 32-bit words behind one vendor request, least significant byte first on the wire.
#include <bit>
#include <limits>

#include "handle.h"
#include "report.h"

namespace {

constexpr std::uint8_t kRegisterRequest = 0x12;

static_assert(std::endian::native == std::endian::little, "words are read and written as they lie in memory");

/// Bytes of `count` words. A count that no transfer can carry gives a length that the transport refuses.
std::uint32_t word_bytes(int count) {
    const std::int64_t bytes = std::int64_t{count} * 4;
    return bytes < 0 || bytes > std::numeric_limits<std::uint32_t>::max() ? 0 : static_cast<std::uint32_t>(bytes);
}

std::uint16_t wire_address(std::uint32_t address) {
    return static_cast<std::uint16_t>(address & 0xFFFF);
}

}  // namespace

std::int32_t tz_usb_write_tovix_bytes(_tovix* camera, std::uint32_t address, const void* data, std::uint32_t length) {
    return tz_usb_control_write(camera, data, length, kRegisterRequest, 0, wire_address(address));
}

std::int32_t tz_usb_read_tovix_bytes(_tovix* camera, std::uint32_t address, void* data, std::uint32_t length) {
    return tz_usb_control_read(camera, data, length, kRegisterRequest, 0, wire_address(address));
}

std::int32_t tz_usb_read_tovix_array(_tovix* camera, std::uint32_t address, std::uint32_t* values, int count) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (tz_usb_read_tovix_bytes(camera, address, values, word_bytes(count)) != 0) {
        std::fprintf(stderr, "error: unable to read register from camera\n");
        return TOVIX_EFAIL;
    }
    return TOVIX_OK;
}

std::int32_t tz_usb_write_tovix_array(_tovix* camera, std::uint32_t address, const std::uint32_t* values, int count) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (tz_usb_write_tovix_bytes(camera, address, values, word_bytes(count)) != 0) {
        std::fprintf(stderr, "error: unable to write register to camera\n");
        return TOVIX_EFAIL;
    }
    return TOVIX_OK;
}

std::int32_t tz_usb_read_tovix_u32(_tovix* camera, std::uint32_t address, std::uint32_t* value) {
    if (value == nullptr) return TOVIX_EFAIL;
    std::uint32_t word = 0;  // a transfer that fails may have delivered a part
    if (const std::int32_t result = tz_usb_read_tovix_array(camera, address, &word, 1); result < 0) return result;
    *value = word;
    return TOVIX_OK;
}

std::int32_t tz_usb_write_tovix_u32(_tovix* camera, std::uint32_t address, std::uint32_t value) {
    return tz_usb_write_tovix_array(camera, address, &value, 1);
}

std::int32_t tz_usb_read_tovix_two_u16(_tovix* camera, std::uint32_t address, std::uint16_t* first,
                                       std::uint16_t* second) {
    if (first == nullptr || second == nullptr) return TOVIX_EFAIL;
    std::uint32_t word = 0;
    if (const std::int32_t result = tz_usb_read_tovix_u32(camera, address, &word); result < 0) return result;
    *first = static_cast<std::uint16_t>(word & 0xFFFF);
    *second = static_cast<std::uint16_t>(word >> 16);
    return TOVIX_OK;
}

std::int32_t tz_usb_write_tovix_two_u16(_tovix* camera, std::uint32_t address, std::uint16_t first,
                                        std::uint16_t second) {
    return tz_usb_write_tovix_u32(camera, address, (std::uint32_t{second} << 16) + first);
}
