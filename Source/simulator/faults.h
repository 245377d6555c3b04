// SPDX-License-Identifier: Apache-2.0
// Faults that are planted in a simulated device: what goes wrong, at which operation, and how often.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace tovix::simulator {

/// Where a device can fail.
enum class Place : std::uint8_t {
    kMemoryWrite,   // boot loader, request 0xA0
    kRegisterRead,  // request 0x12
    kRegisterWrite,
    kDescriptor,  // GET_DESCRIPTOR: device, configuration, strings
    kSetConfiguration,
    kSetAlternate,
    kClearHalt,
    kBulkOut,
    kBulkIn
};

enum class FaultKind : std::uint8_t {
    kStall,
    kTimeout,      // no answer; the host's time-out ends the transfer
    kShortAnswer,  // half of what is due
    kEmptyAnswer,  // nothing, as a success
    kOverrun,      // more than fits
    kUnplug,       // the device leaves the bus
    kReplug,       // it leaves the bus and comes back
    kHostileValue  // the answer is the fault's value, repeated
};

struct Fault {
    static constexpr std::uint32_t kAnyAddress = UINT32_MAX;
    static constexpr std::uint32_t kForEver = UINT32_MAX;

    Place place = Place::kRegisterRead;
    FaultKind kind = FaultKind::kStall;
    std::uint32_t address = kAnyAddress;  ///< register, memory address or descriptor (type and index)
    std::uint32_t skip = 0;               ///< matching operations that still go well
    std::uint32_t times = 1;              ///< operations that fail from then on
    std::uint32_t value = 0;              ///< of kHostileValue
};

class FaultPlan {
  public:
    void plant(const Fault& fault) { faults_.push_back(fault); }
    void clear() { faults_.clear(); }

    /// The fault that hits this operation, if any; each planted fault counts the operations that match it.
    std::optional<Fault> strike(Place place, std::uint32_t address);

  private:
    std::vector<Fault> faults_;
};

}  // namespace tovix::simulator
