// SPDX-License-Identifier: Apache-2.0
#include "tovixapi/simulation.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <vector>

#include "bus.h"
#include "frame_mark.h"
#include "scene.h"
#include "tovixapi/tovixapi.h"
#include "usbip.h"

struct tovix_simulated_camera {
    std::shared_ptr<tovix::simulator::Port> port;
};

namespace tovix::simulator {

namespace {

// The public numbers of places and kinds are those of the plan.
static_assert(TOVIX_FAULT_AT_MOMENT == static_cast<int>(Place::kMoment) && TOVIX_FAULT_AT_MOMENT + 1 == kPlaces);
static_assert(TOVIX_FAULT_BUSY == static_cast<int>(FaultKind::kBusy) && TOVIX_FAULT_BUSY + 1 == kFaultKinds);

struct Simulation {
    explicit Simulation(Pace pace) : bus(pace) {}
    Bus bus;
    std::mutex mutex;
    std::vector<std::unique_ptr<tovix_simulated_camera>> cameras;  // guarded by mutex
};

std::unique_ptr<Simulation> simulation;

constexpr std::uint32_t kFirstSerial = 1001;

std::int32_t refuse(const char* format, const char* detail) {
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

/// Do something to a camera with its port's lock held.
template <class Body>
std::int32_t with(tovix_simulated_camera* camera, const Body& body) noexcept {
    if (camera == nullptr) return TOVIX_EFAIL;
    return guarded([&] {
        body(camera->port->access());
        return TOVIX_OK;
    });
}

/// A record as this library knows it: zero where its caller was compiled with a shorter one. False for no size at all.
template <class Record>
bool take(const Record& given, Record& record) {
    std::memcpy(&record, &given, std::min<std::size_t>(given.size, sizeof record));
    return given.size != 0;
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
        tovix_simulated_options wanted{};
        if (options == nullptr) {
            wanted.state = TOVIX_SIMULATED_READY;
        } else if (!take(*options, wanted)) {
            return refuse("error: the options of a simulated camera have no size\n", "");
        }
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
    return with(camera, [](const auto& device) { device->unplug(); });
}

std::int32_t tovix_simulation_plug_in(tovix_simulated_camera* camera) {
    return with(camera, [](const auto& device) { device->plug_in(); });
}

std::int32_t tovix_simulation_plant_fault(tovix_simulated_camera* camera, const tovix_simulated_fault* fault) {
    if (camera == nullptr || fault == nullptr) return TOVIX_EFAIL;
    tovix_simulated_fault wanted{};
    if (!take(*fault, wanted)) return TOVIX_EINVAL;
    if (wanted.place >= kPlaces || wanted.kind >= kFaultKinds) return TOVIX_EINVAL;
    const auto place = static_cast<Place>(wanted.place);
    const auto kind = static_cast<FaultKind>(wanted.kind);
    if (!is_possible(place, kind)) return TOVIX_EINVAL;
    return with(camera, [&](const auto& device) {
        device.plant({
            .place = place,
            .kind = kind,
            .address = wanted.address,
            .skip = wanted.skip,
            .times = wanted.times,
            .value = wanted.value,
            .from_us = device->now_us() + wanted.delay_us,
        });
    });
}

std::int32_t tovix_simulation_clear_faults(tovix_simulated_camera* camera) {
    return with(camera, [](const auto& device) { device.clear_faults(); });
}

std::uint32_t tovix_simulation_frames_produced(tovix_simulated_camera* camera) {
    std::uint32_t frames = 0;
    with(camera, [&](const auto& device) { frames = device->frames_produced(); });
    return frames;
}

std::int32_t tovix_simulation_step(std::uint64_t microseconds) {
    if (!simulation || microseconds > INT64_MAX / 2) return TOVIX_EINVAL;
    return guarded([&] {
        simulation->bus.step(static_cast<std::int64_t>(microseconds));
        return TOVIX_OK;
    });
}

std::int32_t tovix_simulation_serve_usbip(int socket) {
    if (!simulation || simulation->bus.clock().pace() == Pace::kStepped) return TOVIX_EINVAL;
    return guarded([&] { return serve_usbip(simulation->bus, socket) ? TOVIX_OK : TOVIX_EFAIL; });
}

std::int32_t tovix_simulation_check_frame(const std::uint8_t* frame, std::uint32_t row_bytes, std::uint32_t height,
                                          std::uint32_t* serial) {
    if (frame == nullptr || row_bytes < kMarkBytes || height == 0) return TOVIX_EFAIL;
    std::uint32_t found = 0;
    const bool whole = check_frame({frame, std::size_t{row_bytes} * height}, row_bytes, &found);
    if (serial != nullptr) *serial = found;
    return whole ? 1 : 0;
}
