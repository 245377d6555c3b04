// SPDX-License-Identifier: Apache-2.0
#include "fx2.h"

#include <zlib.h>

#include "wire.h"

namespace tovix::simulator {

namespace {

constexpr std::size_t kDescriptor = 0x80;
constexpr std::size_t kLength = 0x92;
constexpr std::size_t kCrc = 0x94;
constexpr std::size_t kCode = 0x100;
constexpr std::size_t kRamEnd = 0x4000;

}  // namespace

bool Fx2::write(std::uint16_t address, std::span<const std::uint8_t> data) {
    if (address == kCpucs && !data.empty()) {
        const bool was_held = held_in_reset_;
        held_in_reset_ = (data[0] & 1) != 0;
        return was_held && !held_in_reset_;
    }
    for (std::size_t i = 0; i < data.size(); ++i)
        memory_[(address + i) % memory_.size()] = data[i];
    return false;
}

std::optional<FirmwareIdentity> Fx2::program() const {
    const std::size_t length = get_u16(&memory_[kLength]);
    const bool starts = memory_[0] == 0x02 && memory_[1] == 0x01 && memory_[2] == 0x00;
    if (!starts || length == 0 || kCode + length > kRamEnd) return std::nullopt;
    const auto crc = static_cast<std::uint32_t>(crc32(0, &memory_[kCode], static_cast<uInt>(length)));
    if (crc != get_u32(&memory_[kCrc])) return std::nullopt;
    const std::uint8_t* const descriptor = &memory_[kDescriptor];
    return FirmwareIdentity{get_u16(descriptor + 8), get_u16(descriptor + 10)};
}

}  // namespace tovix::simulator
