// SPDX-License-Identifier: Apache-2.0
// The text beside a raw file: a line "key=value" for each thing that has to be known of the frame.
#pragma once

#include <optional>
#include <string>

#include "camera.h"

/// What a capture tells of a frame.
struct FrameDescription {
    FrameLayout layout;
    _tovix_frame_format area;  // of the sensor
    ListedCamera camera;
    std::uint32_t number;  // in its capture, from 1
};

/// What a conversion wants to know of a frame, as far as it is known.
struct RawFacts {
    std::optional<std::uint32_t> width, height, bits;
    std::optional<bool> msb_first;
    std::optional<std::string> color_filter, model;
    std::optional<std::uint16_t> product_id;
};

/// Name of the description that belongs to a raw file.
std::string description_name(const std::string& raw_name);

std::string describe(const FrameDescription& frame);

/// What the description beside `raw_name` says; nothing where there is none. Throws Failure for a file that is no
/// description, or tells what cannot be.
RawFacts read_description(const std::string& raw_name);
