// SPDX-License-Identifier: Apache-2.0
#include "search.h"

#include "report.h"

namespace {

/// Require a 32-bit number in a matching dictionary. False when memory has run out.
bool require(CFMutableDictionaryRef matching, const char* key, SInt32 value) {
    const CFNumberRef number = CFNumberCreate(nullptr, kCFNumberSInt32Type, &value);
    if (number == nullptr) return false;
    CFDictionarySetValue(matching, key, number);
    CFRelease(number);
    return true;
}

}  // namespace

bool RegistryPort::open() {
    const IOReturn status = IOMasterPort(MACH_PORT_NULL, &port_);
    if (status == kIOReturnSuccess && port_ != MACH_PORT_NULL) return true;
    std::fprintf(stderr, "ERR: Couldn't create a master IOKit Port(%08x)\n", unsigned(status));
    return false;
}

std::int32_t usb_find_devices(mach_port_t port, std::uint16_t vendor_id, std::uint16_t product_id,
                              io_iterator_t* iterator) {
    const CFMutableDictionaryRef matching = IOServiceMatching("IOUSBDevice");
    const bool complete = matching != nullptr && require(matching, "idVendor", vendor_id) &&
                          (product_id == kWithoutFirmware ? require(matching, "bDeviceSubClass", 255)
                                                          : require(matching, "idProduct", product_id));
    if (!complete) {
        if (matching != nullptr) CFRelease(matching);
        std::fprintf(stderr, "Can't create a USB matchingUnenumeratedDict dictionary\n");
        return TOVIX_EFAIL;
    }
    if (const IOReturn status = IOServiceGetMatchingServices(port, matching, iterator); status != kIOReturnSuccess) {
        std::fprintf(stderr, "error: unable to find matching services: err=%08X\n", unsigned(status));
        return TOVIX_ESEARCH;
    }
    return TOVIX_OK;
}
