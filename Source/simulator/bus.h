// SPDX-License-Identifier: Apache-2.0
// The bus in this process: simulated devices behind the platform seam.
//
// Each device sits in a port with a lock of its own. In real time, and as fast as it goes, a thread of the
// port gives the device its time; in stepped time whoever steps or sleeps does.
#pragma once

#include <array>
#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "backend.h"
#include "clock.h"
#include "simulated_device.h"

namespace tovix::simulator {

class HostRead;

/// A place on the bus with a device plugged in.
class Port {
  public:
    Port(DeviceOptions options, Clock& clock);
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    /// The device with its lock held and its time told. Whoever waits for it looks again when the access ends.
    class Access {
      public:
        explicit Access(Port& port);
        ~Access();
        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;
        Device* operator->() const { return &port_.device_; }
        Device& operator*() const { return port_.device_; }

        FaultPlan& host_faults() const { return port_.host_faults_; }
        /// In the plan of the device or of the host, as its place says.
        void plant(const Fault& fault) const;
        void clear_faults() const;

        /// Take hold of the device that is in the port, for `holder`. False when somebody has it already.
        [[nodiscard]] bool hold(const void* holder) const;
        /// Nothing when somebody else holds it.
        void give_back(const void* holder) const;

        /// Let go of the lock until `holds` does, which is asked whenever something has happened in the port. The time
        /// that the device knows is not told anew.
        template <class Condition>
        void wait(const Condition& holds) {
            port_.changed_.wait(lock_, holds);
        }

      private:
        Port& port_;
        std::unique_lock<std::mutex> lock_;
    };
    Access access() { return Access(*this); }

  private:
    friend class SimulatedHostDevice;
    void run();

    Clock& clock_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<int> wanted_{0};  // accesses that wait for the lock; the port's thread makes way for them
    Device device_;               // guarded by mutex_
    FaultPlan host_faults_;       // guarded by mutex_
    std::array<std::uint8_t, usb::kDeviceDescriptorBytes> descriptor_{};  // guarded by mutex_: as the host read it
    std::uint32_t described_generation_ = 0;                              // guarded by mutex_: of what it is
    const void* holder_ = nullptr;                                        // guarded by mutex_: who has the device open
    std::uint32_t held_generation_ = 0;                                   // guarded by mutex_
    std::list<std::unique_ptr<HostRead>> pending_;                        // guarded by mutex_: asynchronous reads
    bool quit_ = false;                                                   // guarded by mutex_
    std::thread thread_;
};

/// A platform operation that is made to fail, whatever the device and the host would have done.
struct OperationFault {
    platform::Operation operation = platform::Operation::kCount;  // kCount: any
    std::uint32_t skip = 0;
    std::uint32_t times = 1;
    IOReturn status = kIOReturnError;
};

class Bus final : public platform::Backend {
  public:
    explicit Bus(Pace pace) : clock_(pace) {}

    std::shared_ptr<Port> plug_in(DeviceOptions options);
    std::vector<std::shared_ptr<Port>> ports();
    Clock& clock() { return clock_; }
    /// Let time pass, in steps no longer than until the next thing that happens.
    void step(std::int64_t microseconds);

    void plant(const OperationFault& fault);
    void clear_faults();
    std::uint64_t operations() const;  ///< platform operations so far

    IOReturn devices(std::vector<std::shared_ptr<platform::HostDevice>>& found) override;
    void sleep_us(UInt32 microseconds) override;
    std::int64_t now_us() override { return clock_.now_us(); }
    void wait_until(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    std::int64_t deadline_us) override;
    IOReturn intercept(platform::Operation operation) override;

  private:
    Clock clock_;
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Port>> ports_;  // guarded by mutex_
    std::vector<OperationFault> faults_;        // guarded by mutex_
    std::uint64_t operations_ = 0;              // guarded by mutex_
};

}  // namespace tovix::simulator
