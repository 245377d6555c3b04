// SPDX-License-Identifier: Apache-2.0
// A simulated camera as a device of the mocked kernel.
//
//   kernel's calls --\                         /--> BulkRead::deliver, complete
//                     >-- one lock -- Device --
//   camera's thread -/                         \--> the thread plugs and unplugs the node
//
// The thread gives the device its time. When the device leaves the bus or comes to it, for instance because
// its new firmware runs, the thread lets the node follow: no call of the kernel may do that, since the kernel waits for
// all its calls to end.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "clock.h"
#include "mocked_kernel.h"
#include "simulated_device.h"

namespace tovix::mocked_kernel {

class SimulatedCameraModel final : public UsbDeviceModel {
  public:
    /// Plugged into that port of the kernel until it is destroyed, before the kernel and the clock are.
    SimulatedCameraModel(MockedKernel& kernel, int port, simulator::Clock& clock, simulator::DeviceOptions options);
    ~SimulatedCameraModel() override;

    /// The device with its lock held and its time told. Not to be unplugged or plugged in this way, unless
    /// nobody needs to know when the kernel has noticed.
    class Access {
      public:
        explicit Access(SimulatedCameraModel& camera);
        ~Access() { camera_.changed_.notify_all(); }
        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;
        simulator::Device* operator->() const { return &camera_.device_; }

      private:
        SimulatedCameraModel& camera_;
        const std::lock_guard<std::mutex> lock_;
    };
    Access access() { return Access(*this); }

    /// To be told of every read that the host queues.
    void observe_reads(std::function<void(const BulkRead&)> observer);

    /// Return when the kernel has noticed.
    void unplug();
    void plug_in();

    std::vector<std::uint8_t> descriptors() const override;
    std::string kernel_driver() const override;
    Outcome control(const ControlSetup& setup, std::span<std::uint8_t> data, std::size_t& length) override;
    Outcome bulk_out(std::uint8_t endpoint, std::span<const std::uint8_t> bytes) override;
    void bulk_in(std::uint8_t endpoint, std::shared_ptr<BulkRead> read) override;
    void bulk_in_cancelled(std::uint8_t endpoint, const BulkRead& read) override;
    bool set_configuration(std::uint8_t value) override;
    bool set_alternate(std::uint8_t interface_number, std::uint8_t setting) override;
    void clear_halt(std::uint8_t endpoint) override;

  private:
    class PassedOnRead;

    void run();
    void follow_device(std::unique_lock<std::mutex>& lock);
    void wait_for_kernel();
    bool host_request(const simulator::Setup& setup);

    // With the lock held.
    std::uint32_t device_generation() const { return device_.attached() ? device_.generation() : 0; }
    bool reachable() const { return node_generation_ == device_generation(); }

    MockedKernel& kernel_;
    const int port_;
    simulator::Clock& clock_;

    mutable std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    simulator::Device device_;
    std::function<void(const BulkRead&)> read_observer_;
    std::list<PassedOnRead> reads_;      // under way in the device
    std::uint32_t node_generation_ = 0;  // of the device that the node shows; 0: there is no node
    bool node_moves_ = false;            // it is being plugged or unplugged
    bool quit_ = false;
    std::thread thread_;
};

}  // namespace tovix::mocked_kernel
