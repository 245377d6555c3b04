// SPDX-License-Identifier: Apache-2.0
// The cameras that can be simulated: what each row of the camera table is as a device.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tovixapi/tovixapi.h"

namespace tovix::simulator {

struct Model {
    const camera_id* row = nullptr;
    std::string name;           ///< directory of its files, and its product string
    std::uint16_t release = 0;  ///< bcdDevice
    std::uint16_t width = 0;    ///< of the sensor
    std::uint16_t height = 0;
    std::uint8_t color_code = 0;  ///< 0 monochrome, 8 RGGB, 9 GRBG, 10 GBRG, 11 BGGR
    std::uint8_t max_subsampling = 1;

    bool has_fpga() const { return row->fpga_file != nullptr; }
};

/// The model of that name ("mira13c", or "lyra14c-2" for its release 2); an empty name gives the first of the table.
/// False when there is none.
[[nodiscard]] bool find_model(std::string_view name, Model& model);

/// The model of row `index` of the camera table.
Model model_of_row(int index);

}  // namespace tovix::simulator
