// SPDX-License-Identifier: Apache-2.0
// Vendor control and bulk transfers of an opened camera.
#include "transport.h"

#include <algorithm>
#include <limits>

#include "report.h"

namespace {

constexpr UInt8 kVendorWrite = 0x40;
constexpr UInt8 kVendorRead = 0xC0;

/// The SETUP packet counts its data in 16 bits.
constexpr std::uint32_t kMaxControlBytes = std::numeric_limits<std::uint16_t>::max();

/// Whether a transfer has something to move and a camera to move it to.
bool can_transfer(const _tovix* camera, const void* data, std::uint32_t length) {
    return camera != nullptr && camera->interface != nullptr && data != nullptr && length != 0;
}

/// Milliseconds without data until a bulk transfer fails: four times what the bytes take at 480 000 000 bytes a second,
/// and not below 5 s.
std::uint32_t bulk_timeout_ms(std::uint32_t length) {
    const auto transfer_ms = static_cast<std::uint32_t>(length * 1000.0 / 1024.0 / 468750.0);
    return std::max(transfer_ms * 4, std::uint32_t{5000});
}

bool pipe_is_ready(_tovix* camera, std::uint8_t pipe) {
    const IOReturn status = (*camera->interface)->GetPipeStatus(camera->interface, pipe);
    if (status != kIOReturnSuccess) std::fprintf(stderr, "pipe is not ready: status=%02X\n", unsigned(status));
    return status == kIOReturnSuccess;
}

/// Leave a pipe ready for the next transfer after one that failed.
void recover_pipe(_tovix* camera, std::uint8_t pipe) {
    (*camera->interface)->ClearPipeStallBothEnds(camera->interface, pipe);
    (*camera->interface)->AbortPipe(camera->interface, pipe);
}

void recover_bulk_pipe(_tovix* camera, std::uint8_t pipe, IOReturn status) {
    if (status == kIOReturnSuccess || status == kIOReturnOverrun) return;
    recover_pipe(camera, pipe);
    std::fprintf(stderr, "myUSBReadBulkPipe WritePipeTO failed 0x%X %d\n", unsigned(status), status);
}

}  // namespace

std::int32_t tz_usb_control_write(_tovix* camera, const void* data, std::uint32_t length, std::uint8_t request,
                                  std::uint16_t value, std::uint16_t index) {
    if (!can_transfer(camera, data, length) || length > kMaxControlBytes) return TOVIX_EFAIL;
    IOUSBDevRequestTO transfer{
        .bmRequestType = kVendorWrite,
        .bRequest = request,
        .wValue = value,
        .wIndex = index,
        .wLength = static_cast<UInt16>(length),
        .pData = const_cast<void*>(data),  // the record serves both directions; a write leaves it alone
        .wLenDone = 0,
        .noDataTimeout = kControlTimeoutMs,
        .completionTimeout = 0,
    };
    const IOReturn status = (*camera->interface)->ControlRequestTO(camera->interface, 0, &transfer);
    const int reason = errno;  // the recovery may fail for another
    if (status != kIOReturnSuccess && status != kIOReturnOverrun) recover_pipe(camera, 0);
    errno = reason;
    if (status != kIOReturnSuccess)
        std::fprintf(stderr, "TVXUSBWriteControlPipe Err 0x%X %d\n", unsigned(status), status);
    return status;
}

std::int32_t tz_usb_control_read(_tovix* camera, void* data, std::uint32_t length, std::uint8_t request,
                                 std::uint16_t value, std::uint16_t index) {
    if (!can_transfer(camera, data, length) || length > kMaxControlBytes) return TOVIX_EFAIL;
    IOUSBDevRequestTO transfer{
        .bmRequestType = kVendorRead,
        .bRequest = request,
        .wValue = value,
        .wIndex = index,
        .wLength = static_cast<UInt16>(length),
        .pData = data,
        .wLenDone = length,
        .noDataTimeout = kControlTimeoutMs,
        .completionTimeout = kControlTimeoutMs,
    };
    IOReturn status = (*camera->interface)->ControlRequestTO(camera->interface, 0, &transfer);
    if (status == kIOReturnSuccess && transfer.wLenDone != length) {
        status = TOVIX_EFAIL;
        errno = EBADMSG;
    }
    if (status == kIOReturnOverrun) return TOVIX_OK;
    if (status != kIOReturnSuccess)
        std::fprintf(stderr, "TVXUSBReadControlPipe Err 0x%X %d\n", unsigned(status), status);
    return status;
}

std::int32_t tz_usb_bulk_write(_tovix* camera, std::uint8_t pipe, const void* data, std::uint32_t length) {
    if (!can_transfer(camera, data, length) || !pipe_is_ready(camera, pipe)) return TOVIX_EFAIL;
    const IOReturn status =
        (*camera->interface)->WritePipeTO(camera->interface, pipe, data, length, bulk_timeout_ms(length), 0);
    recover_bulk_pipe(camera, pipe, status);
    return static_cast<std::int32_t>(length);
}

std::int32_t tz_usb_bulk_read(_tovix* camera, std::uint8_t pipe, void* data, std::uint32_t length) {
    if (!can_transfer(camera, data, length) || !pipe_is_ready(camera, pipe)) return TOVIX_EFAIL;
    UInt32 count = length;
    const IOReturn status =
        (*camera->interface)->ReadPipeTO(camera->interface, pipe, data, &count, bulk_timeout_ms(length), 0);
    recover_bulk_pipe(camera, pipe, status);
    return static_cast<std::int32_t>(count);
}
