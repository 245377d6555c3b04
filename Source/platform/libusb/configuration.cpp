// SPDX-License-Identifier: Apache-2.0
#include "configuration.h"

#include <algorithm>

namespace tovix::platform {

int active_configuration(libusb_device* device, Configuration& found) {
    libusb_config_descriptor* configuration = nullptr;
    const int error = libusb_get_active_config_descriptor(device, &configuration);
    if (error == 0) found.reset(configuration);
    return error == LIBUSB_ERROR_NOT_FOUND ? 0 : error;
}

// A configuration that announces more interfaces than it describes leaves the last ones without settings.
std::span<const libusb_interface> interfaces_of(const libusb_config_descriptor& configuration) {
    const std::span<const libusb_interface> all(configuration.interface, configuration.bNumInterfaces);
    const auto empty = [](const libusb_interface& each) { return each.num_altsetting < 1; };
    return all.first(static_cast<std::size_t>(std::find_if(all.begin(), all.end(), empty) - all.begin()));
}

std::vector<Endpoint> pipes_of(const libusb_interface& interface, UInt8 setting) {
    std::vector<Endpoint> pipes;
    const std::span<const libusb_interface_descriptor> settings(interface.altsetting,
                                                                static_cast<std::size_t>(interface.num_altsetting));
    const auto wanted = std::find_if(settings.begin(), settings.end(),
                                     [&](const auto& each) { return each.bAlternateSetting == setting; });
    if (wanted == settings.end()) return pipes;
    for (const libusb_endpoint_descriptor& each : std::span(wanted->endpoint, wanted->bNumEndpoints)) {
        // Bits above 10 count transactions a microframe. Some devices announce packets of no bytes, by which nothing
        // can be divided.
        const int packet_bytes = std::max(each.wMaxPacketSize & 0x7FF, 1);
        pipes.push_back({.address = each.bEndpointAddress,
                         .type = static_cast<UInt8>(each.bmAttributes & 0x03),
                         .packet_bytes = static_cast<UInt16>(packet_bytes)});
    }
    return pipes;
}

}  // namespace tovix::platform
