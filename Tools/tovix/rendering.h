// SPDX-License-Identifier: Apache-2.0
// How a raw frame becomes a picture.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "frame_layout.h"
#include "tovixapi/tovixapi.h"
#include "tovixapi/vorm.h"

/// Rows top to bottom, unpadded.
struct Picture {
    std::uint32_t width, height;
    std::uint32_t channels;           // 1: grey, 3: red, green, blue
    std::uint32_t bits;               // of a channel: 8, or 16 in the machine's order
    std::vector<std::uint8_t> bytes;  // width * height * channels * bits / 8
};

/// What a user may choose; what is not given is neutral.
struct RenderingOptions {
    /// Properties of a camera that conversions go by, and their integer values, in the order in which they were set.
    /// What follows goes before them.
    std::vector<std::pair<std::uint32_t, int>> properties;
    std::optional<std::uint32_t> method;  // TOVIX_DEMOSAIC_*; else the finest
    std::optional<std::uint32_t>
        matrix;                         // TOVIX_MATRIX_*, or 2 to 13; else the first of the model, if there is a model
    std::optional<std::uint32_t> bits;  // of a channel, 8 or 16; else those of a sample
    bool flip_x = false, flip_y = false;
    std::optional<double> hue;                   // degrees
    std::optional<double> saturation;            // above 0.05 with `gains`
    std::optional<double> gain;                  // of the luminance
    std::optional<std::array<double, 3>> gains;  // of red, green and blue, instead of `gain`
    std::optional<std::array<double, 3>> grey;   // mean red, green and blue of toned() that shall become grey
    std::optional<double> gamma, contrast;       // 1.0 is neutral
    std::optional<double> brightness;            // adds so much of full scale

    /// Whether something is asked for that goes through a colour matrix.
    bool adjusts_colours() const { return hue || saturation || gain || gains; }
};

/// Whether the selector is the number of a matrix that belongs to a model.
bool is_of_model(std::uint32_t matrix);

/// Makes pictures of frames of one layout.
class Renderer {
  public:
    /// `model` has the colour matrices; null: not known. Throws Failure when such frames cannot be rendered so.
    Renderer(const RenderingOptions& options, const FrameLayout& layout, const camera_id* model);

    /// Bytes after gamma, contrast and brightness: what a white balance of the picture is about.
    std::vector<std::uint8_t> toned(std::span<const std::uint8_t> samples);

    /// `samples` are a whole frame. Throws Failure.
    Picture render(std::span<const std::uint8_t> samples);

  private:
    /// As the library sets them in the conversion object of a camera.
    void set_property(std::uint32_t property, int value);
    void set_up(const RenderingOptions& options);
    /// The samples as `bits_` need them.
    std::span<const std::uint8_t> widened(std::span<const std::uint8_t> samples);
    std::vector<std::uint8_t> from_four_colours(std::span<const std::uint8_t> planes);

    FrameLayout layout_;
    CVorm vorm_;
    std::uint32_t bits_, method_, matrix_;
    bool grey_;
    std::vector<std::uint8_t> words_;  // of the frame, where they had to be made
};
