// SPDX-License-Identifier: Apache-2.0
// Pulling a camera out in every state of its stream, at the speed of real time.
#pragma once

#include <functional>

#include "world.h"

namespace tovix::faults {

/// The longest that anyone had to wait after the camera was gone, in seconds.
struct LongestWaits {
    double waiter_s = 0, stop_s = 0;
};

/// Go through all states, with and without plugging in again. `each` is given the name of a case and its findings.
LongestWaits unplug_at_every_moment(const std::function<void(const std::string& name)>& begin,
                                    const std::function<void(const Findings&)>& end);

}  // namespace tovix::faults
