// SPDX-License-Identifier: Apache-2.0
#include "libusb_device.h"

#include <algorithm>

#include "../platform.h"
#include "configuration.h"
#include "libusb_status.h"

namespace tovix::platform {
namespace {

DeviceIdentity identity_from(libusb_device* device, const libusb_device_descriptor& descriptor) {
    const int speed = libusb_get_device_speed(device) - LIBUSB_SPEED_LOW;  // unknown is below low
    return {.vendor_id = descriptor.idVendor,
            .product_id = descriptor.idProduct,
            .release = descriptor.bcdDevice,
            .subclass = descriptor.bDeviceSubClass,
            .speed = static_cast<UInt8>(std::clamp(speed, 0, 2)),  // super speed and above count as high
            .product_string_index = descriptor.iProduct,
            .serial_string_index = descriptor.iSerialNumber};
}

/// Remove the host's driver from an interface. That there is none is the usual case; if one cannot be
/// removed, the claim or the new configuration will fail and say why. libusb's automatic removal would not cover the
/// configuration.
void detach_driver(libusb_device_handle* handle, UInt8 interface_number) {
    static_cast<void>(libusb_detach_kernel_driver(handle, interface_number));
}

}  // namespace

LibusbDevice::LibusbDevice(std::shared_ptr<LibusbContext> context, libusb_device* device,
                           const libusb_device_descriptor& descriptor)
    : context_(std::move(context)), device_(libusb_ref_device(device)), identity_(identity_from(device, descriptor)) {}

LibusbDevice::~LibusbDevice() {
    close();
}

IOReturn LibusbDevice::open() {
    if (handle_ != nullptr) return kIOReturnExclusiveAccess;
    libusb_device_handle* opened = nullptr;
    if (const int error = libusb_open(device_.get(), &opened); error != 0) return status_of_error(error);
    Handle handle(opened);  // an early return closes it, and the kernel then drops its claims
    if (const IOReturn status = claim_all(opened); status != 0) return status;
    if (const IOReturn status = context_->start_events(); status != 0) {
        interfaces_.clear();
        return status;
    }
    transfers_.open(opened);
    handle_ = std::move(handle);
    return kIOReturnSuccess;
}

void LibusbDevice::close() {
    if (handle_ == nullptr) return;
    transfers_.close();
    context_->stop_events();
    release_all();
    if (handle_spoilt_) static_cast<void>(handle_.release());
    handle_.reset();
    handle_spoilt_ = false;
}

IOReturn LibusbDevice::configuration_descriptor(UInt8 index, IOUSBConfigurationDescriptor& head) {
    libusb_config_descriptor* found = nullptr;
    const int error = libusb_get_config_descriptor(device_.get(), index, &found);
    if (error != 0) return status_of_error(error);
    const Configuration configuration(found);
    head = {.bLength = configuration->bLength,
            .bDescriptorType = configuration->bDescriptorType,
            .wTotalLength = {static_cast<UInt8>(configuration->wTotalLength & 0xFF),
                             static_cast<UInt8>(configuration->wTotalLength >> 8)},
            .bNumInterfaces = configuration->bNumInterfaces,
            .bConfigurationValue = configuration->bConfigurationValue,
            .iConfiguration = configuration->iConfiguration,
            .bmAttributes = configuration->bmAttributes,
            .MaxPower = configuration->MaxPower};
    return kIOReturnSuccess;
}

// The kernel refuses a new configuration while anyone holds an interface, be it we ourselves or a driver that came back
// with our release.
IOReturn LibusbDevice::set_configuration(UInt8 value) {
    if (handle_ == nullptr) return kIOReturnNotOpen;
    int current = 0;
    if (const int error = libusb_get_configuration(handle_.get(), &current); error != 0) return status_of_error(error);
    if (current == value) return kIOReturnSuccess;

    transfers_.drain(kEveryEndpoint);
    std::vector<UInt8> numbers;
    if (const IOReturn status = interfaces(numbers); status != 0) return status;
    release_all();
    for (const UInt8 number : numbers)
        detach_driver(handle_.get(), number);
    const int error = libusb_set_configuration(handle_.get(), value);
    transfers_.clear_halted(kEveryEndpoint);
    const IOReturn claimed = claim_all(handle_.get());  // of the old configuration, when the new one was refused
    return error != 0 ? status_of_error(error) : claimed;
}

IOReturn LibusbDevice::interfaces(std::vector<UInt8>& numbers) {
    if (handle_ == nullptr) return kIOReturnNotOpen;
    const std::lock_guard lock(mutex_);
    std::vector<UInt8> all;
    for (const Interface& each : interfaces_)
        all.push_back(each.number);
    numbers = std::move(all);
    return kIOReturnSuccess;
}

IOReturn LibusbDevice::control(IOUSBDevRequestTO& request) {
    return transfers_.control(request);
}

// Claims go into the table one by one, so that a failure gives back exactly those that were made.
IOReturn LibusbDevice::claim_all(libusb_device_handle* handle) {
    Configuration configuration;
    if (const int error = active_configuration(device_.get(), configuration); error != 0) return status_of_error(error);
    if (configuration == nullptr) return kIOReturnSuccess;  // not configured: nothing to claim

    std::vector<Interface> claimed;
    claimed.reserve(configuration->bNumInterfaces);
    for (const libusb_interface& each : interfaces_of(*configuration)) {
        const UInt8 number = each.altsetting->bInterfaceNumber;
        std::vector<Endpoint> pipes = pipes_of(each, 0);  // the setting that every interface starts in
        detach_driver(handle, number);
        if (const int error = libusb_claim_interface(handle, number); error != 0) {
            for (const Interface& done : claimed)
                static_cast<void>(libusb_release_interface(handle, done.number));
            return error == LIBUSB_ERROR_BUSY ? kIOReturnExclusiveAccess : status_of_error(error);
        }
        claimed.push_back({.number = number, .in_use = false, .pipes = std::move(pipes)});
    }
    const std::lock_guard lock(mutex_);
    interfaces_ = std::move(claimed);
    return kIOReturnSuccess;
}

void LibusbDevice::release_all() {
    const std::lock_guard lock(mutex_);
    for (const Interface& each : interfaces_)
        static_cast<void>(libusb_release_interface(handle_.get(), each.number));  // or the device has left
    interfaces_.clear();
}

}  // namespace tovix::platform
