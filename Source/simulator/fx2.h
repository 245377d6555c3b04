// SPDX-License-Identifier: Apache-2.0
// The boot loader of a bare FX2: memory that the host writes, and a CPU that it holds in reset meanwhile.
//
// A firmware image for a simulated camera holds, besides code that nobody runs:
//   0x0000  02 01 00                  a jump to 0x0100, as every FX2 program begins
//   0x0080  18 bytes                  the device descriptor that the device comes back with; the release
//   number in it
//                                     does not count, since some releases of a model share a file
//   0x0092  u16 length, u32 CRC-32    of the bytes from 0x0100 on, little-endian
// So a download that lost, moved or changed a byte does not run.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace tovix::simulator {

struct FirmwareIdentity {
    std::uint16_t vendor_id, product_id;
    bool operator==(const FirmwareIdentity&) const = default;
};

class Fx2 {
  public:
    static constexpr std::uint16_t kCpucs = 0xE600;

    /// One memory write. True when it released the CPU from reset.
    bool write(std::uint16_t address, std::span<const std::uint8_t> data);

    /// The identity of the program in memory; nothing when there is no whole program.
    std::optional<FirmwareIdentity> program() const;

  private:
    std::array<std::uint8_t, 0x10000> memory_{};
    bool held_in_reset_ = false;
};

}  // namespace tovix::simulator
