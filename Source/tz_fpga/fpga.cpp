// SPDX-License-Identifier: Apache-2.0
#include "fpga.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "camera_table.h"
#include "device.h"
#include "report.h"

namespace {

constexpr char kLoad[] = "usb_load_fpga";

constexpr std::uint32_t kConfigured = 0x20;  // of the control register
constexpr std::uint32_t kBeginConfiguration = 0xFFFFFFFF;
constexpr std::uint32_t kEndConfiguration = 0;

constexpr UInt8 kIdleSetting = 0;
constexpr UInt8 kImageSetting = 1;
constexpr UInt8 kImagePipe = 1;

constexpr UInt32 kAfterImageUs = 20'000;
constexpr UInt32 kPollUs = 10'000;
constexpr int kPolls = 10;

constexpr off_t kMaxImageBytes = 64 << 20;

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
using Image = std::unique_ptr<std::uint8_t, FreeMemory>;

/// A step of the configuration failed, for the reason in errno.
bool failed(const char* step) {
    std::fprintf(stderr, "%s: %s: %s\n", kLoad, step, error_text());
    return false;
}

/// Send the image file, if there is one. A missing image is reported and left to the camera to notice.
void send_image(_tovix* camera) {
    std::fprintf(stderr, "loading FPGA binary from disk\n");
    std::uint8_t* loaded = nullptr;
    std::uint32_t size = 0;
    if (usb_load_fpga_contents(camera->vendor_id, camera->product_id, camera->device_release, &loaded, &size) != 0) {
        std::fprintf(stderr, "error: unable to load FPGA\n");
        return;
    }
    const Image image(loaded);
    std::fprintf(stderr, "sending FPGA binary to camera\n");
    tz_usb_bulk_write(camera, kImagePipe, image.get(),
                      size);  // the camera itself says whether it got its image
    std::fprintf(stderr, "sent FPGA binary to camera\n");
    IOSleepMicroseconds(kAfterImageUs);
}

/// Wait until the camera says that its FPGA is configured.
[[nodiscard]] bool wait_until_configured(_tovix* camera) {
    std::uint32_t control = 0;
    for (int poll = 0; poll < kPolls && (control & kConfigured) == 0; ++poll) {
        IOSleepMicroseconds(kPollUs);
        tz_usb_read_tovix_u32(camera, TOVIX_FPGA_CONTROL, &control);  // a failed read is one poll less
    }
    return (control & kConfigured) != 0;
}

/// Configure the FPGA of an opened camera, if that is needed. False after a report.
bool configure(_tovix* camera) {
    if (camera->camera == nullptr || camera->camera->fpga_file == nullptr) return true;
    std::uint32_t control = 0;
    if (tz_usb_read_tovix_u32(camera, TOVIX_FPGA_CONTROL, &control) < 0) return failed("unable to read register");
    if ((control & kConfigured) != 0) return true;

    IOUSBInterfaceInterface** const interface = camera->interface;
    if ((*interface)->SetAlternateInterface(interface, kImageSetting) != kIOReturnSuccess)
        return failed("unable to set alternate interface");
    (*interface)->ClearPipeStallBothEnds(interface, kImagePipe);
    if (tz_usb_write_tovix_u32(camera, TOVIX_FPGA_CONTROL, kBeginConfiguration) < 0)
        return failed("unable to write register");
    send_image(camera);
    if (tz_usb_write_tovix_u32(camera, TOVIX_FPGA_CONTROL, kEndConfiguration) < 0)
        return failed("unable to write register");
    if (!wait_until_configured(camera)) {
        std::fprintf(stderr, "%s: unable to load FPGA: timeout\n", kLoad);
        return false;
    }
    std::fprintf(stderr, "FPGA loaded\n");
    (*interface)->SetAlternateInterface(interface, kIdleSetting);
    return true;
}

/// Read a whole image file. False after a report.
[[nodiscard]] bool read_image(int fd, Image& image, std::uint32_t& size) {
    struct stat file {};
    if (::fstat(fd, &file) != 0 || !S_ISREG(file.st_mode) || file.st_size == 0 || file.st_size > kMaxImageBytes) {
        if (file.st_mode != 0) errno = S_ISDIR(file.st_mode) ? EISDIR : file.st_size > kMaxImageBytes ? EFBIG : EINVAL;
        std::fprintf(stderr, "error: unable to get file size: %s\n", error_text());
        return false;
    }
    const auto bytes = static_cast<std::size_t>(file.st_size);
    image.reset(static_cast<std::uint8_t*>(std::malloc(bytes)));
    if (!image) {
        std::fprintf(stderr, "error: unable to allocate buffer: %s\n", error_text());
        return false;
    }
    errno = EIO;  // a file that became shorter in the meantime sets no error
    if (::read(fd, image.get(), bytes) != file.st_size) {
        std::fprintf(stderr, "error: unable to read file: %s\n", error_text());
        return false;
    }
    size = static_cast<std::uint32_t>(bytes);
    return true;
}

}  // namespace

void usb_load_fpga(void*, io_iterator_t iterator) {
    while (const io_service_t service = IOIteratorNext(iterator)) {
        _tovix camera;
        if (usb_open_device(&camera, service) != TOVIX_OK) {
            std::fprintf(stderr, "error: unable to open usb device\n");
            continue;
        }
        configure(&camera);  // it has reported why it failed; the next device gets its chance
        usb_close_device(&camera);
    }
}

std::int32_t usb_load_fpga_contents(std::uint16_t, std::uint16_t product_id, std::uint16_t release,
                                    std::uint8_t** buffer, std::uint32_t* size) {
    const camera_id* const row = tz_camera_find(product_id, release);
    if (row == nullptr || row->fpga_file == nullptr) {
        std::fprintf(stderr, "error: unable to find specified camera");
        return TOVIX_EFAIL;
    }
    const ResourcePath path = resource_path(row->fpga_file, release);
    // Not blocking: a pipe in the image's place must not hang start-up.
    const int fd = ::open(path.text, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        std::fprintf(stderr, "error: unable to open fpga file %s: %s\n", path.text, error_text());
        return TOVIX_EFAIL;
    }
    Image image;
    const bool complete = read_image(fd, image, *size);
    ::close(fd);
    if (!complete) return TOVIX_EFAIL;
    *buffer = image.release();
    return TOVIX_OK;
}
