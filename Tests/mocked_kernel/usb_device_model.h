// SPDX-License-Identifier: Apache-2.0
// What a model of a USB device must offer to be plugged into the mocked kernel.
//
// The kernel's side calls from a thread of its own, one call at a time for all devices. A call may end reads,
// those of its own device included, but may not block and may not plug or unplug anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tovix::mocked_kernel {

enum class Outcome : std::uint8_t {
    kDone,      // also when less moved than was asked for
    kStall,     // the endpoint is halted; for a control request, the device does not know it
    kNoAnswer,  // the device stays silent until the host gives up
    kError      // noise on the bus
};

struct ControlSetup {
    std::uint8_t request_type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
};

/// A bulk read that the host has queued. What a device does with one that the host has cancelled has no effect.
class BulkRead {
  public:
    virtual ~BulkRead() = default;
    virtual std::size_t size() const = 0;
    /// Where the host wants the bytes.
    virtual const void* destination() const = 0;
    /// Send bytes. The read goes on; if it is cancelled now, the host has these. From any thread.
    virtual void deliver(std::span<const std::uint8_t> bytes) = 0;
    /// End the read; as an overrun if more was delivered than fits. From any thread.
    virtual void complete(Outcome outcome) = 0;
};

class UsbDeviceModel {
  public:
    virtual ~UsbDeviceModel() = default;

    /// The device descriptor, then every configuration whole.
    virtual std::vector<std::uint8_t> descriptors() const = 0;
    /// The host's driver that binds the interfaces whenever they are free to be bound; empty: none knows the device.
    virtual std::string kernel_driver() const { return {}; }

    /// `data` has the request's length; towards the host, `length` says how much of it was sent.
    virtual Outcome control(const ControlSetup& setup, std::span<std::uint8_t> data, std::size_t& length) = 0;
    virtual Outcome bulk_out(std::uint8_t endpoint, std::span<const std::uint8_t> bytes) = 0;
    virtual void bulk_in(std::uint8_t endpoint, std::shared_ptr<BulkRead> read) = 0;
    /// The host has given up on a read that was not complete.
    virtual void bulk_in_cancelled(std::uint8_t endpoint, const BulkRead& read) = 0;

    virtual bool set_configuration(std::uint8_t value) = 0;
    virtual bool set_alternate(std::uint8_t interface_number, std::uint8_t setting) = 0;
    virtual void clear_halt(std::uint8_t endpoint) = 0;
};

}  // namespace tovix::mocked_kernel
