// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include <algorithm>
#include <iterator>

namespace tovix::simulator {

namespace {

using enum FaultKind;

constexpr unsigned bits(auto... kinds) {
    return (0u | ... | (1u << static_cast<unsigned>(kinds)));
}

constexpr unsigned kRequest = bits(kStall, kTimeout, kUnplug, kReplug);
constexpr unsigned kOut = kRequest | bits(kShortAnswer, kEmptyAnswer);
constexpr unsigned kControlOut = kOut | bits(kOverrun);  // it sends though it was to receive
constexpr unsigned kIn = kOut | bits(kOverrun, kHostileValue);
constexpr unsigned kHost = bits(kUnplug, kReplug, kRefused, kBusy);

/// What can go wrong at each place, and whether an operation there has an address.
constexpr struct {
    unsigned kinds;
    bool has_address;
} kPossible[] = {
    {kControlOut, true},              // memory write
    {kIn, true},                      // register read
    {kControlOut, true},              // register write
    {kIn, true},                      // descriptor
    {kRequest, true},                 // configuration
    {kRequest, true},                 // alternate setting
    {kRequest, true},                 // clear halt
    {kOut, false},                    // bulk out
    {kIn, false},                     // bulk in
    {kHost, false},                   // open
    {kHost, false},                   // queue a read
    {bits(kUnplug, kReplug), false},  // a moment
};
static_assert(std::size(kPossible) == kPlaces);

}  // namespace

bool is_possible(Place place, FaultKind kind) {
    return (kPossible[static_cast<std::size_t>(place)].kinds & bits(kind)) != 0;
}

void FaultPlan::plant(Fault fault) {
    // An address or a count that can never match would be due for ever and never strike.
    if (!kPossible[static_cast<std::size_t>(fault.place)].has_address) fault.address = Fault::kAnyAddress;
    if (fault.place == Place::kMoment) fault.skip = 0;
    if (fault.times == 0 || fault.place == Place::kMoment) fault.times = 1;
    faults_.push_back(fault);
}

std::optional<Fault> FaultPlan::strike(Place place, std::uint32_t address, std::int64_t now_us) {
    std::optional<Fault> struck;
    for (Fault& fault : faults_) {
        if (fault.place != place || now_us < fault.from_us) continue;
        if (fault.address != Fault::kAnyAddress && fault.address != address) continue;
        if (fault.skip > 0) {
            --fault.skip;
        } else if (!struck) {
            if (fault.times != Fault::kForEver) --fault.times;
            struck = fault;
        }
    }
    std::erase_if(faults_, [](const Fault& fault) { return fault.times == 0; });
    return struck;
}

std::int64_t FaultPlan::next_moment_us() const {
    std::int64_t next_us = kNever;
    for (const Fault& fault : faults_) {
        if (fault.place == Place::kMoment) next_us = std::min(next_us, fault.from_us);
    }
    return next_us;
}

}  // namespace tovix::simulator
