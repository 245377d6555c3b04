// SPDX-License-Identifier: Apache-2.0
#include "simulation.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <vector>

#include "frame_mark.h"
#include "scene.h"
#include "tovixapi/tovixapi.h"

namespace tovix::simulator {

namespace {

struct Simulation {
    explicit Simulation(Pace pace) : bus(pace) {}
    Bus bus;
    std::mutex mutex;
    std::vector<std::unique_ptr<tovix_simulated_camera>> cameras;  // guarded by mutex
};

std::unique_ptr<Simulation> simulation;

constexpr std::uint32_t kFirstSerial = 1001;

int32_t refuse(const char* format, const char* detail) {
    std::fprintf(stderr, format, detail);
    return TOVIX_EINVAL;
}

/// Run what may run out of memory, and let no exception out.
template <class Body>
std::int32_t guarded(const Body& body) noexcept try {
    return body();
} catch (const std::bad_alloc&) {
    return TOVIX_ENOMEM;
} catch (const std::exception& error) {
    return refuse("error: simulation: %s\n", error.what());
}

std::int32_t make_options(const tovix_simulated_options& wanted, DeviceOptions& options) {
    Model model;
    if (!find_model(wanted.model != nullptr ? wanted.model : "", model))
        return refuse("error: there is no simulated model '%s'\n", wanted.model);
    if (wanted.state > TOVIX_SIMULATED_READY) return refuse("error: unknown state of a simulated camera\n", "");
    options.camera = CameraSetup::of(model);
    options.state = static_cast<DeviceOptions::State>(wanted.state);
    options.high_speed = wanted.full_speed == 0;
    options.mark_frames = wanted.mark_frames != 0;
    if (wanted.picture != nullptr) {
        std::string error;
        options.scene = load_picture(wanted.picture, error);
        if (options.scene == nullptr) return refuse("error: %s\n", error.c_str());
    }
    options.camera.serial_number = wanted.serial_number;
    if (wanted.light[0] != 0 || wanted.light[1] != 0 || wanted.light[2] != 0) {
        for (std::size_t i = 0; i < 3; ++i)
            options.camera.light[i] = double{wanted.light[i]};
    }
    if (wanted.noise != 0) options.camera.noise = wanted.noise > 0 ? double{wanted.noise} : 0.0;
    options.camera.blur = double{wanted.blur};
    return TOVIX_OK;
}

}  // namespace

Bus* current_bus() {
    return simulation ? &simulation->bus : nullptr;
}

}  // namespace tovix::simulator

using namespace tovix::simulator;

const char* tovix_simulation_model_name(std::uint32_t index) {
    static thread_local std::string name;
    if (index >= static_cast<std::uint32_t>(camera_id_count)) return nullptr;
    const std::int32_t result = guarded([&] {
        name = model_of_row(static_cast<int>(index)).name;
        return TOVIX_OK;
    });
    return result == TOVIX_OK ? name.c_str() : nullptr;
}

std::int32_t tovix_simulation_begin(std::uint32_t pace) {
    if (simulation || pace > TOVIX_SIMULATION_FAST) return TOVIX_EINVAL;
    return guarded([&] {
        simulation = std::make_unique<Simulation>(static_cast<Pace>(pace));
        tz_platform_select(&simulation->bus);
        return TOVIX_OK;
    });
}

void tovix_simulation_end() {
    tz_platform_select(nullptr);
    simulation.reset();
}

std::int32_t tovix_simulation_attach(const tovix_simulated_options* options, tovix_simulated_camera** camera) {
    if (!simulation) return refuse("error: there is no simulated bus to attach a camera to\n", "");
    return guarded([&] {
        // A caller that was compiled with an older, shorter record gets the defaults for what it does not know.
        tovix_simulated_options wanted{};
        if (options != nullptr) std::memcpy(&wanted, options, std::min<std::size_t>(options->size, sizeof wanted));
        DeviceOptions device;
        if (const std::int32_t result = make_options(wanted, device); result < 0) return result;
        const std::lock_guard lock(simulation->mutex);
        auto& cameras = simulation->cameras;
        if (device.camera.serial_number == 0)
            device.camera.serial_number = kFirstSerial + static_cast<std::uint32_t>(cameras.size());
        cameras.push_back(std::make_unique<tovix_simulated_camera>());
        cameras.back()->port = simulation->bus.plug_in(std::move(device));
        if (camera != nullptr) *camera = cameras.back().get();
        return std::int32_t{TOVIX_OK};
    });
}

std::int32_t tovix_simulation_unplug(tovix_simulated_camera* camera) {
    if (camera == nullptr) return TOVIX_EFAIL;
    camera->port->access()->unplug();
    return TOVIX_OK;
}

std::int32_t tovix_simulation_plug_in(tovix_simulated_camera* camera) {
    if (camera == nullptr) return TOVIX_EFAIL;
    return guarded([&] {
        camera->port->access()->plug_in();
        return TOVIX_OK;
    });
}

std::int32_t tovix_simulation_plant_fault(tovix_simulated_camera* camera, const tovix_simulated_fault* fault) {
    if (camera == nullptr || fault == nullptr || fault->size < sizeof *fault) return TOVIX_EFAIL;
    if (fault->place > TOVIX_FAULT_MOMENT || fault->kind > TOVIX_FAULT_BUSY) return TOVIX_EINVAL;
    const bool by_itself = fault->place == TOVIX_FAULT_MOMENT;
    if (by_itself && fault->kind != TOVIX_FAULT_UNPLUG && fault->kind != TOVIX_FAULT_REPLUG) return TOVIX_EINVAL;
    return guarded([&] {
        const auto device = camera->port->access();
        device->faults().plant({
            .place = static_cast<Place>(fault->place),
            .kind = static_cast<FaultKind>(fault->kind),
            .address = fault->address,
            .skip = by_itself ? 0 : fault->skip,
            .times = by_itself ? 1 : fault->times,
            .value = fault->value,
            .from_us = device->now_us() + fault->delay_us,
        });
        return TOVIX_OK;
    });
}

std::int32_t tovix_simulation_clear_faults(tovix_simulated_camera* camera) {
    if (camera == nullptr) return TOVIX_EFAIL;
    camera->port->access()->faults().clear();
    return TOVIX_OK;
}

std::uint32_t tovix_simulation_frames_produced(tovix_simulated_camera* camera) {
    return camera != nullptr ? camera->port->access()->frames_produced() : 0;
}

std::int32_t tovix_simulation_step(std::uint64_t microseconds) {
    if (!simulation || microseconds > INT64_MAX / 2) return TOVIX_EINVAL;
    return guarded([&] {
        simulation->bus.step(static_cast<std::int64_t>(microseconds));
        return TOVIX_OK;
    });
}

std::int32_t tovix_simulation_check_frame(const std::uint8_t* frame, std::uint32_t row_bytes, std::uint32_t height,
                                          std::uint32_t* serial) {
    if (frame == nullptr || row_bytes < kMarkBytes || height == 0) return TOVIX_EFAIL;
    std::uint32_t found = 0;
    const bool whole = check_frame({frame, std::size_t{row_bytes} * height}, row_bytes, &found);
    if (serial != nullptr) *serial = found;
    return whole ? 1 : 0;
}
