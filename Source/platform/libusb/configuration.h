// SPDX-License-Identifier: Apache-2.0
// What a device's configuration descriptor says of its interfaces and pipes. Descriptors are the device's own
// words: libusb bounds the counts in them, and nothing else is taken for granted.
#pragma once

#include <libusb.h>

#include <memory>
#include <span>
#include <vector>

#include "transfers.h"

namespace tovix::platform {

struct FreeConfiguration {
    void operator()(libusb_config_descriptor* configuration) const { libusb_free_config_descriptor(configuration); }
};
using Configuration = std::unique_ptr<libusb_config_descriptor, FreeConfiguration>;

/// libusb's result; `found` stays null when the device is not configured, which is no error. No bus traffic.
[[nodiscard]] int active_configuration(libusb_device* device, Configuration& found);

/// The interfaces, those without any setting left out at the end.
std::span<const libusb_interface> interfaces_of(const libusb_config_descriptor& configuration);

/// The endpoints of one alternate setting in the order of their descriptors; none when there is no such setting.
std::vector<Endpoint> pipes_of(const libusb_interface& interface, UInt8 setting);

}  // namespace tovix::platform
