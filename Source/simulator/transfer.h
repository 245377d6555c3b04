// SPDX-License-Identifier: Apache-2.0
// What passes between a host and a simulated device.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "wire.h"

namespace tovix::simulator {

/// The SETUP packet of a control transfer.
struct Setup {
    std::uint8_t request_type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
    bool to_host() const { return (request_type & usb::kToHost) != 0; }
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

}  // namespace tovix::simulator
