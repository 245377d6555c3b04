// SPDX-License-Identifier: Apache-2.0
// What a device says of itself: speed, release number, and its strings.
#include <algorithm>
#include <cstring>

#include "report.h"
#include "transport.h"

namespace {

constexpr UInt8 kStandardRead = 0x80;
constexpr UInt8 kGetDescriptor = 6;
constexpr UInt8 kStringDescriptor = 3;

/// A descriptor's length is one byte, so this holds any of them. Bytes beyond what the device sent stay 0.
struct StringDescriptor {
    UInt8 bytes[255];
    UInt8 length() const { return bytes[0]; }
    bool is_well_formed() const { return bytes[1] == kStringDescriptor && bytes[0] % 2 == 0; }
};

IOReturn read_descriptor(_tovix* camera, UInt8 index, UInt16 language, UInt16 length, StringDescriptor& descriptor) {
    descriptor = {};
    IOUSBDevRequestTO transfer{
        .bmRequestType = kStandardRead,
        .bRequest = kGetDescriptor,
        .wValue = static_cast<UInt16>(kStringDescriptor << 8 | index),
        .wIndex = language,
        .wLength = length,
        .pData = descriptor.bytes,
        .wLenDone = 0,
        .noDataTimeout = kControlTimeoutMs,
        .completionTimeout = 0,
    };
    return (*camera->device)->DeviceRequestTO(camera->device, &transfer);
}

}  // namespace

std::int32_t usb_get_string_descriptor(_tovix* camera, std::uint8_t index, char* out, int max, std::uint16_t language) {
    if (max <= 1) return TOVIX_EFAIL;
    StringDescriptor descriptor;
    if (const IOReturn status = read_descriptor(camera, index, language, 2, descriptor);
        status != kIOReturnSuccess && status != kIOReturnOverrun) {
        return TOVIX_EFAIL;
    }
    if (descriptor.length() == 0) {
        out[0] = '\0';
        return TOVIX_OK;
    }
    if (!descriptor.is_well_formed()) return kIOReturnUnderrun;

    const UInt8 length = descriptor.length();
    if (const IOReturn status = read_descriptor(camera, index, language, length, descriptor);
        status != kIOReturnSuccess) {
        return status;
    }
    // The second answer counts: the device may have changed its mind about the length, but not beyond what was asked.
    if (!descriptor.is_well_formed()) return kIOReturnUnderrun;
    const int characters = std::clamp((std::min(descriptor.length(), length) - 2) / 2, 0, max - 1);
    for (int i = 0; i < characters; ++i)
        out[i] = static_cast<char>(descriptor.bytes[2 + 2 * i]);
    out[characters] = '\0';
    return TOVIX_OK;
}

std::int32_t usb_get_device_speed(_tovix* camera) {
    if ((*camera->device)->GetDeviceSpeed(camera->device, &camera->speed) != kIOReturnSuccess) {
        std::fprintf(stderr, "error: unable to read camera's device speed\n");
        return -5;
    }
    return TOVIX_OK;
}

std::int32_t usb_get_device_release_number(_tovix* camera) {
    if ((*camera->device)->GetDeviceReleaseNumber(camera->device, &camera->release_number) != kIOReturnSuccess) {
        std::fprintf(stderr, "error: unable to read camera's device release number\n");
        return TOVIX_EFAIL;
    }
    return TOVIX_OK;
}

std::int32_t usb_get_device_model_name(_tovix* camera) {
    UInt8 index = 0;
    if ((*camera->device)->USBGetProductStringIndex(camera->device, &index) != kIOReturnSuccess || index == 0) {
        std::fprintf(stderr, "error: unable to get camera's model name\n");
        return TOVIX_EFAIL;
    }
    if (usb_get_string_descriptor(camera, index, camera->model_name, sizeof camera->model_name, 0) != TOVIX_OK) {
        std::fprintf(stderr, "error: unable to read camera's model name\n");
        return TOVIX_EFAIL;
    }
    std::fprintf(stderr, "model name: '%s'\n", camera->model_name);
    return TOVIX_OK;
}

std::int32_t usb_get_device_serial_number(_tovix* camera) {
    UInt8 index = 0;
    if ((*camera->device)->USBGetSerialNumberStringIndex(camera->device, &index) != kIOReturnSuccess || index == 0) {
        std::fprintf(stderr, "error: unable to get camera's serial number\n");
        return TOVIX_EFAIL;
    }
    char text[32];
    if (usb_get_string_descriptor(camera, index, text, sizeof text, 0) != TOVIX_OK) {
        std::fprintf(stderr, "error: unable to read camera's serial number\n");
        return TOVIX_EFAIL;
    }
    // Serial numbers with letters in them must keep the value that applications have stored, so every
    // character counts: as (code - '0') mod 10, with the sign of code - '0'.
    camera->serial_number = 0;
    for (const char* c = text; *c != '\0'; ++c) {
        const int digit = (static_cast<unsigned char>(*c) - '0') % 10;
        camera->serial_number = camera->serial_number * 10 + static_cast<std::uint32_t>(digit);
    }
    return TOVIX_OK;
}
