// SPDX-License-Identifier: Apache-2.0
// What a USB stack must offer so that the platform operations of platform.h can run on it, and the one call that
// chooses the stack.
//
// The registry, the objects with their reference counts, event sources and run loops are written once, above
// this seam. A back end knows the devices of its bus and moves bytes. It sees only well-formed calls: a
// device is opened before it is used, an interface claimed before its pipes are used, and pointers are never null.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "status.h"

struct IOUSBDevRequestTO;
struct IOUSBConfigurationDescriptor;

namespace tovix::platform {

/// What the host knows of a device before anyone opens it.
struct DeviceIdentity {
    UInt16 vendor_id = 0;
    UInt16 product_id = 0;
    UInt16 release = 0;
    UInt8 subclass = 0;
    UInt8 speed = 0;  ///< 0 low, 1 full, 2 high
    UInt8 product_string_index = 0;
    UInt8 serial_string_index = 0;
};

/// An asynchronous read under way. The layer above owns it from the completion on; a back end may not touch it after
/// calling `complete`.
class AsyncRead {
  public:
    virtual ~AsyncRead() = default;
    /// Called exactly once for each accepted read, from any thread. It only queues: it never blocks, and calls nothing
    /// of the back end.
    virtual void complete(IOReturn status, UInt32 bytes) noexcept = 0;

    UInt8* data = nullptr;
    UInt32 size = 0;
};

/// A device on the bus. Its contracts are those of the operation of the same name in platform.h.
class HostDevice {
  public:
    virtual ~HostDevice() = default;
    virtual const DeviceIdentity& identity() const = 0;

    virtual IOReturn open() = 0;
    virtual void close() = 0;  ///< ends all transfers; every pending read has completed when it returns
    virtual IOReturn configuration_descriptor(UInt8 index, IOUSBConfigurationDescriptor& head) = 0;
    virtual IOReturn set_configuration(UInt8 value) = 0;
    /// Numbers of the interfaces of the active configuration.
    virtual IOReturn interfaces(std::vector<UInt8>& numbers) = 0;
    virtual IOReturn control(IOUSBDevRequestTO& request) = 0;

    virtual IOReturn claim(UInt8 interface_number) = 0;
    virtual void release(UInt8 interface_number) = 0;  ///< ends the transfers of the interface first
    virtual IOReturn set_alternate(UInt8 interface_number, UInt8 setting) = 0;
    virtual IOReturn pipe_status(UInt8 interface_number, UInt8 pipe) = 0;
    virtual IOReturn read_pipe(UInt8 interface_number, UInt8 pipe, void* data, UInt32& size, UInt32 no_data_ms) = 0;
    virtual IOReturn write_pipe(UInt8 interface_number, UInt8 pipe, const void* data, UInt32 size,
                                UInt32 no_data_ms) = 0;
    virtual IOReturn clear_stall(UInt8 interface_number, UInt8 pipe) = 0;
    virtual IOReturn abort_pipe(UInt8 interface_number, UInt8 pipe) = 0;
    virtual IOReturn read_async(UInt8 interface_number, UInt8 pipe, AsyncRead& read) = 0;
};

/// The platform operations by name, for whoever counts them or makes one fail.
enum class Operation : UInt8 {
    kIOMasterPort,
    kIOServiceMatching,
    kCFNumberCreate,
    kIOServiceGetMatchingServices,
    kIOCreatePlugInInterfaceForService,
    kQueryInterface,
    kGetDeviceVendor,
    kGetDeviceProduct,
    kGetDeviceReleaseNumber,
    kGetDeviceSpeed,
    kUSBGetProductStringIndex,
    kUSBGetSerialNumberStringIndex,
    kUSBDeviceOpen,
    kUSBDeviceClose,
    kGetConfigurationDescriptorPtr,
    kSetConfiguration,
    kCreateInterfaceIterator,
    kDeviceRequestTO,
    kUSBInterfaceOpen,
    kUSBInterfaceClose,
    kSetAlternateInterface,
    kControlRequestTO,
    kGetPipeStatus,
    kReadPipeTO,
    kWritePipeTO,
    kClearPipeStallBothEnds,
    kAbortPipe,
    kReadPipeAsync,
    kCreateInterfaceAsyncEventSource,
    kCount
};

/// A USB stack.
class Backend {
  public:
    virtual ~Backend() = default;

    /// The devices on the bus now, sorted by their place on it. Called once for each registry search.
    virtual IOReturn devices(std::vector<std::shared_ptr<HostDevice>>& found) = 0;

    virtual void sleep_us(UInt32 microseconds) { std::this_thread::sleep_for(std::chrono::microseconds(microseconds)); }
    /// Time since some fixed moment, in microseconds; never goes back.
    virtual std::int64_t now_us() {
        const auto since_boot = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::microseconds>(since_boot).count();
    }
    /// Wait for a notification, or until now_us() reaches the deadline. May return early; callers check what they wait
    /// for.
    virtual void wait_until(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                            std::int64_t deadline_us) {
        condition.wait_until(lock, std::chrono::steady_clock::time_point{std::chrono::microseconds{deadline_us}});
    }

    /// Asked before every operation: a status other than 0 makes the operation fail with it, undone.
    virtual IOReturn intercept(Operation) { return kIOReturnSuccess; }
};

/// The stack in use; the real one (libusb) until another is selected.
Backend& backend() noexcept;

/// The real stack.
Backend& libusb_backend();

}  // namespace tovix::platform

/// Choose the stack for all platform operations from now on; null chooses the real one. No camera is open and
/// no other thread uses the library during the call; `stack` outlives its use.
extern "C" __attribute__((visibility("default"))) void tz_platform_select(tovix::platform::Backend* stack) noexcept;

/// Entries, iterators, dictionaries, plug-ins, devices, interfaces and event sources that were handed out and not yet
/// released.
extern "C" long tz_platform_objects_alive() noexcept;
