// SPDX-License-Identifier: Apache-2.0
#include "neighbour.h"

#include "handle.h"
#include "tovixapi/simulation.h"

namespace tovix::faults {

namespace {

constexpr int kProductId = 0x0203;
constexpr int kPatience = 20'000;  // looks of 0.1 ms

}  // namespace

Neighbour::Neighbour(World& world) : world_(world) {
    const Uncounted own;
    port_ = world.attach("lyra03c", simulator::DeviceOptions::State::kReady);
    tovix_camera_open_by_pid(&camera_, kProductId);
    const bool runs = camera_ != nullptr && tovix_set_video_format(camera_, &kSmallFormat) == 0 &&
                      tovix_enable_streaming(camera_) == 0 && tovix_start_streaming(camera_) == 0;
    world.expect(runs, "the neighbour started");
    taker_ = std::jthread([this] { take_frames(); });
    world.bus().set_after_step([this] {
        for (int i = 0; !left_behind_ && !keeps_up(); ++i) {
            std::this_thread::sleep_for(std::chrono::microseconds(i < 100 ? 10 : 100));
            left_behind_ = i == kPatience;
            world_.expect(!left_behind_, "the neighbour was kept waiting");
        }
    });
}

Neighbour::~Neighbour() {
    const Uncounted own;
    world_.bus().pass(5 * kFramePeriodUs);
    world_.bus().set_after_step({});
    const std::uint32_t taken = taken_;
    world_.expect(taken >= 4, "the neighbour's stream goes on");
    {
        const Passage passage(world_.bus());
        world_.expect(tovix_stop_streaming(camera_) == 0, "the neighbour stopped");
    }
    taker_.join();
    tovix_camera_close(&camera_);
}

void Neighbour::take_frames() {
    for (;;) {
        const std::int32_t index = tovix_wait_for_capture_to_buffer(camera_);
        if (index < 0) return;
        std::uint32_t serial = 0;
        const bool whole = tovix_simulation_check_frame(tovix_get_buffer_address(camera_, index), kFrameWidth,
                                                        kFrameHeight, &serial) == 1;
        world_.expect(whole, "a frame of the neighbour was torn");
        world_.expect(serial == taken_, "a frame of the neighbour was lost");
        tovix_release_buffer(camera_, index);
        ++taken_;
    }
}

/// It has taken every frame that its sensor has produced, and reads the next. Tries the lock only, since time, which is
/// locked here, passes under that lock while a stream starts.
bool Neighbour::keeps_up() TZ_NO_ANALYSIS {
    if (port_->access()->frames_produced() != taken_) return false;
    StreamState& stream = camera_->stream;
    if (pthread_mutex_trylock(&stream.stream_mutex.native) != 0) return false;
    const bool reads = stream.reads_in_flight == 1;
    stream.stream_mutex.unlock();
    return reads;
}

}  // namespace tovix::faults
