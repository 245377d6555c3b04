// SPDX-License-Identifier: Apache-2.0
// Faults that are planted: what goes wrong, where, and how often.
//
// Trouble is planted where it arises:
//   Device::faults()              what the device answers wrongly, and its coming and going
//   Port::Access::host_faults()   what the host refuses before the device has a part in it: opening, queueing a read
//   Bus::plant()                  for tests of the library: the n-th call of a platform operation fails, whatever
//                                 stands behind it
// The first two are of this file; Port::Access::plant() chooses between them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "clock.h"

namespace tovix::simulator {

enum class Place : std::uint8_t {
    kMemoryWrite,   // boot loader, request 0xA0
    kRegisterRead,  // request 0x12
    kRegisterWrite,
    kDescriptor,  // GET_DESCRIPTOR: device, configuration, strings
    kSetConfiguration,
    kSetAlternate,
    kClearHalt,
    kBulkOut,
    kBulkIn,     // a frame on its way to the host
    kOpen,       // the host opens the device
    kQueueRead,  // the host queues a read of frames
    kMoment      // no operation: the fault comes by itself, once
};
inline constexpr std::size_t kPlaces = 12;

enum class FaultKind : std::uint8_t {
    kStall,
    kTimeout,       // no answer; the host's time-out ends the transfer
    kShortAnswer,   // half of what is due
    kEmptyAnswer,   // nothing, as a success
    kOverrun,       // more than fits
    kUnplug,        // the device leaves the bus
    kReplug,        // it leaves the bus and comes back
    kHostileValue,  // the answer is the fault's value, repeated
    kRefused,       // the host may not
    kBusy           // the host may not for now
};
inline constexpr std::size_t kFaultKinds = 10;

constexpr bool is_of_host(Place place) {
    return place == Place::kOpen || place == Place::kQueueRead;
}

/// Whether something of that kind can go wrong there.
bool is_possible(Place place, FaultKind kind);

struct Fault {
    static constexpr std::uint32_t kAnyAddress = UINT32_MAX;
    static constexpr std::uint32_t kForEver = UINT32_MAX;

    Place place = Place::kRegisterRead;
    FaultKind kind = FaultKind::kStall;
    /// Register, memory address, descriptor (type and index), configuration, alternate setting or halted endpoint.
    /// Elsewhere there is none to compare it with.
    std::uint32_t address = kAnyAddress;
    std::uint32_t skip = 0;    ///< matching operations that still go well
    std::uint32_t times = 1;   ///< operations that fail from then on; 0: one
    std::uint32_t value = 0;   ///< of kHostileValue
    std::int64_t from_us = 0;  ///< not before this time of the bus
};

class FaultPlan {
  public:
    void plant(Fault fault);
    void clear() { faults_.clear(); }
    /// Some fault has still to strike.
    bool pending() const { return !faults_.empty(); }

    /// The fault that hits this operation, if any; each planted fault counts the operations that match it.
    std::optional<Fault> strike(Place place, std::uint32_t address, std::int64_t now_us);

    /// When the next fault comes by itself; kNever: none does.
    std::int64_t next_moment_us() const;

  private:
    std::vector<Fault> faults_;  // those with something left to do
};

}  // namespace tovix::simulator
