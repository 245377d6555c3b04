// SPDX-License-Identifier: Apache-2.0
// The host's USB services as this library uses them, under their platform names.
//
//   registry entry --IOCreatePlugInInterfaceForService--> plug-in --QueryInterface--> device or interface
//
// Device, interface and plug-in are objects of the platform's own shape: the caller holds a pointer to a
// pointer to a table of operations and passes it as `self`. Every object, entry, iterator, dictionary and
// event source that a call hands out is released exactly once by the caller.
//
// What holds for every operation that returns an IOReturn, unless it says otherwise:
//   - 0 is success; anything else is a failure that acquired nothing and left outputs unwritten.
//   - After a failure errno tells the reason in the host's words, so that %m makes a readable line.
//   - It may be called from any thread, but one object is used by one thread at a time, except that transfers
//   on
//     different pipes, and the abort of a pipe, may run side by side.
//   - No exception leaves it; when memory runs out it returns kIOReturnNoMemory.
#pragma once

#include "status.h"

// ---------------------------------------------------------------------------------------------------------------
// The registry of devices on the bus

using mach_port_t = UInt32;
using io_object_t = UInt32;
using io_service_t = io_object_t;   // a registry entry: a device, or an interface of one
using io_iterator_t = io_object_t;  // a list of entries that is walked once

constexpr mach_port_t MACH_PORT_NULL = 0;

/// Obtain the port through which the registry is searched. A search sees the devices that are on the bus at
/// that moment. Release with mach_port_deallocate.
IOReturn IOMasterPort(mach_port_t bootstrap, mach_port_t* port) noexcept;

/// The calling task; only mach_port_deallocate asks for it.
mach_port_t mach_task_self() noexcept;

/// Give a port back. Never fails for a port from IOMasterPort.
IOReturn mach_port_deallocate(mach_port_t task, mach_port_t port) noexcept;

struct CFNumber;      // a 32-bit number
struct CFDictionary;  // what to look for: "idVendor", "idProduct", "bDeviceSubClass"
using CFNumberRef = CFNumber*;
using CFMutableDictionaryRef = CFDictionary*;
enum CFNumberType : UInt8 { kCFNumberSInt32Type = 3 };

/// A new dictionary that matches devices of the class ("IOUSBDevice"), or null. Handed over to
/// IOServiceGetMatchingServices, or released with CFRelease.
CFMutableDictionaryRef IOServiceMatching(const char* class_name) noexcept;

/// A new number holding the 32 bits at `value`, or null. Release with CFRelease.
CFNumberRef CFNumberCreate(const void* allocator, CFNumberType type, const void* value) noexcept;

/// Require `key` to have the value of `number`. The dictionary copies the number.
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const char* key, CFNumberRef number) noexcept;

void CFRelease(CFNumberRef number) noexcept;
void CFRelease(CFMutableDictionaryRef dictionary) noexcept;

/// Find the devices that match, in the order of their place on the bus. May block while the host lists its devices. Takes over the dictionary, whatever
/// the result. The iterator, which may be empty, is released with IOObjectRelease.
IOReturn IOServiceGetMatchingServices(mach_port_t port, CFMutableDictionaryRef matching,
                                      io_iterator_t* iterator) noexcept;

/// The next entry, 0 at the end. The caller releases the entry with IOObjectRelease.
io_object_t IOIteratorNext(io_iterator_t iterator) noexcept;

/// Give back an entry or an iterator. Objects made from an entry live on without it.
IOReturn IOObjectRelease(io_object_t object) noexcept;

// ---------------------------------------------------------------------------------------------------------------
// Event sources and run loops

struct CFRunLoop;
struct CFRunLoopSource;
using CFRunLoopRef = CFRunLoop*;
using CFRunLoopSourceRef = CFRunLoopSource*;

enum CFRunLoopMode : UInt8 { kCFRunLoopDefaultMode };
enum CFRunLoopRunResult : SInt32 {
    kCFRunLoopRunStopped = 2,
    kCFRunLoopRunTimedOut = 3,
    kCFRunLoopRunHandledSource = 4
};

/// The calling thread's run loop; lives as long as the thread. Null when memory has run out.
CFRunLoopRef CFRunLoopGetCurrent() noexcept;

