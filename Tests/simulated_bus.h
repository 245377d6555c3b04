// SPDX-License-Identifier: Apache-2.0
// A simulated bus for the time of a test. Fails the test when platform objects are left over.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "backend.h"
#include "bus.h"
#include "tovixapi/simulation.h"
#include "tovixapi/tovixapi.h"

namespace tovix::test {

using simulator::Device;
using simulator::DeviceOptions;
using simulator::Fault;
using simulator::FaultKind;
using simulator::Pace;
using simulator::Place;
using simulator::Port;

/// A camera of that model without noise; ready to be opened unless told otherwise.
inline DeviceOptions options_of(std::string_view model, DeviceOptions::State state = DeviceOptions::State::kReady) {
    simulator::Model found;
    EXPECT_TRUE(simulator::find_model(model, found)) << model;
    DeviceOptions options;
    options.camera = simulator::CameraSetup::of(found);
    options.camera.noise = 0;
    options.state = state;
    return options;
}

/// A format of that size at the sensor's corner, with nothing left out.
inline _tovix_frame_format format_of(std::uint32_t width, std::uint32_t height) {
    _tovix_frame_format format{};
    format.width = width, format.height = height;
    format.subsample_x = format.subsample_y = 1;
    return format;
}

class SimulatedBus {
  public:
    explicit SimulatedBus(Pace pace = Pace::kStepped) : bus_(pace) { tz_platform_select(&bus_); }
    ~SimulatedBus() {
        tz_platform_select(nullptr);
        EXPECT_EQ(tz_platform_objects_alive(), objects_before_) << "platform objects left over";
    }
    SimulatedBus(const SimulatedBus&) = delete;
    SimulatedBus& operator=(const SimulatedBus&) = delete;

    Port& attach(std::string_view model = "mira13c", DeviceOptions::State state = DeviceOptions::State::kReady,
                 const std::function<void(DeviceOptions&)>& change = {}) {
        DeviceOptions options = options_of(model, state);
        options.camera.serial_number = ++serial_;
        if (change) change(options);
        return *ports_.emplace_back(bus_.plug_in(std::move(options)));
    }

    simulator::Bus* operator->() { return &bus_; }

  private:
    simulator::Bus bus_;
    const long objects_before_ = tz_platform_objects_alive();
    std::vector<std::shared_ptr<Port>> ports_;
    std::uint32_t serial_ = 0;
};

/// An open camera, closed when it goes out of scope.
class OpenCamera {
  public:
    OpenCamera() {
        EXPECT_EQ(tovix_camera_open_any(&handle_), 0);
        EXPECT_NE(handle_, nullptr);
    }
    ~OpenCamera() { tovix_camera_close(&handle_); }
    OpenCamera(const OpenCamera&) = delete;
    OpenCamera& operator=(const OpenCamera&) = delete;
    operator _tovix*() const { return handle_; }
    _tovix* operator->() const { return handle_; }

  private:
    _tovix* handle_ = nullptr;
};

/// A bus with one open camera whose transfers are written down.
struct Wire {
    explicit Wire(std::string_view model = "mira13c", const std::function<void(DeviceOptions&)>& change = {})
        : port(bus.attach(model, DeviceOptions::State::kReady, change)) {
        port.access()->set_observer([this](const simulator::Transfer& transfer) { lines.push_back(transfer.text()); });
    }
    void plant(Fault fault) { port.access()->faults().plant(fault); }
    /// What has passed since the last call.
    std::vector<std::string> take() { return std::exchange(lines, {}); }

    std::vector<std::string> lines;  // outlives the camera, whose closing is written down too
    SimulatedBus bus;
    Port& port;
    OpenCamera camera;
};

/// Let simulated time pass in steps until `done`, or fail after a generous real time.
bool step_until(SimulatedBus& bus, const auto& done, std::int64_t step_us = 100'000) {
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > give_up) return false;
        bus->step(step_us);
        std::this_thread::yield();
    }
    return true;
}

}  // namespace tovix::test
