// SPDX-License-Identifier: Apache-2.0
#include "simulated_bus.h"

#include <algorithm>
#include <limits>

#include "tovixapi/simulation.h"
#include "tovixapi/tovixapi.h"

namespace {

constexpr char kVerboseAdvice[] = "run with --verbose to see each step";

std::string model_names() {
    std::string names;
    for (std::uint32_t i = 0;; ++i) {
        const char* const name = tovix_simulation_model_name(i);
        if (name == nullptr) return names;
        names += (i != 0 ? " " : "") + std::string(name);
    }
}

bool is_model(const std::string& wanted) {
    for (std::uint32_t i = 0;; ++i) {
        const char* const name = tovix_simulation_model_name(i);
        if (name == nullptr) return false;
        if (name == wanted) return true;
    }
}

}  // namespace

SimulatedBus::SimulatedBus(const QuietStderr& quiet) : quiet_(quiet) {
    if (const std::int32_t result = tovix_simulation_begin(TOVIX_SIMULATION_REAL_TIME); result < 0)
        throw quiet_.failure("cannot simulate a bus", result, kVerboseAdvice);
}

SimulatedBus::~SimulatedBus() {
    tovix_simulation_end();
}

void SimulatedBus::attach(const SimulatedCamera& camera, const SimulatedView& view, std::uint32_t state,
                          Marks marks) const {
    if (!camera.model.empty() && !is_model(camera.model))
        throw Failure("there is no simulated model '" + printable(camera.model) + "'; choose from: " + model_names());
    tovix_simulated_options options{};
    options.size = sizeof options;
    options.state = state;
    options.model = camera.model.empty() ? nullptr : camera.model.c_str();
    options.picture = view.picture.empty() ? nullptr : view.picture.c_str();
    options.serial_number = camera.serial_number;
    // Where 0 stands for the usual, its nearest neighbours stand for none.
    for (std::size_t i = 0; i < view.light.size(); ++i)
        options.light[i] = std::max(static_cast<float>(view.light[i]), std::numeric_limits<float>::min());
    options.blur = static_cast<float>(view.blur);
    if (view.noise) options.noise = *view.noise > 0 ? static_cast<float>(*view.noise) : -1;
    options.mark_frames = marks == Marks::kInFrames;
    if (const std::int32_t result = tovix_simulation_attach(&options, nullptr); result < 0)
        throw quiet_.failure("cannot simulate the camera", result, kVerboseAdvice);
}
