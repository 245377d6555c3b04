// SPDX-License-Identifier: Apache-2.0
// A bus with one simulated camera on it that lies where the input says so.
//
// Each operation of a device takes one byte of the input: mostly the truth is told, else the operation fails, or answers
// with something else. Frames are the input's own. When the input is used up, the camera is honest and delivers no more
// frames; after some thousand operations all of them fail, as if it had left the bus. Time passes by being waited for.
#pragma once

#include <list>
#include <mutex>

#include "backend.h"
#include "simulated_device.h"
#include "target.h"

namespace tovix::fuzz {

class HostileBus final : public platform::Backend {
  public:
    /// Selected for as long as it lives. When it ends, the library holds no object of it any more.
    HostileBus(Input& lies, simulator::DeviceOptions options);
    ~HostileBus() override;
    HostileBus(const HostileBus&) = delete;
    HostileBus& operator=(const HostileBus&) = delete;

    /// Frames until the camera is gone; or until it is silent, which nobody must wait for.
    void set_frames(std::uint32_t count, bool then_silent);

    IOReturn devices(std::vector<std::shared_ptr<platform::HostDevice>>& found) override;
    void sleep_us(UInt32 microseconds) override;
    std::int64_t now_us() override;
    void wait_until(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    std::int64_t deadline_us) override;

  private:
    friend class HostileDevice;
    /// What comes in place of an operation, or of the answer to one.
    struct Lie {
        IOReturn status = kIOReturnSuccess;
        bool told = false;                 // in place of the operation
        bool answer = false;               // other bytes than the true ones
        std::uint32_t bytes = UINT32_MAX;  // of them, at most
    };
    Lie lie();
    void fill(std::uint8_t* data, std::size_t size);
    void pass_time(std::int64_t microseconds);

    std::mutex mutex_;                     // the acquisition thread comes, too
    Input& lies_;                          // guarded by mutex_
    simulator::Device device_;             // guarded by mutex_
    std::int64_t now_us_ = 0;              // guarded by mutex_
    int operations_ = 0;                   // guarded by mutex_
    std::uint32_t frames_left_ = 0;        // guarded by mutex_
    bool then_silent_ = false;             // guarded by mutex_
    platform::AsyncRead* read_ = nullptr;  // guarded by mutex_: one that waits for a silent camera
    const long objects_before_;
};

}  // namespace tovix::fuzz
