// SPDX-License-Identifier: Apache-2.0
// libusb's results in the platform's words.
#pragma once

#include <libusb.h>

#include "../status.h"

namespace tovix::platform {

/// Status of a libusb call; `error` is 0 or one of LIBUSB_ERROR_*.
IOReturn status_of_error(int error) noexcept;

/// Status of a transfer that has ended.
IOReturn status_of_transfer(libusb_transfer_status ended) noexcept;

}  // namespace tovix::platform
