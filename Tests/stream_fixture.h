// SPDX-License-Identifier: Apache-2.0
// An open camera with small frames on a stepped bus, one frame every 10 ms of its exposure.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "handle.h"
#include "simulated_bus.h"
#include "stderr_capture.h"

namespace tovix::test {

constexpr std::int64_t kFramePeriodUs = 10'000;

class StreamTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const _tovix_frame_format format = format_of(64, 16);
        ASSERT_EQ(tovix_set_video_format(camera, &format), 0);
    }

    void begin() {
        ASSERT_EQ(tovix_enable_streaming(camera), 0);
        ASSERT_EQ(tovix_start_streaming(camera), 0);
    }

    /// Let frames pass by without taking them.
    void skip_frames(std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint32_t before = sequence();
            bus->step(kFramePeriodUs);
            ASSERT_TRUE(eventually([&] { return sequence() != before; }));
        }
    }

    /// Take the next frame.
    std::int32_t next_frame() {
        bus->step(kFramePeriodUs);
        return tovix_wait_for_capture_to_buffer(camera);
    }

    /// Stop the stream: the camera has to deliver the frame that is being read. Time stands still until the
    /// stop has been requested, so that it is the only one.
    std::int32_t stop() {
        const auto requested = [&] { return camera->stream.stream_stopping || !camera->stream.stream_running; };
        return while_stepping([&] { return tovix_stop_streaming(camera); }, kFramePeriodUs, requested);
    }

    /// Run a call that waits for the camera while time passes, from the moment that `begun` holds.
    std::int32_t while_stepping(
        const std::function<std::int32_t()>& call, std::int64_t step_us = kFramePeriodUs,
        const std::function<bool()>& begun = [] { return true; }) {
        std::atomic<bool> done{false};
        std::int32_t result = 0;
        std::thread caller([&] {
            result = call();
            done = true;
        });
        EXPECT_TRUE(eventually([&] { return done || begun(); }));
        EXPECT_TRUE(step_until(
            bus, [&] { return done.load(); }, step_us));
        caller.join();
        return result;
    }

    std::uint32_t sequence() {
        const StreamLock lock(camera->stream.stream_mutex);
        return camera->stream.frame_sequence;
    }
    /// So many threads wait for a frame.
    bool waited_for_by(std::uint32_t count) {
        return eventually([&] {
            const StreamLock lock(camera->stream.stream_mutex);
            return camera->stream.waiters == count;
        });
    }

    static bool eventually(const std::function<bool()>& condition) {
        const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > give_up) return false;
            std::this_thread::yield();
        }
        return true;
    }

    /// Serial of the marked frame in a buffer; fails when it is not whole.
    std::uint32_t serial_in(std::int32_t index) {
        std::uint32_t serial = 0;
        EXPECT_EQ(tovix_simulation_check_frame(tovix_get_buffer_address(camera, index), 64, 16, &serial), 1);
        return serial;
    }

    SimulatedBus bus;
    Port& port =
        bus.attach("mira13c", DeviceOptions::State::kReady, [](DeviceOptions& options) { options.mark_frames = true; });
    OpenCamera camera;
};

}  // namespace tovix::test
