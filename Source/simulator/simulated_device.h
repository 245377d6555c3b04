// SPDX-License-Identifier: Apache-2.0
// A simulated camera as a USB device: control requests and bulk bytes in and out, time, and nothing of any host.
//
//                      firmware, CPU released           image, polls
//   bare FX2 ---------------------------------> camera ---------------> camera with FPGA
//       ^     off the bus for a while, new identity        |                  |
//       +------------------- power off -------------------+------------------+
//
// Whoever serves it to a host - the bus in this process, a mocked kernel, a virtual machine - holds one lock
// around all calls of one device, gives it the time, and takes completions from within those calls.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <span>

#include "descriptors.h"
#include "faults.h"
#include "fx2.h"
#include "registers.h"
#include "transfer.h"
#include "video.h"

namespace tovix::simulator {

struct DeviceOptions {
    enum class State : std::uint8_t { kBare, kWithoutFpga, kReady };
    CameraSetup camera;
    State state = State::kBare;
    bool high_speed = true;
    bool mark_frames = false;
    std::int64_t reenumeration_us = 1'500'000;  ///< off the bus after firmware has arrived
    std::shared_ptr<const Scene> scene;         ///< null: the built-in test chart
};

class Device {
  public:
    explicit Device(DeviceOptions options);
    ~Device();

    // ---- the bus
    bool attached() const { return attached_; }
    /// Changes each time the device comes to the bus: what was opened before is a device that has gone.
    std::uint32_t generation() const { return generation_; }
    bool high_speed() const { return options_.high_speed; }
    Descriptors descriptors() const { return {options_.camera, fx2_ != nullptr, options_.high_speed}; }
    std::uint8_t setting() const { return setting_; }
    std::uint8_t configuration() const { return configuration_; }
    bool halted(std::uint8_t endpoint) const { return endpoint == Descriptors::kInEndpoint ? in_halted_ : out_halted_; }

    // ---- transfers. `data` has room for setup.length bytes.
    Answer control(const Setup& setup, std::uint8_t* data);
    Answer bulk_out(std::uint8_t endpoint, std::span<const std::uint8_t> data);
    void bulk_in(std::uint8_t endpoint, BulkRead& read);
    /// Take a queued read back; `finished` is not called for it any more. False when it has finished already.
    bool cancel(BulkRead& read);

    // ---- time
    /// When something happens next without any call: a frame ends that somebody waits for, the device comes back.
    std::int64_t next_event_us() const;
    void advance(std::int64_t now_us);

    // ---- what a person does
    void unplug();   ///< power is lost too: firmware and FPGA are gone
    void plug_in();  ///< as `options.state` says
    void replug();   ///< pulled out, and plugged in again a while later
    FaultPlan& faults() { return faults_; }
    std::int64_t now_us() const { return now_us_; }
    void set_observer(std::function<void(const Transfer&)> observer) { observer_ = std::move(observer); }
    std::uint32_t frames_produced() const { return video_.frames_produced(); }
    CameraSetup& setup() { return options_.camera; }
    Registers& registers() { return *registers_; }

  private:
    Answer dispatch(const Setup& setup, std::uint8_t* data);
    Answer vendor_request(const Setup& setup, std::uint8_t* data);
    Answer standard_request(const Setup& setup, std::uint8_t* data);
    Answer get_descriptor(const Setup& setup, std::uint8_t* data) const;
    Answer access_registers(const Setup& setup, std::uint8_t* data);
    Answer apply(const Fault& fault, Answer answer, std::span<std::uint8_t> wanted);
    void observe(Transfer::Kind kind, const Setup& setup, Answer answer, const std::uint8_t* data);

    void come_to_bus(DeviceOptions::State state);
    void leave_bus(std::int64_t return_us);
    void finish_reads(Outcome outcome);
    void start_or_stop_video();
    bool video_runs() const;
    void deliver();

    DeviceOptions options_;
    Video video_;
    FaultPlan faults_;
    std::function<void(const Transfer&)> observer_;

    bool attached_ = false;
    std::uint32_t generation_ = 0;
    std::int64_t now_us_ = 0;
    std::int64_t return_us_ = kNever;  // when it comes back to the bus
    DeviceOptions::State state_ = DeviceOptions::State::kBare;
    std::unique_ptr<Fx2> fx2_;              // of a bare device
    std::unique_ptr<Registers> registers_;  // of a camera

    std::uint8_t configuration_ = 0;
    std::uint8_t setting_ = 0;
    bool out_halted_ = false, in_halted_ = false;
    std::deque<BulkRead*> reads_;
};

}  // namespace tovix::simulator
