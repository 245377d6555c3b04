// SPDX-License-Identifier: Apache-2.0
#include "firmware.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "camera_table.h"
#include "device.h"
#include "hex_file.h"
#include "report.h"
#include "transport.h"

namespace {

constexpr UInt8 kVendorWrite = 0x40;
constexpr UInt8 kWriteMemory = 0xA0;      // the boot loader's request
constexpr std::uint16_t kCpucs = 0xE600;  // bit 0 holds the CPU in reset
constexpr UInt32 kResetPauseUs = 250'000;
constexpr int kOpenAttempts = 5;
constexpr UInt32 kExclusiveAccessPauseUs = 100'000;

/// A file that is closed when it goes out of scope.
class OpenFile {
  public:
    // Not blocking: a pipe in the file's place must not hang start-up.
    explicit OpenFile(const char* path) : fd_(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~OpenFile() {
        if (fd_ >= 0) ::close(fd_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    int fd() const { return fd_; }

  private:
    int fd_;
};

std::int32_t write_failed() {
    std::fprintf(stderr, "error: unable to write data to FX2\n");
    return TOVIX_EFAIL;
}

/// Hold the CPU in reset, or release it, and give it time.
[[nodiscard]] std::int32_t reset_cpu(IOUSBDeviceInterface197** device, bool hold) {
    std::uint8_t value = hold ? 1 : 0;
    if (usb_fx2_write(device, kCpucs, 1, &value) != kIOReturnSuccess) return write_failed();
    std::fprintf(stderr, "myAnchorFX2WriteFirmWare reset FX2 successfully\n");
    IOSleepMicroseconds(kResetPauseUs);
    return TOVIX_OK;
}

/// Send the records of a file until one of length 0, the end of the file, or what is no record.
[[nodiscard]] std::int32_t send_records(IOUSBDeviceInterface197** device, int fd) {
    usb_firmware_header header{};
    std::uint8_t data[kMaxRecordBytes];
    std::int32_t result = 0;
    while ((result = hex_read_section(fd, &header, data)) > 0) {
        if (usb_fx2_write(device, header.address, header.length, data) != kIOReturnSuccess) return write_failed();
    }
    if (result < 0) std::fprintf(stderr, "error: unable to read header from file: %s", error_text());
    return TOVIX_OK;
}

/// Choose the device's configuration, without which it takes no requests.
[[nodiscard]] std::int32_t configure(IOUSBDeviceInterface197** device) {
    IOUSBConfigurationDescriptorPtr configuration = nullptr;
    IOReturn status = (*device)->GetConfigurationDescriptorPtr(device, 0, &configuration);
    if (status == kIOReturnSuccess && configuration->bLength < sizeof *configuration) status = kIOReturnUnderrun;
    if (status != kIOReturnSuccess) {
        std::fprintf(stderr, "unable to get config descriptor for index %d (err = %08x)\n", 0, unsigned(status));
        return TOVIX_EFAIL;
    }
    const UInt8 value = configuration->bConfigurationValue;
    status = (*device)->SetConfiguration(device, value);
    if (status != kIOReturnSuccess) {
        std::fprintf(stderr, "unable to set configuration to value %d (err=%08x)\n", value, unsigned(status));
        return TOVIX_EFAIL;
    }
    return TOVIX_OK;
}

/// Claim a device, waiting a little for another client to let go of it.
[[nodiscard]] IOReturn open_patiently(IOUSBDeviceInterface197** device) {
    IOReturn status = kIOReturnSuccess;
    for (int attempt = 1; attempt <= kOpenAttempts; ++attempt) {
        status = (*device)->USBDeviceOpen(device);
        if (status != kIOReturnExclusiveAccess) break;
        std::fprintf(stderr, "Exclusive access err, sleeping on it %d\n", attempt);
        IOSleepMicroseconds(kExclusiveAccessPauseUs);
    }
    return status;
}

/// The device object of a registry entry, or null after a report. Gives the entry back.
[[nodiscard]] Owned<IOUSBDeviceInterface197> create_device(OwnedEntry service) {
    IOCFPlugInInterface** created = nullptr;
    SInt32 score = 0;
    IOReturn status = IOCreatePlugInInterfaceForService(service.get(), kIOUSBDeviceUserClientTypeID,
                                                        kIOCFPlugInInterfaceID, &created, &score);
    if (status != kIOReturnSuccess || created == nullptr) {
        std::fprintf(stderr, "unable to create a plugin (%08x)\n", unsigned(status));
        return nullptr;
    }
    const Owned<IOCFPlugInInterface> plug_in(created);
    void* device = nullptr;
    status = (*created)->QueryInterface(created, kIOUSBDeviceInterfaceID197, &device);
    if (status != kIOReturnSuccess || device == nullptr) {
        std::fprintf(stderr, "couldn't create a device interface (%08x)\n", unsigned(status));
        return nullptr;
    }
    return Owned<IOUSBDeviceInterface197>(static_cast<IOUSBDeviceInterface197**>(device));
}

/// True when the device received its firmware.
[[nodiscard]] bool load_firmware(IOUSBDeviceInterface197** device) {
    UInt16 vendor_id = 0, product_id = 0, release = 0;
    IOReturn status = (*device)->GetDeviceVendor(device, &vendor_id);
    if (status != kIOReturnSuccess) {
        std::fprintf(stderr, "GetDeviceVendor err %d\n", status);
        return false;
    }
    std::fprintf(stderr, "VID = 0x%X\n", unsigned{vendor_id});
    status = (*device)->GetDeviceProduct(device, &product_id);
    if (status != kIOReturnSuccess) {
        std::fprintf(stderr, "GetDeviceProduct  err %d\n", status);
        return false;
    }
    std::fprintf(stderr, "PID = 0x%X\n", unsigned{product_id});
    status = (*device)->GetDeviceReleaseNumber(device, &release);
    if (status != kIOReturnSuccess) std::fprintf(stderr, "GetDeviceReleaseNumber err %d\n", status);
    std::fprintf(stderr, "DID = 0x%X\n", unsigned{release});

    status = open_patiently(device);
    if (status != kIOReturnSuccess) {
        std::fprintf(stderr, "unable to open device: %08x\n", unsigned(status));
        return false;
    }
    const std::int32_t result = usb_fx2_send_firmware(device, vendor_id, product_id, release);
    if (result == TOVIX_OK) {
        std::fprintf(stderr, "FW was downloaded to device\n");
    } else {
        std::fprintf(stderr, "unable to download to device: %d %08x\n", result, unsigned(result));
    }
    (*device)->USBDeviceClose(device);
    return result == TOVIX_OK;
}

}  // namespace

std::int32_t usb_fx2_write(IOUSBDeviceInterface197** device, std::uint16_t address, std::uint16_t length,
                           std::uint8_t* data) {
    IOUSBDevRequestTO request{
        .bmRequestType = kVendorWrite,
        .bRequest = kWriteMemory,
        .wValue = address,
        .wIndex = 0,
        .wLength = length,
        .pData = data,
        .wLenDone = 0,
        .noDataTimeout = kControlTimeoutMs,
        .completionTimeout = 0,
    };
    return (*device)->DeviceRequestTO(device, &request);
}

std::int32_t usb_fx2_send_firmware(IOUSBDeviceInterface197** device, std::uint16_t, std::uint16_t product_id,
                                   std::uint16_t release) {
    if (configure(device) != TOVIX_OK) return TOVIX_EFAIL;
    const camera_id* const row = tz_camera_find(product_id, release);
    if (row == nullptr) {
        std::fprintf(stderr, "error: unable to find specified camera");
        return TOVIX_EFAIL;
    }
    const ResourcePath path = resource_path(row->firmware_file, release);
    const OpenFile file(path.text);
    if (file.fd() < 0) {
        std::fprintf(stderr, "error: unable to open firmware file %s\n", path.text);
        return TOVIX_EFAIL;
    }
    if (reset_cpu(device, true) != TOVIX_OK || send_records(device, file.fd()) != TOVIX_OK) return TOVIX_EFAIL;
    return reset_cpu(device, false);
}

void usb_load_firmware(std::uint32_t* counter, io_iterator_t iterator) {
    while (const io_service_t service = IOIteratorNext(iterator)) {
        std::fprintf(stderr, "Raw device added.\n");
        const Owned<IOUSBDeviceInterface197> device = create_device(OwnedEntry(service));
        if (device && load_firmware(device.get())) ++*counter;
    }
}
