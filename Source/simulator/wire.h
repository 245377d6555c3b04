// SPDX-License-Identifier: Apache-2.0
// Bytes as they go over the wire: little-endian numbers, as USB and the cameras' registers have them, and the requests
// that every USB device knows.
#pragma once

#include <cstdint>

namespace tovix::simulator {

/// Chapter 9 of USB 2.0.
namespace usb {
// bmRequestType: direction, type and recipient.
inline constexpr std::uint8_t kToHost = 0x80, kToDevice = 0x00;
inline constexpr std::uint8_t kTypeMask = 0x60, kVendorType = 0x40;
inline constexpr std::uint8_t kInterface = 0x01, kEndpoint = 0x02;
// bRequest
inline constexpr std::uint8_t kClearFeature = 1, kGetDescriptor = 6, kSetConfiguration = 9, kSetInterface = 11;
// bDescriptorType
inline constexpr std::uint8_t kDeviceType = 1, kConfigurationType = 2, kStringType = 3, kInterfaceType = 4,
                              kEndpointType = 5;
inline constexpr std::uint16_t kDeviceDescriptorBytes = 18;
inline constexpr std::uint8_t kVendorSpecific = 0xFF;

constexpr bool is_input(std::uint8_t endpoint) {
    return (endpoint & kToHost) != 0;
}
/// wValue of GET_DESCRIPTOR.
constexpr std::uint16_t descriptor(std::uint8_t type, std::uint8_t index = 0) {
    return static_cast<std::uint16_t>(type << 8 | index);
}
}  // namespace usb

inline std::uint16_t get_u16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

inline std::uint32_t get_u32(const std::uint8_t* bytes) {
    return get_u16(bytes) | std::uint32_t{get_u16(bytes + 2)} << 16;
}

inline void put_u16(std::uint8_t* bytes, std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void put_u32(std::uint8_t* bytes, std::uint32_t value) {
    put_u16(bytes, static_cast<std::uint16_t>(value));
    put_u16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}

/// Two 16-bit halves of a register.
inline std::uint32_t pair(std::uint32_t low, std::uint32_t high) {
    return (low & 0xFFFF) | high << 16;
}

}  // namespace tovix::simulator
