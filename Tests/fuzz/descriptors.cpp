// SPDX-License-Identifier: Apache-2.0
// What a device says of itself: strings, whose length comes from the device, and the interfaces and endpoints of a
// configuration as libusb hands it over.
#include "libusb/configuration.h"
#include "report.h"
#include "scripted_camera.h"
#include "transport.h"

using namespace tovix::fuzz;
using namespace tovix::platform;

namespace {

void read_strings(Input& input) {
    ScriptedCamera camera(input);
    const Block text(input.number<std::uint8_t>(), 0xAA);
    const std::int32_t result =
        usb_get_string_descriptor(&camera.handle, input.number<std::uint8_t>(), reinterpret_cast<char*>(text.data()),
                                  static_cast<int>(text.size()), input.number<std::uint16_t>());
    if (result == TOVIX_OK) require(std::memchr(text.data(), '\0', text.size()) != nullptr, "a string ends");
    usb_get_device_serial_number(&camera.handle);
    usb_get_device_model_name(&camera.handle);
    usb_get_device_speed(&camera.handle);
    require(std::memchr(camera.handle.model_name, '\0', kModelNameBytes) != nullptr, "a name ends");
}

void read_configuration(Input& input) {
    // libusb announces no more of anything than it has read, and an interface without settings has a null pointer.
    std::vector<libusb_interface> interfaces(input.up_to(3));
    std::vector<std::vector<libusb_interface_descriptor>> settings(interfaces.size());
    std::vector<std::vector<libusb_endpoint_descriptor>> endpoints;
    endpoints.reserve(interfaces.size() * 4);
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        settings[i].resize(input.up_to(4));
        for (libusb_interface_descriptor& setting : settings[i]) {
            auto& mine = endpoints.emplace_back(input.up_to(3));
            for (libusb_endpoint_descriptor& endpoint : mine) {
                endpoint.bEndpointAddress = input.number<std::uint8_t>();
                endpoint.bmAttributes = input.number<std::uint8_t>();
                endpoint.wMaxPacketSize = input.number<std::uint16_t>();
            }
            setting.bAlternateSetting = input.number<std::uint8_t>();
            setting.bNumEndpoints = static_cast<std::uint8_t>(mine.size());
            setting.endpoint = mine.data();
        }
        interfaces[i] = {settings[i].empty() ? nullptr : settings[i].data(), static_cast<int>(settings[i].size())};
    }
    libusb_config_descriptor configuration{};
    configuration.bNumInterfaces = static_cast<std::uint8_t>(interfaces.size());
    configuration.interface = interfaces.data();
    for (const libusb_interface& interface : interfaces_of(configuration)) {
        require(interface.num_altsetting > 0, "an interface has a setting");
        for (const Endpoint& pipe : pipes_of(interface, input.number<std::uint8_t>()))
            require(pipe.packet_bytes > 0 && pipe.type <= 3, "by a packet can be divided");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    if (input.flag()) {
        read_strings(input);
    } else {
        read_configuration(input);
    }
    return 0;
}
