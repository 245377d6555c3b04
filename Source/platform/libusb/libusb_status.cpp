// SPDX-License-Identifier: Apache-2.0
#include "libusb_status.h"

namespace tovix::platform {
namespace {

struct Row {
    int result;
    IOReturn status;
};

constexpr Row kErrors[] = {
    {LIBUSB_SUCCESS, kIOReturnSuccess},           {LIBUSB_ERROR_TIMEOUT, kIOUSBTransactionTimeout},
    {LIBUSB_ERROR_PIPE, kIOUSBPipeStalled},       {LIBUSB_ERROR_OVERFLOW, kIOReturnOverrun},
    {LIBUSB_ERROR_NO_DEVICE, kIOReturnNoDevice},  {LIBUSB_ERROR_IO, kIOReturnIOError},
    {LIBUSB_ERROR_NO_MEM, kIOReturnNoMemory},     {LIBUSB_ERROR_INVALID_PARAM, kIOReturnBadArgument},
    {LIBUSB_ERROR_ACCESS, kIOReturnNotPermitted}, {LIBUSB_ERROR_BUSY, kIOReturnBusy},
    {LIBUSB_ERROR_NOT_FOUND, kIOReturnNotFound},  {LIBUSB_ERROR_NOT_SUPPORTED, kIOReturnUnsupported},
};

constexpr Row kTransfers[] = {
    {LIBUSB_TRANSFER_COMPLETED, kIOReturnSuccess},  // also when it was short
    {LIBUSB_TRANSFER_TIMED_OUT, kIOUSBTransactionTimeout}, {LIBUSB_TRANSFER_STALL, kIOUSBPipeStalled},
    {LIBUSB_TRANSFER_OVERFLOW, kIOReturnOverrun},          {LIBUSB_TRANSFER_CANCELLED, kIOReturnAborted},
    {LIBUSB_TRANSFER_NO_DEVICE, kIOReturnNoDevice},        {LIBUSB_TRANSFER_ERROR, kIOReturnIOError},
};

template <std::size_t kRows>
IOReturn look_up(const Row (&rows)[kRows], int result) noexcept {
    for (const Row& row : rows)
        if (row.result == result) return row.status;
    return kIOReturnError;
}

}  // namespace

IOReturn status_of_error(int error) noexcept {
    return look_up(kErrors, error);
}

IOReturn status_of_transfer(libusb_transfer_status ended) noexcept {
    return look_up(kTransfers, ended);
}

}  // namespace tovix::platform
