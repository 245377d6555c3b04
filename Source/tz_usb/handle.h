// SPDX-License-Identifier: Apache-2.0
// The camera handle: everything the library knows of one open camera, in one flat record.
//
// Opening fills a record on the stack and then copies it, bit for bit, into the handle that the application
// gets. So nothing in it points into itself, and what it owns is a plain pointer. Zero means "not acquired"
// everywhere: closing is safe at every stage of opening.
#pragma once

#include <cstdint>
#include <type_traits>

#include "focus_state.h"
#include "platform.h"
#include "stream_state.h"
#include "tovixapi/tovixapi.h"

class CVorm;

constexpr std::size_t kModelNameBytes = 32;  // with the NUL

struct _tovix {
    io_service_t service;  // registry entry of the device; not 0 exactly while open
    IOUSBDeviceInterface197** device;
    io_service_t interface_service;  // registry entry of the interface
    IOUSBInterfaceInterface** interface;

    std::uint16_t vendor_id;
    std::uint16_t product_id;
    std::uint16_t device_release;
    const camera_id* camera;  // row of the camera table, or null
    std::uint32_t serial_number;
    std::uint16_t release_number;
    std::uint32_t firmware_version;
    std::uint8_t speed;  // 0 low, 1 full, 2 high
    char model_name[kModelNameBytes];

    std::uint16_t max_width, max_height;
    std::uint16_t unit_width, unit_height;
    std::uint16_t width, height;       // delivered pixels, after subsampling
    std::uint16_t x_offset, y_offset;  // sensor pixels
    std::uint16_t subsample_x, subsample_y;

    std::uint8_t temp_supported, fan_supported;
    std::int8_t temp_min, temp_max;  // bounds of the set point, in the camera's unit
    std::uint8_t temp_on, fan_on;
    std::uint8_t temp_value;

    std::uint8_t is_color;
    std::uint32_t color_id;      // 0 monochrome, 8 RGGB, 9 GRBG, 10 GBRG, 11 BGGR
    std::uint32_t pixel_format;  // 0 one byte, 1 two bytes, 2 three bytes a pixel

    std::uint16_t kps_count;
    std::uint16_t* kps_list;  // owned; kps_count entries, or null

    StreamState stream;

    CVorm* vorm;                   // owned; null until first needed
    std::uint8_t lut[256];         // tone curve last made for the camera
    std::int64_t gamma, contrast;  // hundredths
    std::int64_t brightness;
    std::uint8_t tone_in_software;  // the camera refused the curve: the conversion object applies the three

    FocusState focus;

    struct Notification {
        tovix_notification callback;
        void* context;
        std::uint32_t type;  // 0: a free slot
    };
    Notification callbacks[4];
};
static_assert(std::is_trivially_copyable_v<_tovix>, "the open call copies the record bit for bit");
