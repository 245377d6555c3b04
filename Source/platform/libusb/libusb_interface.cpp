// SPDX-License-Identifier: Apache-2.0
// The operations of LibusbDevice on one interface and its pipes.
#include <algorithm>
#include <cerrno>

#include "configuration.h"
#include "libusb_device.h"
#include "libusb_status.h"

namespace tovix::platform {

IOReturn LibusbDevice::claim(UInt8 interface_number) {
    const std::lock_guard lock(mutex_);
    Interface* const interface = find_interface(interface_number);
    if (interface == nullptr) return kIOReturnNotFound;
    if (interface->in_use) return kIOReturnExclusiveAccess;
    interface->in_use = true;
    return kIOReturnSuccess;
}

void LibusbDevice::release(UInt8 interface_number) {
    EndpointSet endpoints = 0;
    {
        const std::lock_guard lock(mutex_);
        Interface* const interface = find_interface(interface_number);
        if (interface == nullptr) return;
        interface->in_use = false;
        endpoints = set_of(interface->pipes);
    }
    transfers_.drain(endpoints);
}

// A change of setting would end a pending read as a success without data, so reads are cancelled first.
IOReturn LibusbDevice::set_alternate(UInt8 interface_number, UInt8 setting) {
    EndpointSet endpoints = 0;
    {
        const std::lock_guard lock(mutex_);
        const Interface* const interface = find_interface(interface_number);
        if (interface == nullptr || !interface->in_use) return kIOReturnNotOpen;
        endpoints = set_of(interface->pipes);
    }
    Configuration configuration;
    int error = active_configuration(device_.get(), configuration);
    if (error != 0) return status_of_error(error);
    std::vector<Endpoint> pipes;
    if (configuration != nullptr)
        for (const libusb_interface& each : interfaces_of(*configuration))
            if (each.altsetting->bInterfaceNumber == interface_number) pipes = pipes_of(each, setting);

    transfers_.drain(endpoints);
    error = choose_alternate(interface_number, setting);
    if (error != 0) return status_of_error(error);
    transfers_.clear_halted(endpoints | set_of(pipes));
    const std::lock_guard lock(mutex_);
    if (Interface* const interface = find_interface(interface_number)) interface->pipes = std::move(pipes);
    return kIOReturnSuccess;
}

/// The cheapest question that only a device on the bus has an answer to.
bool LibusbDevice::device_is_gone(UInt8 interface_number) {
    return libusb_kernel_driver_active(handle_.get(), interface_number) == LIBUSB_ERROR_NO_DEVICE;
}

IOReturn LibusbDevice::pipe_status(UInt8 interface_number, UInt8 pipe) {
    if (pipe == 0) return kIOReturnSuccess;
    Endpoint endpoint;
    if (const IOReturn status = find_pipe(interface_number, pipe, Direction::kEither, endpoint); status != 0)
        return status;
    if (device_is_gone(interface_number)) return kIOReturnNoDevice;
    return transfers_.halted(set_of(endpoint)) ? kIOUSBPipeStalled : kIOReturnSuccess;
}

IOReturn LibusbDevice::read_pipe(UInt8 interface_number, UInt8 pipe, void* data, UInt32& size, UInt32 no_data_ms) {
    Endpoint endpoint;
    const IOReturn status = find_pipe(interface_number, pipe, Direction::kToHost, endpoint);
    if (status == 0) return transfers_.read(endpoint, data, size, no_data_ms);
    size = 0;
    return status;
}

IOReturn LibusbDevice::write_pipe(UInt8 interface_number, UInt8 pipe, const void* data, UInt32 size,
                                  UInt32 no_data_ms) {
    Endpoint endpoint;
    const IOReturn status = find_pipe(interface_number, pipe, Direction::kToDevice, endpoint);
    return status == 0 ? transfers_.write(endpoint, data, size, no_data_ms) : status;
}

IOReturn LibusbDevice::read_async(UInt8 interface_number, UInt8 pipe, AsyncRead& read) {
    Endpoint endpoint;
    const IOReturn status = find_pipe(interface_number, pipe, Direction::kToHost, endpoint);
    return status == 0 ? transfers_.read_async(endpoint, read) : status;
}

IOReturn LibusbDevice::clear_stall(UInt8 interface_number, UInt8 pipe) {
    if (pipe == 0) return kIOReturnSuccess;  // the next request clears it
    Endpoint endpoint;
    if (const IOReturn status = find_pipe(interface_number, pipe, Direction::kEither, endpoint); status != 0)
        return status;
    transfers_.drain(set_of(endpoint));
    const int error = libusb_clear_halt(handle_.get(), endpoint.address);
    if (error == 0) transfers_.clear_halted(set_of(endpoint));
    return status_of_error(error);
}

IOReturn LibusbDevice::abort_pipe(UInt8 interface_number, UInt8 pipe) {
    if (pipe == 0) return kIOReturnSuccess;  // its requests are waited for: none is left behind
    Endpoint endpoint;
    if (const IOReturn status = find_pipe(interface_number, pipe, Direction::kEither, endpoint); status != 0)
        return status;
    transfers_.cancel(set_of(endpoint));
    return kIOReturnSuccess;
}

// When libusb 1.0.26 already knows that the device has left, it unlocks a mutex of the handle that it has not
// locked, and closing the handle then ends the process. Asking for the kernel's driver is safe and tells
// whether the device has left. If it leaves between the two calls, an untouched errno tells that libusb did not get as
// far as the kernel.
int LibusbDevice::choose_alternate(UInt8 interface_number, UInt8 setting) {
    if (device_is_gone(interface_number)) return LIBUSB_ERROR_NO_DEVICE;
    errno = 0;
    const int error = libusb_set_interface_alt_setting(handle_.get(), interface_number, setting);
    if (error == LIBUSB_ERROR_NO_DEVICE && errno == 0) handle_spoilt_ = true;
    return error;
}

IOReturn LibusbDevice::find_pipe(UInt8 interface_number, UInt8 pipe, Direction direction, Endpoint& found) {
    const std::lock_guard lock(mutex_);
    const Interface* const interface = find_interface(interface_number);
    if (interface == nullptr || !interface->in_use) return kIOReturnNotOpen;
    if (pipe == 0 || pipe > interface->pipes.size()) return kIOUSBUnknownPipeErr;
    const Endpoint& endpoint = interface->pipes[pipe - 1];
    const Direction its_own = (endpoint.address & LIBUSB_ENDPOINT_IN) != 0 ? Direction::kToHost : Direction::kToDevice;
    const bool carries_bytes =
        endpoint.type == LIBUSB_TRANSFER_TYPE_BULK || endpoint.type == LIBUSB_TRANSFER_TYPE_INTERRUPT;
    if (direction != Direction::kEither && (direction != its_own || !carries_bytes)) return kIOReturnBadArgument;
    found = endpoint;
    return kIOReturnSuccess;
}

LibusbDevice::Interface* LibusbDevice::find_interface(UInt8 number) {
    const auto found = std::find_if(interfaces_.begin(), interfaces_.end(),
                                    [&](const Interface& each) { return each.number == number; });
    return found != interfaces_.end() ? &*found : nullptr;
}

}  // namespace tovix::platform
