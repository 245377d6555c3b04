// SPDX-License-Identifier: Apache-2.0
#include "libusb_backend.h"

#include <libusb.h>

#include <algorithm>
#include <array>
#include <span>
#include <tuple>

#include "libusb_device.h"
#include "libusb_status.h"

namespace tovix::platform {
namespace {

/// Where a device is plugged in. Unused ports are 0, which is below every real one: a hub comes before what it carries.
struct Place {
    UInt8 bus;
    std::array<UInt8, 7> ports{};  // USB allows no deeper chain

    explicit Place(libusb_device* device) : bus(libusb_get_bus_number(device)) {
        static_cast<void>(libusb_get_port_numbers(device, ports.data(), static_cast<int>(ports.size())));
    }
    auto operator<=>(const Place&) const = default;
};

struct FreeList {
    void operator()(libusb_device** list) const { libusb_free_device_list(list, 1); }
};

}  // namespace

IOReturn LibusbBackend::devices(std::vector<std::shared_ptr<HostDevice>>& found) {
    std::shared_ptr<LibusbContext> context;
    if (const int error = LibusbContext::create(context); error != 0) {
        // "Other" is what libusb says of a host on which it finds no USB to talk to: its bus is empty.
        return error == LIBUSB_ERROR_OTHER ? kIOReturnSuccess : status_of_error(error);
    }
    libusb_device** listed = nullptr;
    const ssize_t count = libusb_get_device_list(context->get(), &listed);
    if (count < 0) return status_of_error(static_cast<int>(count));
    const std::unique_ptr<libusb_device*, FreeList> list(listed);
    const std::span<libusb_device*> all(listed, static_cast<std::size_t>(count));
    std::sort(all.begin(), all.end(), [](auto* left, auto* right) { return Place(left) < Place(right); });

    std::vector<std::shared_ptr<HostDevice>> devices;
    for (libusb_device* const device : all) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(device, &descriptor) != 0) continue;
        devices.push_back(std::make_shared<LibusbDevice>(context, device, descriptor));
    }
    found = std::move(devices);
    return kIOReturnSuccess;
}

Backend& libusb_backend() {
    static LibusbBackend stack;
    return stack;
}

}  // namespace tovix::platform
