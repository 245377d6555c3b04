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
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "bus.h"
#include "injector.h"

namespace tovix::faults {

class FaultyDevice;
class LateRead;

/// An answer of a device: the request that it is to, and its length.
struct Answered {
    UInt8 request_type, request;
    UInt16 value, index;
    UInt32 length;
    auto operator<=>(const Answered&) const = default;
};

/// A field of an answer that is not what the device sent.
struct Forgery {
    Answered answer;
    UInt32 offset, bytes, value;  // bytes from 1 to 4, least significant byte first
};

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

    // What devices say, for whoever forges it. Not while the library is in use.
    void write_down_answers(std::set<Answered>* answers) { answers_ = answers; }
    void forge(const std::optional<Forgery>& forgery) { forgery_ = forgery, answers_ = nullptr; }
    void forge_identity(std::function<void(platform::DeviceIdentity&)> change) { change_identity_ = std::move(change); }

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
    void answered(const Answered& answer, void* data);

    simulator::Bus bus_{simulator::Pace::kStepped};
    std::vector<std::shared_ptr<simulator::Port>> ports_;
    std::function<void()> after_step_;
    std::set<Answered>* answers_ = nullptr;
    std::optional<Forgery> forgery_;
    std::function<void(platform::DeviceIdentity&)> change_identity_;
    std::mutex time_mutex_;  // one passes time at a time
    std::mutex late_mutex_;
    std::list<std::unique_ptr<LateRead>> late_;  // guarded by late_mutex_
};

/// While one exists, time passes whenever somebody waits (see Waits): slowly at first, so that who waits sees every frame,
/// then faster. At real speed it passes always, and a second takes a second, but the process may be stopped for a while
/// without anyone having waited too long.
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
