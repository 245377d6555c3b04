// SPDX-License-Identifier: Apache-2.0
#include "scenarios.h"

#include <cstring>

namespace tovix::faults {

namespace {

using State = simulator::DeviceOptions::State;

void attach_one(World& world) {
    world.attach("mira13c", State::kReady);
}

void open_and_close(World& world) {
    if (world.open()) {
        tovix_version version{};
        char name[32];
        world(kGetVersion, world.camera, &version);
        world(kGetModelName, world.camera, name, static_cast<int>(sizeof name));
        world.expect(std::strlen(name) < sizeof name, "a name ends");
    }
    world.close();
}

constexpr Scenario kScenarios[] = {
    {"open", &attach_one, &open_and_close},
};

}  // namespace

std::span<const Scenario> scenarios() {
    return kScenarios;
}

}  // namespace tovix::faults
