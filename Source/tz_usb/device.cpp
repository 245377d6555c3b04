// SPDX-License-Identifier: Apache-2.0
#include "device.h"

#include <cstdlib>

#include "camera_table.h"
#include "report.h"
#include "transport.h"

namespace {

constexpr char kOpen[] = "usb_open_device";

/// A report of one step of the open, with the reason that the platform left in errno.
std::int32_t open_failed(const char* step) {
    std::fprintf(stderr, "%s: %s error: %s\n", kOpen, step, error_text());
    return TOVIX_EFAIL;
}

[[nodiscard]] std::int32_t create_device(_tovix* camera) {
    IOCFPlugInInterface** created = nullptr;
    SInt32 score = 0;
    IOReturn status = IOCreatePlugInInterfaceForService(camera->service, kIOUSBDeviceUserClientTypeID,
                                                        kIOCFPlugInInterfaceID, &created, &score);
    if (status != kIOReturnSuccess || created == nullptr) {
        const std::int32_t result = status != kIOReturnSuccess ? status : -10;
        std::fprintf(stderr, "IOCreatePlugInInterfaceForService(usb_device Err 0x%x %d\n", unsigned(result), result);
        return result;
    }
    const Owned<IOCFPlugInInterface> plug_in(created);
    void* device = nullptr;
    status = (*created)->QueryInterface(created, kIOUSBDeviceInterfaceID197, &device);
    if (status != kIOReturnSuccess || device == nullptr) {
        open_failed("query interface");
        return status != kIOReturnSuccess ? status : -20;
    }
    camera->device = static_cast<IOUSBDeviceInterface197**>(device);
    return TOVIX_OK;
}

/// Read the identifiers, claim the device, and choose its configuration.
[[nodiscard]] std::int32_t claim_device(_tovix* camera) {
    IOUSBDeviceInterface197** const device = camera->device;
    if ((*device)->GetDeviceVendor(device, &camera->vendor_id) != 0) return open_failed("get device vendor");
    if ((*device)->GetDeviceProduct(device, &camera->product_id) != 0) return open_failed("get device product");
    if ((*device)->GetDeviceReleaseNumber(device, &camera->device_release) != 0)
        return open_failed("get device release");
    if ((*device)->USBDeviceOpen(device) != 0) return open_failed("usb device open");
    IOUSBConfigurationDescriptorPtr configuration = nullptr;
    if ((*device)->GetConfigurationDescriptorPtr(device, 0, &configuration) != 0)
        return open_failed("usb get config descriptor");
    if (configuration->bLength < sizeof *configuration) {
        errno = EBADMSG;
        return open_failed("usb get config descriptor");
    }
    if ((*device)->SetConfiguration(device, configuration->bConfigurationValue) != 0)
        return open_failed("usb set config");
    return TOVIX_OK;
}

/// Open the first interface that can be opened.
[[nodiscard]] std::int32_t open_first_interface(_tovix* camera) {
    const IOUSBFindInterfaceRequest any{kIOUSBFindInterfaceDontCare, kIOUSBFindInterfaceDontCare,
                                        kIOUSBFindInterfaceDontCare, kIOUSBFindInterfaceDontCare};
    io_iterator_t created = 0;
    if ((*camera->device)->CreateInterfaceIterator(camera->device, &any, &created) != 0)
        return open_failed("usb create interface iterator");
    const OwnedEntry iterator(created);
    errno = ENOENT;  // unless an interface fails for a reason of its own
    while ((camera->interface_service = IOIteratorNext(iterator.get())) != 0) {
        if (usb_open_interface(camera) == TOVIX_OK) return TOVIX_OK;
        const int reason = errno;
        IOObjectRelease(camera->interface_service);
        errno = reason;
    }
    std::fprintf(stderr, "%s: unable to create usb interface: %s\n", kOpen, error_text());
    return TOVIX_EFAIL;
}

/// Everything that is asked of the camera once it is claimed. What it does not answer stays 0 or empty; only
/// a camera without geometry is of no use.
[[nodiscard]] std::int32_t read_state(_tovix* camera) {
    camera->camera = tz_camera_find(camera->product_id, camera->device_release);
    usb_get_device_serial_number(camera);
    usb_get_device_release_number(camera);
    tz_usb_read_tovix_u32(camera, TOVIX_FIRMWARE_VERSION, &camera->firmware_version);
    usb_get_device_speed(camera);
    usb_get_device_model_name(camera);
    usb_init_temperature(camera);
    std::fprintf(stderr, "sn=%lu, rel=%lu, fw=%08X, speed=%d\n", static_cast<unsigned long>(camera->serial_number),
                 static_cast<unsigned long>(camera->release_number), camera->firmware_version, camera->speed);
    camera->gamma = 100;
    camera->contrast = 100;
    camera->brightness = 0;
    for (int i = 0; i < 256; ++i)
        camera->lut[i] = static_cast<std::uint8_t>(i);
    return usb_init_geometry(camera);
}

}  // namespace

