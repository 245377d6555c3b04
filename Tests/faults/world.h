// SPDX-License-Identifier: Apache-2.0
// What a case of a scenario has: a bus with cameras on it, calls whose results are checked, and the proof afterwards that
// nothing is left over and the camera works as before.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "../frame_formats.h"
#include "calls.h"
#include "faulty_bus.h"

namespace tovix::faults {

/// What went wrong, in words; none for a case that went well.
using Findings = std::vector<std::string>;

/// The camera's frames are as small as that, marked, and 10 ms apart.
constexpr std::uint32_t kFrameWidth = 64, kFrameHeight = 16;
constexpr std::int64_t kFramePeriodUs = 10'000;
constexpr _tovix_frame_format kSmallFormat = test::format_of(kFrameWidth, kFrameHeight);

class World {
  public:
    explicit World(Findings& findings);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    FaultyBus& bus() { return bus_; }
    std::shared_ptr<simulator::Port> attach(std::string_view model, simulator::DeviceOptions::State state);

    /// Call the library, and see to it that the result is documented.
    template <class... Parameters>
    std::int32_t operator()(const Call<Parameters...>& call, std::type_identity_t<Parameters>... arguments) {
        const std::int32_t result = call.function(arguments...);
        check_result(call.name, result, call.failures, call.most);
        return result;
    }
    /// The same for a call that waits for the camera: time passes meanwhile.
    template <class... Parameters>
    std::int32_t waiting(const Call<Parameters...>& call, std::type_identity_t<Parameters>... arguments) {
        const Passage passage(bus_);
        return (*this)(call, arguments...);
    }

    /// Wait for a frame of a camera that may never send one: stops the stream after a while.
    std::int32_t wait_for_frame();

    /// Add a finding unless `good`. Any thread.
    void expect(bool good, std::string_view what);

    /// Open the first camera and give it small frames. False when it cannot.
    bool open();
    /// Enable and start its stream.
    bool start();
    /// The frame in that buffer is whole, and newer than the one before.
    void check_frame(std::int32_t buffer_index);
    void close();

    /// Once the trouble is over: everything comes up, opens, and streams a frame, as if nothing had been.
    void prove_health();

    _tovix* camera = nullptr;

  private:
    void check_result(const char* call, std::int32_t result, unsigned failures, std::int32_t most);

    Findings& findings_;
    FaultyBus bus_;
    std::mutex mutex_;
    std::uint32_t last_serial_ = 0;  // guarded by mutex_
    bool frame_came_ = false;        // guarded by mutex_
    std::uint32_t serial_number_ = 0;
};

/// What is counted before a case and must be the same after it.
struct Footprint {
    long descriptors, threads, objects;
    static Footprint now();
    bool operator==(const Footprint&) const = default;
};

}  // namespace tovix::faults
