// SPDX-License-Identifier: Apache-2.0
// Frames on disk: raw samples with a description beside them, and pictures.
#pragma once

#include <span>
#include <string>

#include "camera.h"
#include "rendering.h"

/// What has to be known of a raw frame to make a picture of it later.
struct FrameDescription {
    FrameLayout layout;
    _tovix_frame_format area;  // of the sensor
    ListedCamera camera;
    std::uint32_t number;  // in its capture, from 1
};

/// Name of the description that belongs to a raw file.
std::string description_name(const std::string& raw_name);

/// The samples to `name`, the description to description_name(): a line "key=value" for each fact. Once the
/// raw file is there, so is its description. Throws Failure, with nothing left behind.
void write_raw(const std::string& name, std::span<const std::uint8_t> samples, const FrameDescription& description);

/// Throws Failure, with nothing left behind.
void write_png(const std::string& name, const Picture& picture);
