// SPDX-License-Identifier: Apache-2.0
// Status codes and scalar types of the host's USB services, under their platform names.
//
// A status is a 32-bit word whose upper bits name the subsystem; as a signed number every failure is negative.
#pragma once

#include <cstdint>

using UInt8 = std::uint8_t;
using UInt16 = std::uint16_t;
using UInt32 = std::uint32_t;
using UInt64 = std::uint64_t;
using SInt32 = std::int32_t;

using IOReturn = std::int32_t;

constexpr IOReturn io_return(std::uint32_t word) {
    return static_cast<IOReturn>(word);
}

constexpr IOReturn kIOReturnSuccess = 0;
constexpr IOReturn kIOReturnError = io_return(0xE00002BC);            // general failure
constexpr IOReturn kIOReturnNoMemory = io_return(0xE00002BD);         // the host is out of memory
constexpr IOReturn kIOReturnNoDevice = io_return(0xE00002C0);         // the device has left the bus
constexpr IOReturn kIOReturnBadArgument = io_return(0xE00002C2);      // an argument makes no sense
constexpr IOReturn kIOReturnExclusiveAccess = io_return(0xE00002C5);  // another client holds the device
constexpr IOReturn kIOReturnUnsupported = io_return(0xE00002C7);      // no such operation here
constexpr IOReturn kIOReturnNotOpen = io_return(0xE00002CD);          // open the object first
constexpr IOReturn kIOReturnBusy = io_return(0xE00002D5);             // busy for now, may succeed later
constexpr IOReturn kIOReturnNotPermitted = io_return(0xE00002E2);     // this user may not
constexpr IOReturn kIOReturnOverrun = io_return(0xE00002E8);          // the device sent more than fits
constexpr IOReturn kIOReturnUnderrun = io_return(0xE00002E9);         // the device sent less than it must
constexpr IOReturn kIOReturnAborted = io_return(0xE00002EB);          // the transfer was cancelled
constexpr IOReturn kIOReturnIOError = io_return(0xE00002ED);          // the bus reports an error
constexpr IOReturn kIOReturnNotFound = io_return(0xE00002F0);         // no such thing
constexpr IOReturn kIOUSBPipeStalled = io_return(0xE000404F);         // the pipe is halted until cleared
constexpr IOReturn kIOUSBTransactionTimeout = io_return(0xE0004051);  // no data within the time-out
constexpr IOReturn kIOUSBUnknownPipeErr = io_return(0xE0004061);      // no such pipe in this setting
