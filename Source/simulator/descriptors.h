// SPDX-License-Identifier: Apache-2.0
// What a simulated camera, or the bare FX2 that it was, says of itself.
#pragma once

#include <cstdint>
#include <vector>

#include "registers.h"

namespace tovix::simulator {

class Descriptors {
  public:
    static constexpr std::uint8_t kOutEndpoint = 0x02;
    static constexpr std::uint8_t kInEndpoint = 0x86;
    static constexpr std::uint8_t kOnlyConfiguration = 1;
    static constexpr std::uint8_t kSettings = 3;  ///< alternate settings of the one interface
    /// An FX2 that knows nothing of its maker.
    static constexpr std::uint16_t kBareVendor = 0x04B4, kBareProduct = 0x8613;

    /// Of a bare FX2, or of a camera. `setup` outlives this.
    Descriptors(const CameraSetup& setup, bool bare, bool high_speed)
        : setup_(setup), bare_(bare), high_speed_(high_speed) {}

    /// Empty when there is no such descriptor.
    std::vector<std::uint8_t> find(std::uint8_t type, std::uint8_t index) const;

    std::vector<std::uint8_t> device() const;
    std::vector<std::uint8_t> configuration() const;
    /// Addresses of the endpoints of an alternate setting, in the order of their pipes.
    std::vector<std::uint8_t> endpoints(std::uint8_t setting) const;
    bool has_endpoint(std::uint8_t setting, std::uint8_t address) const;

  private:
    std::vector<std::uint8_t> string(std::uint8_t index) const;

    const CameraSetup& setup_;
    bool bare_, high_speed_;
};

}  // namespace tovix::simulator
