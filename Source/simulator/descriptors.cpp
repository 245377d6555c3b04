// SPDX-License-Identifier: Apache-2.0
#include "descriptors.h"

#include <algorithm>
#include <string>

#include "wire.h"

namespace tovix::simulator {

namespace {

constexpr std::uint8_t kProductString = 2, kSerialString = 3;
constexpr std::uint16_t kBareBit = 0x8000;   // in the product ID of an FX2 that knows its maker
constexpr std::size_t kLongestString = 126;  // characters that the length byte of a descriptor can count

std::vector<std::uint8_t> string_descriptor(const std::string& text) {
    std::vector<std::uint8_t> bytes{0, usb::kStringType};
    for (const char c : text.substr(0, kLongestString)) {
        bytes.push_back(static_cast<std::uint8_t>(c));
        bytes.push_back(0);
    }
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
}

}  // namespace

std::vector<std::uint8_t> Descriptors::device() const {
    const camera_id& row = *setup_.model.row;
    std::vector<std::uint8_t> bytes{
        usb::kDeviceDescriptorBytes, usb::kDeviceType, 0x00, 0x02, 0, 0, 0, 64, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    std::uint16_t product = row.product_id;
    if (bare_) {
        product = row.vendor_id == kBareVendor ? kBareProduct : static_cast<std::uint16_t>(product | kBareBit);
        std::fill_n(&bytes[4], 3, usb::kVendorSpecific);  // class, subclass, protocol
    } else {
        bytes[4] = usb::kVendorSpecific;
        bytes[15] = kProductString;
        bytes[16] = kSerialString;
    }
    put_u16(&bytes[8], row.vendor_id);
    put_u16(&bytes[10], product);
    put_u16(&bytes[12], setup_.model.release);
    return bytes;
}

std::vector<std::uint8_t> Descriptors::endpoints(std::uint8_t setting) const {
    if (bare_ || setting == 0) return {};
    const bool has_fpga = setup_.model.has_fpga();
    if (setting == 1) return {has_fpga ? kOutEndpoint : kInEndpoint};
    if (setting == 2 && has_fpga) return {kInEndpoint};
    return {};
}

bool Descriptors::has_endpoint(std::uint8_t setting, std::uint8_t address) const {
    const std::vector<std::uint8_t> addresses = endpoints(setting);
    return std::ranges::find(addresses, address) != addresses.end();
}

std::vector<std::uint8_t> Descriptors::configuration() const {
    std::vector<std::uint8_t> bytes{9, usb::kConfigurationType, 0, 0, 1, kOnlyConfiguration, 0, 0x80, 250};
    for (std::uint8_t setting = 0; setting < kSettings; ++setting) {
        const std::vector<std::uint8_t> addresses = endpoints(setting);
        const auto count = static_cast<std::uint8_t>(addresses.size());
        bytes.insert(bytes.end(), {9, usb::kInterfaceType, 0, setting, count, usb::kVendorSpecific, 0, 0, 0});
        for (const std::uint8_t address : addresses) {
            const std::uint8_t bulk = 2;
            std::uint8_t endpoint[] = {7, usb::kEndpointType, address, bulk, 0, 0, 0};
            put_u16(&endpoint[4], high_speed_ ? 512 : 64);
            bytes.insert(bytes.end(), std::begin(endpoint), std::end(endpoint));
        }
    }
    put_u16(&bytes[2], static_cast<std::uint16_t>(bytes.size()));
    return bytes;
}

std::vector<std::uint8_t> Descriptors::string(std::uint8_t index) const {
    switch (index) {
        case 0: return {4, usb::kStringType, 0x09, 0x04};  // the languages: English
        case kProductString: return string_descriptor(setup_.model.name);
        case kSerialString: return string_descriptor(setup_.serial_text.value_or(std::to_string(setup_.serial_number)));
        default: return {};
    }
}

std::vector<std::uint8_t> Descriptors::find(std::uint8_t type, std::uint8_t index) const {
    if (type == usb::kDeviceType) return device();
    if (type == usb::kConfigurationType && index == 0) return configuration();
    if (type == usb::kStringType && !bare_) return string(index);
    return {};
}

}  // namespace tovix::simulator
