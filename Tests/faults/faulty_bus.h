// SPDX-License-Identifier: Apache-2.0
// The simulated bus seen through an injector: operations fail as a target says, and time passes only when it is let.
//
// Time is stepped by whoever sleeps, and by the passage of time (see Passage) while somebody waits for the camera.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bus.h"
#include "injector.h"

namespace tovix::faults {

class FaultyDevice;
class LateRead;

class FaultyBus final : public platform::Backend {
  public:
    FaultyBus();
    ~FaultyBus() override;

    /// The first camera is the one that is unplugged.
    std::shared_ptr<simulator::Port> plug_in(simulator::DeviceOptions options);
    simulator::Port& target() { return *ports_.front(); }

    /// Let time pass until then, in steps so short that no camera takes two frames in one of them.
    void pass_until(std::int64_t end_us);
    void pass(std::int64_t microseconds) { pass_until(now_us() + microseconds); }
    /// Called after every step, for whoever has to keep up with the time.
    void set_after_step(std::function<void()> call) { after_step_ = std::move(call); }

    IOReturn devices(std::vector<std::shared_ptr<platform::HostDevice>>& found) override;
    void sleep_us(UInt32 microseconds) override;
    std::int64_t now_us() override { return bus_.now_us(); }
    void wait_until(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    std::int64_t deadline_us) override;
    IOReturn intercept(platform::Operation operation) override;

  private:
    friend class FaultyDevice;
    void queue_late(std::unique_ptr<LateRead> read);
    void finish_late(const platform::HostDevice* device);  // as aborted
    void issue_due();

    simulator::Bus bus_{simulator::Pace::kStepped};
    std::vector<std::shared_ptr<simulator::Port>> ports_;
    std::function<void()> after_step_;
    std::mutex time_mutex_;  // one passes time at a time
    std::mutex late_mutex_;
    std::list<std::unique_ptr<LateRead>> late_;  // guarded by late_mutex_
};

/// While one exists, time passes: slowly at first, so that who waits sees every frame, then faster. At real speed a second
/// takes a second, but the process may be stopped for a while without anyone having waited too long.
class Passage {
  public:
    enum class Speed : bool { kReal, kGrowing };
    explicit Passage(FaultyBus& bus, Speed speed = Speed::kGrowing);
    Passage(const Passage&) = delete;
    Passage& operator=(const Passage&) = delete;

  private:
    std::jthread thread_;
};

}  // namespace tovix::faults
