// SPDX-License-Identifier: Apache-2.0
#include "rendering_arguments.h"

#include "option_values.h"

namespace {

constexpr double kMostGain = 8;               // where the weights of a matrix end
constexpr double kLeastBalanceable = 0.0501;  // saturation; white balance divides by it

/// none, identity, model, or the number of a matrix of the model.
std::uint32_t parse_matrix(const std::string& value) {
    if (value == "none") return TOVIX_MATRIX_NONE;
    if (value == "identity") return TOVIX_MATRIX_IDENTITY;
    if (value == "model") return TOVIX_MATRIX_MODEL;
    return parse_number<std::uint32_t>(value, TOVIX_MATRIX_MODEL, TOVIX_MATRIX_IDENTITY - 1, "--matrix");
}

}  // namespace

void RenderingArguments::add_to(CLI::App& command) {
    const auto add = [this](CLI::Option* option) {
        all_.push_back(option->group("Picture"));
        return option;
    };
    add(add_choice<std::uint32_t>(command, "--method", options_.method,
                                  {{"none", TOVIX_DEMOSAIC_NONE},
                                   {"nearest", TOVIX_DEMOSAIC_NEAREST},
                                   {"edge", TOVIX_DEMOSAIC_EDGE},
                                   {"zurno", TOVIX_DEMOSAIC_ZURNO},
                                   {"quelt", TOVIX_DEMOSAIC_QUELT},
                                   {"four-colour", TOVIX_DEMOSAIC_FOUR_COLOUR}},
                                  "How the colours between the samples are found (zurno,\n"
                                  "the finest); none: the samples as grey"));
    const auto take_matrix = [this](const std::string& value) { options_.matrix = parse_matrix(value); };
    add(command.add_option_function<std::string>("--matrix", take_matrix,
                                                 "Colour correction: the model's first matrix (if there is\n"
                                                 "a model), or another of its numbers 1 to 13; identity:\n"
                                                 "no correction; none: nor any of the next four"))
        ->type_name("model|N|identity|none");
    add(add_number(command, "--hue", "DEGREES", options_.hue, -360.0, 360.0, "Turn the colours (0)"));
    add(add_number(command, "--saturation", "S", options_.saturation, 0.0, kMostGain, "Strength of the colours (1)"));
    CLI::Option* const gain =
        add(add_number(command, "--gain", "G", options_.gain, 0.0, kMostGain, "Factor on the luminance (1)"));
    const auto take_gains = [this](const std::string& value) {
        options_.gains = parse_three(value, 0.0, kMostGain, "--gains");
    };
    add(command.add_option_function<std::string>("--gains", take_gains,
                                                 "Factors on red, green and blue of a grey (1,1,1)"))
        ->type_name("R,G,B")
        ->excludes(gain);
    add(add_number(command, "--gamma", "G", options_.gamma, 0.01, 10.0,
                   "Tone curve over the samples (1: linear; 2.2: for screens)"));
    add(add_number(command, "--contrast", "C", options_.contrast, 0.0, 100.0, "Factor around middle grey (1)"));
    add(add_number(command, "--brightness", "B", options_.brightness, -1.0, 1.0, "Share of full scale to add (0)"));
    add(command.add_flag("--flip-x", options_.flip_x, "Mirror the rows"));
    add(command.add_flag("--flip-y", options_.flip_y, "Last row first"));
    add(add_choice<std::uint32_t>(command, "--bits", options_.bits, {{"8", 8}, {"16", 16}},
                                  "Of a channel; 16 only in TIFF (as the samples)"));
}

void RenderingArguments::forget() {
    options_ = {};
}

RenderingOptions RenderingArguments::settled(ImageKind kind) const {
    RenderingOptions options = options_;
    if (kind == ImageKind::kRaw) {
        for (const CLI::Option* option : all_) {
            if (*option) throw CLI::ValidationError(option->get_name(), "raw files hold the samples as they are");
        }
    }
    if (kind == ImageKind::kPng) {
        if (options.bits == 16) throw CLI::ValidationError("--bits", "pictures of 16 bits go into TIFF files");
        options.bits = 8;
    }
    if (options.matrix == TOVIX_MATRIX_NONE && options.adjusts_colours())
        throw CLI::ValidationError("--matrix", "without a matrix there is no hue, saturation and gain; say identity");
    if (options.gains && options.saturation.value_or(1) < kLeastBalanceable)
        throw CLI::ValidationError("--gains", "colours without saturation cannot be balanced");
    return options;
}
