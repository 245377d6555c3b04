// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

namespace tovix::simulator {

std::optional<Fault> FaultPlan::strike(Place place, std::uint32_t address) {
    std::optional<Fault> struck;
    for (Fault& fault : faults_) {
        if (fault.place != place || (fault.address != Fault::kAnyAddress && fault.address != address))
            continue;
        if (fault.skip > 0) {
            --fault.skip;
        } else if (fault.times > 0 && !struck) {
            if (fault.times != Fault::kForEver) --fault.times;
            struck = fault;
        }
    }
    return struck;
}

}  // namespace tovix::simulator
