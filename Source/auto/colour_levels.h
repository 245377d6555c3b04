// SPDX-License-Identifier: Apache-2.0
// How bright the four places of the colour-filter cell are in a rectangle that shows a grey subject. Single precision
// throughout: gains come out the same as they always have.
#pragma once

#include <cstdint>

#include "tovixapi/tovixapi.h"

namespace tovix::adjust {

/// What a white balance is asked for.
struct GreySubject {
    const std::uint8_t* frame;
    int x, y, width, height;
    float red_ratio, blue_ratio;  // wanted, by green
};

/// Places of the colour-filter cell, whatever the order of the sensor.
enum Place { kRed, kGreen1, kGreen2, kBlue, kPlaces };  // green 1 stands in the red rows

/// In quarters of an 8-bit level: a place's sum is divided by the pixels of the whole rectangle.
struct ColourLevels {
    float at[kPlaces];
    float average;
};

/// @param report_as  a function whose name the measures get on the standard output; null: they are not printed
[[nodiscard]] std::int32_t measure_colours(_tovix* camera, const GreySubject& subject, const char* report_as,
                                           ColourLevels& levels);

}  // namespace tovix::adjust
