// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include <algorithm>

namespace tovix::simulator {

std::optional<Fault> FaultPlan::strike(Place place, std::uint32_t address, std::int64_t now_us) {
    std::optional<Fault> struck;
    for (Fault& fault : faults_) {
        if (fault.place != place || now_us < fault.from_us) continue;
        if (fault.address != Fault::kAnyAddress && fault.address != address) continue;
        if (fault.skip > 0) {
            --fault.skip;
        } else if (fault.times > 0 && !struck) {
            if (fault.times != Fault::kForEver) --fault.times;
            struck = fault;
        }
    }
    return struck;
}

std::int64_t FaultPlan::next_moment_us() const {
    std::int64_t next_us = INT64_MAX;
    for (const Fault& fault : faults_) {
        if (fault.place == Place::kMoment && fault.times > 0) next_us = std::min(next_us, fault.from_us);
    }
    return next_us;
}

}  // namespace tovix::simulator
