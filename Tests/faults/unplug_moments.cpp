// SPDX-License-Identifier: Apache-2.0
#include "unplug_moments.h"

#include <algorithm>

#include "handle.h"
#include "neighbour.h"

namespace tovix::faults {

namespace {

constexpr double kLongestWait_s = 0.2, kLongestStop_s = 2.0;
constexpr int kWaiters = 2;

enum class State { kIdle, kEnabled, kStreaming, kStopping, kEndedByItself };

struct Moment {
    std::string name;
    State state;
    int held;
    bool waiters;
};

std::vector<Moment> all_moments() {
    std::vector<Moment> all{{"idle", State::kIdle, 0, false},
                            {"enabled", State::kEnabled, 0, false},
                            {"left alone, 1 held", State::kEndedByItself, 1, true}};
    for (const auto& [name, state] : {std::pair{"streaming", State::kStreaming}, {"stopping", State::kStopping}}) {
        all.push_back({name, state, 0, false});
        for (const int held : {0, 1, 2, 3})
            all.push_back({name + std::string(", waiters") + (held > 0 ? ", " + std::to_string(held) + " held" : ""),
                           state, held, true});
    }
    return all;
}

class Unplugging {
  public:
    Unplugging(World& world, const Moment& moment, bool replug, LongestWaits& longest)
        : world_(world), moment_(moment), replug_(replug), longest_(longest) {}

    void run() {
        world_.expect(world_.open(), "the camera opened");
        if (moment_.state != State::kIdle) world_(kEnable, world_.camera);
        if (moment_.state == State::kIdle || moment_.state == State::kEnabled) {
            pull_out();
            if (moment_.state == State::kIdle) world_(kEnable, world_.camera);
            world_.expect(world_.waiting(kStart, world_.camera) < 0, "what is gone cannot start");
            return;
        }
        world_.expect(world_(kStart, world_.camera) == 0, "the stream started");
        for (int i = 0; i < moment_.held; ++i)
            hold(i);
        stream();
    }

  private:
    /// The third is the one that would be overwritten next: the reads that would do so are refused.
    void hold(int number) {
        if (number == 2)
            world_.bus().target().access().plant({.place = simulator::Place::kQueueRead,
                                                  .kind = simulator::FaultKind::kBusy,
                                                  .times = simulator::Fault::kForEver});
        world_.bus().pass(kFramePeriodUs);  // one frame and no more: the next could not be handed out
        const std::int32_t index = world_(kWait, world_.camera);
        world_.expect(index >= 0, "a frame to hold came");
        held_.push_back(index);
        world_.bus().target().access().clear_faults();
    }

    void stream() {
        std::vector<std::jthread> threads;
        std::atomic<int> ended{0};
        for (int i = 0; moment_.waiters && i < kWaiters; ++i) {
            threads.emplace_back([&] {
                for (std::int32_t index = 0; index != TOVIX_ENODATA;) {
                    index = world_(kWait, world_.camera);
                    if (index >= 0) world_(kRelease, world_.camera, index);
                }
                note(longest_.waiter_s, kLongestWait_s, "a waiter was kept waiting");
                ++ended;
            });
        }
        const bool stopping = moment_.state == State::kStopping;
        if (stopping) {
            threads.emplace_back([&] {
                world_.expect(world_(kStop, world_.camera) == 0, "a stream that lost its camera stopped");
                note(longest_.stop_s, kLongestStop_s, "a stop took long");
            });
        }
        const auto reached = [&] {
            StreamState& stream = world_.camera->stream;
            const StreamLock lock(stream.stream_mutex);
            return stopping ? stream.stream_stopping || !stream.stream_running
                            : stream.waiters == (moment_.waiters ? kWaiters : 0u);
        };
        while (!reached())
            std::this_thread::yield();
        pull_out();
        const Passage passage(world_.bus(), Passage::Speed::kReal);
        if (moment_.state == State::kStreaming && !moment_.waiters) {
            world_.expect(world_(kStop, world_.camera) == 0, "a stream that lost its camera stopped");
            note(longest_.stop_s, kLongestStop_s, "a stop took long");
        }
        threads.clear();
        for (const std::int32_t index : held_)
            world_(kRelease, world_.camera, index);
        world_.expect(world_(kDisable, world_.camera) == 0, "the ring was given back");
    }

    void pull_out() {
        pulled_us_ = world_.bus().now_us();
        const auto device = world_.bus().target().access();
        replug_ ? device->replug() : device->unplug();
    }

    void note(double& longest_s, double limit_s, const char* what) {
        const double took_s = static_cast<double>(world_.bus().now_us() - pulled_us_) / 1e6;
        world_.expect(took_s <= limit_s, what);
        const std::lock_guard lock(mutex_);
        longest_s = std::max(longest_s, took_s);
    }

    World& world_;
    const Moment& moment_;
    const bool replug_;
    LongestWaits& longest_;
    std::vector<std::int32_t> held_;
    std::atomic<std::int64_t> pulled_us_{0};
    std::mutex mutex_;
};

}  // namespace

LongestWaits unplug_at_every_moment(const std::function<void(const std::string& name)>& begin,
                                    const std::function<void(const Findings&)>& end) {
    LongestWaits longest;
    for (const Moment& moment : all_moments()) {
        for (const bool replug : {false, true}) {
            begin("unplug/" + moment.name + (replug ? "/and again" : "/for good"));
            Findings findings;
            {
                World world(findings);
                world.attach("mira13c", simulator::DeviceOptions::State::kReady);
                {
                    const Neighbour neighbour(world);
                    Unplugging(world, moment, replug, longest).run();
                    world.close();
                }
                world.prove_health();
            }
            end(findings);
        }
    }
    return longest;
}

}  // namespace tovix::faults