std::int32_t usb_open_device(_tovix* camera, io_service_t service) {
    *camera = _tovix{};
    camera->service = service;
    std::int32_t result = create_device(camera);
    if (result == TOVIX_OK) result = claim_device(camera);
    if (result == TOVIX_OK) result = open_first_interface(camera);
    if (result == TOVIX_OK) result = read_state(camera);
    if (result != TOVIX_OK) usb_close_device(camera);
    return result;
}

std::int32_t usb_open_interface(_tovix* camera) {
    IOCFPlugInInterface** created = nullptr;
    SInt32 score = 0;
    IOReturn status = IOCreatePlugInInterfaceForService(camera->interface_service, kIOUSBInterfaceUserClientTypeID,
                                                        kIOCFPlugInInterfaceID, &created, &score);
    if (status != kIOReturnSuccess || created == nullptr) {
        const std::int32_t result = status != kIOReturnSuccess ? status : -100;
        std::fprintf(stderr, "IOCreatePlugInInterfaceForService usb_interface Err 0x%x %d\n", unsigned(result), result);
        return result;
    }
    const Owned<IOCFPlugInInterface> plug_in(created);
    void* object = nullptr;
    status = (*created)->QueryInterface(created, kIOUSBInterfaceInterfaceID, &object);
    if (status != kIOReturnSuccess || object == nullptr) {
        const std::int32_t result = status != kIOReturnSuccess ? status : -200;
        std::fprintf(stderr, "QueryInterface Err 0x%x %d\n", unsigned(result), result);
        return result;
    }
    Owned<IOUSBInterfaceInterface> interface(static_cast<IOUSBInterfaceInterface**>(object));
    status = (*interface)->USBInterfaceOpen(interface.get());
    if (status != kIOReturnSuccess) {
        std::fprintf(stderr, "USBInterfaceOpen(ref->usb_interface_if Err 0x%x %d\n", unsigned(status), status);
        return status;
    }
    camera->interface = interface.release();
    return TOVIX_OK;
}

std::int32_t usb_close_device(_tovix* camera) {
    if (camera == nullptr || camera->service == 0) return TOVIX_OK;
    if (IOUSBDeviceInterface197** const device = std::exchange(camera->device, nullptr)) {
        if (IOUSBInterfaceInterface** const interface = std::exchange(camera->interface, nullptr)) {
            (*interface)->SetAlternateInterface(interface, 0);
            (*interface)->USBInterfaceClose(interface);
            (*interface)->Release(interface);
        }
        if (camera->interface_service != 0) IOObjectRelease(std::exchange(camera->interface_service, 0));
        (*device)->USBDeviceClose(device);
        (*device)->Release(device);
    }
    IOObjectRelease(std::exchange(camera->service, 0));
    std::free(std::exchange(camera->kps_list, nullptr));
    camera->kps_count = 0;
    return TOVIX_OK;
}

std::int32_t usb_get_model_data(_tovix* camera, std::uint32_t tag, const void** value, std::uint32_t* length) {
    return find_model_data(camera->camera, tag, value, length);
}
