// SPDX-License-Identifier: Apache-2.0
// The table of supported cameras: lookups, file names and model data. The rows stand in camera_data.cpp.
#pragma once

#include <cstdint>

#include "tovixapi/tovixapi.h"

constexpr std::uint16_t kAnyRelease = 0xFFFF;

/// Vendor IDs under which a camera without firmware may present itself, in the order of the search.
extern const std::uint16_t kStartupVendors[3];

/// The first record of `tag` in the model-data block of a row; the value stays the table's.
/// 0; -22 without a row; -14 when the block has no such record or is malformed.
[[nodiscard]] std::int32_t find_model_data(const camera_id* row, std::uint32_t tag, const void** value,
                                           std::uint32_t* length);

/// A path of at most 255 characters; longer ones are cut.
struct ResourcePath {
    char text[256];
};

/// Path of a row's file under the resource directory: the template's "%X" becomes the release number. The name is cut
/// at 127 characters.
ResourcePath resource_path(const char* file_template, std::uint16_t release);

/// Replace the resource directory; null chooses the built-in default. False when memory has run out.
[[nodiscard]] bool set_resource_root(const char* directory) noexcept;
