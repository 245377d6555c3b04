// SPDX-License-Identifier: Apache-2.0
// The USB/IP protocol, version 1.1.1, as the documentation of the Linux kernel has it (usb/usbip_protocol). Numbers are
// big-endian, but for the SETUP packet, which is as on a USB wire.
//
//   client: OP_REQ_DEVLIST                server: OP_REP_DEVLIST, ends the connection
//   client: OP_REQ_IMPORT, bus ID         server: OP_REP_IMPORT; then, in any order and until one of them leaves:
//   client: CMD_SUBMIT, bytes out         server: RET_SUBMIT, bytes in
//   client: CMD_UNLINK                    server: RET_UNLINK
#pragma once

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace tovix::simulator::usbip {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint16_t kVersion = 0x0111;

// Codes of operations; the reply to one has no top bit.
inline constexpr std::uint16_t kRequest = 0x8000, kImport = 3, kDeviceList = 5;
// Status of a reply.
inline constexpr std::uint32_t kOk = 0, kBusy = 2, kNoDevice = 4;

// Commands, and direction of a transfer.
inline constexpr std::uint32_t kSubmit = 1, kUnlink = 2, kSubmitted = 3, kUnlinked = 4;
inline constexpr std::uint32_t kOut = 0, kIn = 1;
inline constexpr std::uint32_t kShortNotOk = 1;  // transfer flag: fewer bytes than asked for are an error

// Sizes in bytes.
inline constexpr std::size_t kOperationBytes = 8, kBusIdBytes = 32, kPathBytes = 256, kCommandBytes = 48;

/// Status of a transfer: Linux's error numbers, negated, whatever the client runs on.
inline constexpr std::int32_t kStalled = -32, kCancelled = -104, kOverrun = -75, kShort = -121, kGone = -108,
                              kNoMemory = -12;

/// Appends what a message is made of.
class Writer {
  public:
    explicit Writer(Bytes& bytes) : bytes_(bytes) {}
    Writer& u8(std::uint8_t value) { return bytes_.push_back(value), *this; }
    Writer& u16(std::uint16_t value) {
        return u8(static_cast<std::uint8_t>(value >> 8)).u8(static_cast<std::uint8_t>(value));
    }
    Writer& u32(std::uint32_t value) {
        return u16(static_cast<std::uint16_t>(value >> 16)).u16(static_cast<std::uint16_t>(value));
    }
    Writer& zeros(std::size_t count) { return bytes_.resize(bytes_.size() + count), *this; }
    /// Filled up with zeros, at least one.
    Writer& text(std::string_view text, std::size_t size) {
        text = text.substr(0, size - 1);
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        return zeros(size - text.size());
    }

  private:
    Bytes& bytes_;
};

inline std::uint16_t u16_at(std::span<const std::uint8_t> bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

inline std::uint32_t u32_at(std::span<const std::uint8_t> bytes, std::size_t at) {
    return std::uint32_t{u16_at(bytes, at)} << 16 | u16_at(bytes, at + 2);
}

/// CMD_SUBMIT or CMD_UNLINK.
struct Command {
    std::uint32_t command, sequence, device, direction, endpoint;
    std::uint32_t flags;   // of CMD_UNLINK: the sequence number of what is to be unlinked
    std::uint32_t length;  // of CMD_SUBMIT: bytes of the transfer
    std::span<const std::uint8_t, 8> setup;

    explicit Command(std::span<const std::uint8_t, kCommandBytes> bytes)
        : command(u32_at(bytes, 0)),
          sequence(u32_at(bytes, 4)),
          device(u32_at(bytes, 8)),
          direction(u32_at(bytes, 12)),
          endpoint(u32_at(bytes, 16)),
          flags(u32_at(bytes, 20)),
          length(u32_at(bytes, 24)),
          setup(bytes.subspan<40, 8>()) {}
};

/// RET_SUBMIT without its bytes, or RET_UNLINK, which has no length.
inline Bytes make_return(std::uint32_t command, std::uint32_t sequence, std::int32_t status, std::uint32_t length) {
    Bytes bytes;
    Writer(bytes).u32(command).u32(sequence).zeros(12).u32(static_cast<std::uint32_t>(status)).u32(length).zeros(20);
    return bytes;
}

}  // namespace tovix::simulator::usbip
