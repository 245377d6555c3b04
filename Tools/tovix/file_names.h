// SPDX-License-Identifier: Apache-2.0
// The names of the files of a capture.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

enum class ImageKind { kRaw, kPng, kTiff };

/// By the extension of a name, in any case: .raw, .png, .tif or .tiff.
std::optional<ImageKind> kind_of(const std::string& name);

/// Name of frame `number` of `count`. A %d or %04d (any width of one digit) in the last part of `name`
/// becomes the number; without one, and when there is more than one frame, "-0001" goes in front of the extension.
std::string frame_name(const std::string& name, std::uint32_t number, std::uint32_t count);
