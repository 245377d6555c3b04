// SPDX-License-Identifier: Apache-2.0
#include "world.h"

#include <filesystem>

#include "search.h"
#include "tovixapi/simulation.h"

namespace tovix::faults {

namespace {

constexpr std::uint16_t kSensorWidth = 128, kSensorHeight = 64;
constexpr std::int64_t kPatienceUs = 300'000'000;
constexpr std::int64_t kBackOnTheBusUs = 3'000'000;  // after firmware, or a replug

std::uint32_t failure_bit(std::int32_t result) {
    switch (result) {
        case TOVIX_EFAIL: return kEfail;
        case TOVIX_ESEARCH: return kEsearch;
        case TOVIX_EADJUST: return kEadjust;
        case TOVIX_ENOMEM: return kEnomem;
        case TOVIX_EMODEL: return kEmodel;
        case TOVIX_EINVAL: return kEinval;
        case TOVIX_ELIGHT: return kElight;
        case TOVIX_ENOFOCUS: return kEnofocus;
        case TOVIX_ENOTSUP: return kEnotsup;
        case TOVIX_ENODATA: return kEnodata;
        default: return 0;
    }
}

}  // namespace

bool is_documented(unsigned failures, std::int32_t result) {
    if ((failures & failure_bit(result)) != 0) return true;
    if ((failures & kStatus) != 0 && (static_cast<std::uint32_t>(result) >> 16) == 0xE000) return true;
    return (failures & kErrno) != 0 && (result == -EAGAIN || result == -ENOMEM);
}

World::World(Findings& findings) : findings_(findings) {
    tz_platform_select(&bus_);
    usb_init = 0;
}

World::~World() {
    tz_platform_select(nullptr);
}

std::shared_ptr<simulator::Port> World::attach(std::string_view model, simulator::DeviceOptions::State state) {
    simulator::Model found;
    expect(simulator::find_model(model, found), "there is such a model");
    found.width = kSensorWidth;  // small, since each camera draws what it looks at once
    found.height = kSensorHeight;
    simulator::DeviceOptions options;
    options.camera = simulator::CameraSetup::of(found);
    options.camera.noise = 0;
    options.camera.serial_number = ++serial_number_;
    options.state = state;
    options.mark_frames = true;
    return bus_.plug_in(std::move(options));
}

std::int32_t World::wait_for_frame() {
    const Passage passage(bus_);
    const std::int64_t give_up_us = bus_.now_us() + kPatienceUs;
    const Uncounted own;
    const std::jthread impatient([&](const std::stop_token& frame_came) {
        while (!frame_came.stop_requested() && bus_.now_us() < give_up_us)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        if (!frame_came.stop_requested()) (*this)(kStop, camera);
    });
    const Counted again;
    return (*this)(kWait, camera);
}

void World::expect(bool good, std::string_view what) {
    if (good) return;
    const Uncounted own;
    const std::lock_guard lock(mutex_);
    findings_.emplace_back(what);
}

void World::check_result(const char* call, std::int32_t result, unsigned failures, std::int32_t most) {
    if (result >= 0 ? result <= most : is_documented(failures, result)) return;
    const Uncounted own;
    expect(false, std::string(call) + " returned " + std::to_string(result) + ", which is not documented");
}

bool World::open() {
    const std::int32_t result = (*this)(kOpenAny, &camera);
    expect(result == 0 || camera == nullptr, "a failed open left the handle alone");
    if (camera == nullptr) return false;
    return (*this)(kSetFormat, camera, &kSmallFormat) == 0;
}

bool World::start() {
    return (*this)(kEnable, camera) == 0 && waiting(kStart, camera) == 0;
}

void World::check_frame(std::int32_t index) {
    std::uint32_t serial = 0;
    const bool whole =
        tovix_simulation_check_frame(tovix_get_buffer_address(camera, index), kFrameWidth, kFrameHeight, &serial) == 1;
    expect(whole, "a frame was torn");
    const std::lock_guard lock(mutex_);
    last_serial_ = serial;
    frame_came_ = true;
}

void World::close() {
    if (camera == nullptr) return;
    const Passage passage(bus_);
    (*this)(kClose, &camera);
    expect(camera == nullptr, "a closed handle is null");
}

void World::prove_health() {
    close();
    bus_.target().access()->plug_in();
    bus_.pass(kBackOnTheBusUs);
    usb_init = 0;
    expect((*this)(kInit, TOVIX_RESOURCES) == 0, "cameras came up again");
    expect(open() && start(), "the camera opened and started again");
    if (camera == nullptr) return;
    const std::int32_t index = waiting(kWait, camera);
    expect(index >= 0, "a frame came again");
    if (index >= 0) check_frame(index);
    if (index >= 0) expect((*this)(kRelease, camera, index) == 0, "its buffer was given back");
    expect(waiting(kStop, camera) == 0, "the stream stopped again");
    close();
}

Footprint Footprint::now() {
    const auto entries_of = [](const char* folder) {
        const std::filesystem::directory_iterator begin(folder);
        return static_cast<long>(std::distance(begin, {}));
    };
    return {entries_of("/proc/self/fd"), entries_of("/proc/self/task"), tz_platform_objects_alive()};
}

}  // namespace tovix::faults
