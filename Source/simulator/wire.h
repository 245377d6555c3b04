// SPDX-License-Identifier: Apache-2.0
// Little-endian numbers, as USB and the cameras' registers have them.
#pragma once

#include <cstdint>

namespace tovix::simulator {

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

inline std::uint32_t pair(std::uint32_t low, std::uint32_t high) {
    return (low & 0xFFFF) | high << 16;
}

}  // namespace tovix::simulator
