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
#include <string>
#include <vector>

#include "faults.h"
#include "fx2.h"
#include "registers.h"
#include "sensor.h"

namespace tovix::simulator {

/// The SETUP packet of a control transfer.
struct Setup {
    std::uint8_t request_type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
    bool to_host() const { return (request_type & 0x80) != 0; }
};

enum class Outcome : std::uint8_t {
    kDone,
    kStall,    // the device refuses; a bulk endpoint stays halted until it is cleared
    kSilent,   // no answer: the host waits until its time-out
    kOverrun,  // the device sent more than was asked for
    kGone      // the device is off the bus
};

struct Answer {
    Outcome outcome;
    std::uint32_t length = 0;  // bytes that moved
};

/// A read that a host has queued on a bulk endpoint. The host owns it and keeps it until `finished` or a cancel.
class BulkRead {
  public:
    virtual ~BulkRead() = default;
    virtual void finished(Outcome outcome, std::uint32_t bytes) = 0;

    std::uint8_t* data = nullptr;
    std::uint32_t size = 0;
};

/// What passed between host and device, for whoever wants to see it.
struct Transfer {
    enum class Kind : std::uint8_t { kControl, kBulkOut, kBulkIn, kAttach, kDetach };
    Kind kind;
    Setup setup{};  // of control transfers
    Answer answer{};
    std::vector<std::uint8_t> head;  // the first bytes that moved, at most 16

    std::string text() const;
};

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
    static constexpr std::int64_t kNever = INT64_MAX;
    static constexpr std::uint8_t kOutEndpoint = 0x02;
    static constexpr std::uint8_t kInEndpoint = 0x86;

    explicit Device(DeviceOptions options);
    ~Device();

    // ---- the bus
    bool attached() const { return attached_; }
    /// Changes each time the device comes to the bus: what was opened before is a device that has gone.
    std::uint32_t generation() const { return generation_; }
    bool high_speed() const { return options_.high_speed; }
    std::vector<std::uint8_t> device_descriptor() const;
    std::vector<std::uint8_t> configuration_descriptor() const;
    /// Addresses of the endpoints of an alternate setting; setting n of the interface.
    std::vector<std::uint8_t> endpoints(std::uint8_t setting) const;
    std::uint8_t setting() const { return setting_; }
    std::uint8_t configuration() const { return configuration_; }
    bool halted(std::uint8_t endpoint) const { return endpoint == kInEndpoint ? in_halted_ : out_halted_; }

    /// The fault that hits something the host does without the device's part: opening it, queueing a read.
    std::optional<FaultKind> host_operation(Place place);

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
    FaultPlan& faults() { return faults_; }
    std::int64_t now_us() const { return now_us_; }
    void set_observer(std::function<void(const Transfer&)> observer) { observer_ = std::move(observer); }
    std::uint32_t frames_produced() const { return frames_produced_; }
    CameraSetup& setup() { return options_.camera; }
    Registers& registers() { return *registers_; }

  private:
    Answer dispatch(const Setup& setup, std::uint8_t* data);
    Answer vendor_request(const Setup& setup, std::uint8_t* data);
    Answer standard_request(const Setup& setup, std::uint8_t* data);
    Answer get_descriptor(const Setup& setup, std::uint8_t* data);
    Answer access_registers(const Setup& setup, std::uint8_t* data);
    Answer answer_bytes(const Setup& setup, std::uint8_t* data, std::span<const std::uint8_t> bytes) const;
    Answer apply(const Fault& fault, Answer answer, const Setup& setup, std::uint8_t* data);
    void observe(Transfer::Kind kind, const Setup& setup, Answer answer, const std::uint8_t* data);

    void come_to_bus(DeviceOptions::State state);
    void leave_bus(std::int64_t return_us);
    void finish_reads(Outcome outcome);
    void start_or_stop_video();
    bool video_runs() const;
    void produce_frame();
    void deliver();

    DeviceOptions options_;
    Sensor sensor_;
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

    bool video_starts_ = false;           // the first frame begins when the time is told next
    std::int64_t frame_end_us_ = kNever;  // of the frame that the sensor takes now
    std::vector<std::uint8_t> frame_;     // the newest complete frame, until it has been read
    std::size_t frame_sent_ = 0;
    std::uint32_t frames_produced_ = 0;
};

}  // namespace tovix::simulator