/// Attach a source to the loop, one at a time, or detach it; both on the loop's own thread. What completes while it is
/// detached waits in it.
void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) noexcept;
void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) noexcept;

/// Deliver completions on the calling thread until the loop is stopped.
void CFRunLoopRun() noexcept;

/// As CFRunLoopRun, for at most `seconds`, and only until one completion was delivered if `return_after_source`.
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, double seconds, bool return_after_source) noexcept;

/// Make the current run of the loop return or, when it is not running, its next run: the request is kept
/// until a run has returned for it. From any thread.
void CFRunLoopStop(CFRunLoopRef loop) noexcept;

/// Give back an event source. Completions that still wait in it are dropped.
void CFRelease(CFRunLoopSourceRef source) noexcept;

/// Time since some fixed moment, in nanoseconds; never goes back.
UInt64 mach_absolute_time() noexcept;

/// Suspend the calling thread.
void IOSleepMicroseconds(UInt32 microseconds) noexcept;

// ---------------------------------------------------------------------------------------------------------------
// Devices and interfaces

/// One control request. The device's answer goes to or comes from `pData`, at most `wLength` bytes.
struct IOUSBDevRequestTO {
    UInt8 bmRequestType;
    UInt8 bRequest;
    UInt16 wValue;
    UInt16 wIndex;
    UInt16 wLength;
    void* pData;
    UInt32 wLenDone;           ///< out: bytes that moved, whatever the status
    UInt32 noDataTimeout;      ///< ms without a byte until the request fails; 0 waits for ever
    UInt32 completionTimeout;  ///< ms until the request fails; 0 waits for ever
};

constexpr UInt16 kIOUSBFindInterfaceDontCare = 0xFFFF;

struct IOUSBFindInterfaceRequest {
    UInt16 bInterfaceClass;
    UInt16 bInterfaceSubClass;
    UInt16 bInterfaceProtocol;
    UInt16 bAlternateSetting;
};

/// The nine bytes that head a configuration; what the device did not send is 0.
struct IOUSBConfigurationDescriptor {
    UInt8 bLength;
    UInt8 bDescriptorType;
    UInt8 wTotalLength[2];
    UInt8 bNumInterfaces;
    UInt8 bConfigurationValue;
    UInt8 iConfiguration;
    UInt8 bmAttributes;
    UInt8 MaxPower;
};
static_assert(sizeof(IOUSBConfigurationDescriptor) == 9);
using IOUSBConfigurationDescriptorPtr = const IOUSBConfigurationDescriptor*;

/// Completion of an asynchronous transfer: `refcon` as given, the transfer's status, the bytes that arrived.
using IOAsyncCallback1 = void (*)(void* refcon, IOReturn result, UInt32 bytes);

enum CFUUID : UInt8 {
    kIOUSBDeviceUserClientTypeID,
    kIOUSBInterfaceUserClientTypeID,
    kIOCFPlugInInterfaceID,
    kIOUSBDeviceInterfaceID197,
    kIOUSBInterfaceInterfaceID
};

/// A plug-in: the way from a registry entry to an object that operates it.
struct IOCFPlugInInterface {
    /// Make the object of the kind `id`, with one reference that the caller gives back with the object's Release.
    IOReturn (*QueryInterface)(void* self, CFUUID id, void** object);
    UInt32 (*Release)(void* self);  ///< give back one reference; the last one frees the plug-in
};

/// A plug-in for a device entry (kIOUSBDeviceUserClientTypeID) or an interface entry
/// (kIOUSBInterfaceUserClientTypeID). No bus traffic.
IOReturn IOCreatePlugInInterfaceForService(io_service_t service, CFUUID plug_in_type, CFUUID interface_type,
                                           IOCFPlugInInterface*** plug_in, SInt32* score) noexcept;

/// A USB device. The identity calls answer from what the host read when the device came, without bus traffic
/// and without opening it; the others need the device open.
struct IOUSBDeviceInterface197 {
    UInt32 (*Release)(void* self);  ///< give back one reference; the last one closes and frees the object

    IOReturn (*GetDeviceVendor)(void* self, UInt16* vendor_id);
    IOReturn (*GetDeviceProduct)(void* self, UInt16* product_id);
    IOReturn (*GetDeviceReleaseNumber)(void* self, UInt16* release);
    IOReturn (*GetDeviceSpeed)(void* self, UInt8* speed);            ///< 0 low, 1 full, 2 high
    IOReturn (*USBGetProductStringIndex)(void* self, UInt8* index);  ///< 0: the device has no such string
    IOReturn (*USBGetSerialNumberStringIndex)(void* self, UInt8* index);

