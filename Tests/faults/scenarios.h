// SPDX-License-Identifier: Apache-2.0
// What is done with cameras while faults strike.
#pragma once

#include <span>

#include "world.h"

namespace tovix::faults {

struct Scenario {
    const char* name;
    void (*prepare)(World& world);  // without faults
    void (*act)(World& world);      // operations count from here on
    bool beside_others = true;      // another camera may stream meanwhile
};

std::span<const Scenario> scenarios();

/// What several of them do with an open camera, and with a running stream.
void sweep_settings(World& world);
void adjust(World& world);

/// The tool's, where the tool is built.
void capture(World& world);

}  // namespace tovix::faults
