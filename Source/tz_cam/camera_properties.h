// SPDX-License-Identifier: Apache-2.0
// What properties of the camera are made of: blocks of registers, messages, the tone curve, the temperature control.
//
// Results are 0 or negative. Nothing is asked of a null camera here: the calls that applications make have refused it.
#pragma once

#include "handle.h"

// ---- Property blocks -----------------------------------------------------------------------------------------------

/// The four words of a property that the camera keeps, as they follow each other in its registers.
struct tovix_prop {
    std::uint32_t flags;
    std::int32_t value, min, max;
};

/// `prop` is written whole or not at all.
[[nodiscard]] std::int32_t cam_read_prop(_tovix* camera, std::uint32_t base, tovix_prop* prop);
/// Flags and value, in one transfer: the range is the camera's own.
[[nodiscard]] std::int32_t cam_write_prop(_tovix* camera, std::uint32_t base, const tovix_prop* prop);
[[nodiscard]] std::int32_t cam_set_prop_helper(_tovix* camera, std::uint32_t base, int value, std::uint32_t flags);
/// `min` and `max` may be null.
[[nodiscard]] std::int32_t cam_get_prop_helper(_tovix* camera, std::uint32_t base, int* min, int* max, int* value,
                                               std::uint32_t* flags);

// ---- Messages ------------------------------------------------------------------------------------------------------

constexpr std::uint32_t kToneCurveMessage = 0;  // 256 output levels, one a level of input

/// Move `length` bytes of a message from (`read` not 0) or to the camera, in pieces. TOVIX_EINVAL, and nothing is sent,
/// for a length that is negative or runs past the last register address, and for missing data. A message that the camera
/// does not support is reported and refused with TOVIX_EINVAL.
[[nodiscard]] std::int32_t cam_handle_message(_tovix* camera, std::uint32_t message, std::uint8_t* data, int length,
                                              int read);
[[nodiscard]] std::int32_t cam_read_message(_tovix* camera, std::uint32_t message, std::uint8_t* data, int length);
[[nodiscard]] std::int32_t cam_write_message(_tovix* camera, std::uint32_t message, const std::uint8_t* data,
                                             int length);

// ---- Tone curve ----------------------------------------------------------------------------------------------------

/// One of the three properties that the tone curve is made of.
struct ToneSetting {
    std::uint32_t property;
    std::int64_t _tovix::*field;  // hundredths
    int min, max;
};
constexpr ToneSetting kBrightness{TOVIX_PROP_BRIGHTNESS, &_tovix::brightness, -10000, 10000};
constexpr ToneSetting kContrast{TOVIX_PROP_CONTRAST, &_tovix::contrast, 0, 10000};
constexpr ToneSetting kGamma{TOVIX_PROP_GAMMA, &_tovix::gamma, 1, 500};

/// Range, value and flag word of one of the three. TOVIX_EINVAL for another property. `min` and `max` may be null.
[[nodiscard]] std::int32_t cam_get_gamma_helper(_tovix* camera, int property, int* min, int* max, int* value,
                                                std::uint32_t* flags);
/// Make the curve of the three settings and load it into the camera; where that fails, the camera's conversion object,
/// which has to exist, applies them. Always 0.
std::int32_t cam_set_gamma_helper(_tovix* camera);

// ---- Temperature ---------------------------------------------------------------------------------------------------

/// Set the temperature control, and let the fan follow. The value is in the camera's own unit and limited to the bounds
/// that the camera gave when it was opened. TOVIX_EINVAL for a camera without control.
[[nodiscard]] std::int32_t cam_set_temperature_helper(_tovix* camera, int value, std::uint32_t flags);