    /// Claim the device for this client alone. kIOReturnExclusiveAccess when another client holds it,
    /// kIOReturnNotPermitted when this user may not open it. Drivers of the host that sit on it are detached.
    IOReturn (*USBDeviceOpen)(void* self);
    /// End all transfers and give the claim back. Returns 0 also when the device is gone; blocks until no
    /// completion of this device will be posted any more.
    IOReturn (*USBDeviceClose)(void* self);

    /// The descriptor of configuration `index`; stays valid as long as the object.
    IOReturn (*GetConfigurationDescriptorPtr)(void* self, UInt8 index, IOUSBConfigurationDescriptorPtr* descriptor);
    IOReturn (*SetConfiguration)(void* self, UInt8 value);
    /// An iterator over the interfaces of the current configuration; release with IOObjectRelease. This library asks for
    /// any interface, so the request is not looked at.
    IOReturn (*CreateInterfaceIterator)(void* self, const IOUSBFindInterfaceRequest* request, io_iterator_t* iterator);
    /// A control request on the default pipe. Blocks until done or timed out.
    IOReturn (*DeviceRequestTO)(void* self, IOUSBDevRequestTO* request);
};

/// An interface of an open device. Pipe 0 is the device's default pipe, pipe n the n-th endpoint of the
/// current alternate setting. A stalled bulk pipe stays halted, and refuses transfers, until it is cleared.
struct IOUSBInterfaceInterface {
    UInt32 (*Release)(void* self);  ///< give back one reference; the last one closes and frees the object

    IOReturn (*USBInterfaceOpen)(void* self);   ///< claim it for this client; on failure it stays unclaimed
    IOReturn (*USBInterfaceClose)(void* self);  ///< end its transfers and give it back

    /// Choose the setting that decides which pipes exist. Pending transfers end first, as aborted.
    IOReturn (*SetAlternateInterface)(void* self, UInt8 setting);
    /// A control request on pipe 0. Blocks until done or timed out; may run beside a transfer on another pipe.
    IOReturn (*ControlRequestTO)(void* self, UInt8 pipe, IOUSBDevRequestTO* request);

    /// 0 ready; kIOUSBPipeStalled; kIOUSBUnknownPipeErr; kIOReturnNoDevice for a bulk pipe of a device that is gone.
    IOReturn (*GetPipeStatus)(void* self, UInt8 pipe);
    /// Read up to *size bytes from a bulk pipe; on return *size is what arrived, whatever the status. Blocks
    /// until the device ends the transfer, the buffer is full, or `no_data_ms` pass without a byte (0: no
    /// limit). kIOReturnOverrun when the device sent more than fitted.
    IOReturn (*ReadPipeTO)(void* self, UInt8 pipe, void* data, UInt32* size, UInt32 no_data_ms, UInt32 completion_ms);
    IOReturn (*WritePipeTO)(void* self, UInt8 pipe, const void* data, UInt32 size, UInt32 no_data_ms,
                            UInt32 completion_ms);
    /// Clear a stall on the host and on the device; transfers pending on the pipe end as aborted. For pipe 0
    /// a success that does nothing, since the next request clears it.
    IOReturn (*ClearPipeStallBothEnds)(void* self, UInt8 pipe);
    /// Cancel all transfers pending on the pipe; their completions, with kIOReturnAborted, are still delivered.
    IOReturn (*AbortPipe)(void* self, UInt8 pipe);

    /// Queue one bulk read of up to `size` bytes, without a time limit. `data` stays the caller's but is
    /// written until the completion, which is delivered exactly once, by the run loop that the event source
    /// is attached to. A read that was refused has no completion. From any thread.
    IOReturn (*ReadPipeAsync)(void* self, UInt8 pipe, void* data, UInt32 size, IOAsyncCallback1 callback, void* refcon);
    /// A new event source through which completions of reads queued from now on reach a run loop. Release with
    /// CFRelease.
    IOReturn (*CreateInterfaceAsyncEventSource)(void* self, CFRunLoopSourceRef* source);
};
