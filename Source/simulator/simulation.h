// SPDX-License-Identifier: Apache-2.0
// The simulated bus that the C interface works on, for tests that want more of it than that interface offers.
#pragma once

#include "bus.h"
#include "tovixapi/simulation.h"

struct tovix_simulated_camera {
    std::shared_ptr<tovix::simulator::Port> port;
};

namespace tovix::simulator {

/// The bus between tovix_simulation_begin and tovix_simulation_end, else null.
Bus* current_bus();

}  // namespace tovix::simulator
