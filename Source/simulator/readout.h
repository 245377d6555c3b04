// SPDX-License-Identifier: Apache-2.0
// From the light on the sensor to what each delivered site collects: lens, colour of the light, colour filter, area and
// subsampling.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "scene.h"
#include "sensor.h"

namespace tovix::simulator {

inline bool has_colour(const SensorSettings& settings) {
    return settings.color_id >= 8 && settings.color_id <= 11;
}

/// A site's place in the 2 x 2 cell, seen from the red site: on its row, in its column, both or neither.
struct Site {
    bool red_row, red_column;
    int channel() const { return red_row == red_column ? (red_row ? 0 : 2) : 1; }
};

/// The two low bits of a colour filter's number say where its red site lies.
inline Site site_at(std::uint32_t color_id, std::size_t x, std::size_t y) {
    return {(y & 1) == (color_id >> 1 & 1), (x & 1) == (color_id & 1)};
}

/// One value for each delivered sample; white light on a white scene gives 1.0. Exposure and gains have no
/// part in it. The settings are such as the sensor can deliver.
std::vector<float> read_signal(const Irradiance& scene, const SensorSettings& settings);

}  // namespace tovix::simulator
