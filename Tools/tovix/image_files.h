// SPDX-License-Identifier: Apache-2.0
// Frames on disk: raw samples with a description beside them, and pictures.
#pragma once

#include <span>
#include <string>

#include "description.h"
#include "file_names.h"
#include "rendering.h"

/// The samples to `name`, the description to description_name(). Once the raw file is there, so is its description.
/// Throws Failure, with nothing left behind.
void write_raw(const std::string& name, std::span<const std::uint8_t> samples, const FrameDescription& description);

/// A PNG file, of an 8-bit picture, or a TIFF file. Throws Failure, with nothing left behind.
void write_picture(const std::string& name, ImageKind kind, const Picture& picture);
