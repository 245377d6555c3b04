// SPDX-License-Identifier: Apache-2.0
// The only layer that moves bytes to and from an opened camera: identity queries here, transfers in tovixapi.h.
#pragma once

#include "handle.h"

/// Time-outs of all control transfers, in milliseconds.
constexpr UInt32 kControlTimeoutMs = 5000;

/// Read string descriptor `index` into `out` as 8-bit characters with a NUL, at most `max` bytes with it.
/// 0; -1 for a `max` that holds no character or when the length cannot be read; kIOReturnUnderrun for a
/// malformed descriptor; else the platform's status.
[[nodiscard]] std::int32_t usb_get_string_descriptor(_tovix* camera, std::uint8_t index, char* out, int max,
                                                     std::uint16_t language);

// Identity queries: each fills one field of the handle. 0 or a negative value, after a report.
std::int32_t usb_get_device_speed(_tovix* camera);
std::int32_t usb_get_device_release_number(_tovix* camera);
std::int32_t usb_get_device_model_name(_tovix* camera);
std::int32_t usb_get_device_serial_number(_tovix* camera);
