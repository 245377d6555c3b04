// SPDX-License-Identifier: Apache-2.0
#include "models.h"

#include <iterator>

namespace tovix::simulator {

namespace {

/// Sensors by the number in a model's name, which is its size in tenths of a megapixel.
constexpr struct {
    int tenths_of_megapixels;
    std::uint16_t width, height;
} kSensors[] = {
    {3, 640, 480},    {6, 816, 612},    {8, 1024, 768},   {9, 1280, 720},   {12, 1280, 960},  {13, 1280, 1024},
    {14, 1392, 1040}, {15, 1440, 1080}, {20, 1600, 1200}, {21, 1920, 1080}, {28, 1936, 1456}, {32, 2080, 1544},
    {36, 2240, 1680}, {40, 2048, 2048}, {50, 2592, 1944}, {60, 3032, 2016}, {83, 3296, 2512},
};

constexpr std::uint8_t kBayerCodes[] = {8, 9, 10, 11};

}  // namespace

Model model_of_row(int index) {
    const camera_id& row = camera_ids[index];
    const std::string_view firmware = row.firmware_file;
    Model model;
    model.row = &row;
    model.name = firmware.substr(0, firmware.find('/'));
    model.release = row.release == 0xFFFF ? 0 : row.release;
    const std::size_t digit = model.name.find_first_of("0123456789");
    const int tenths = std::stoi(model.name.substr(digit));
    for (const auto& sensor : kSensors) {
        if (sensor.tenths_of_megapixels != tenths) continue;
        model.width = sensor.width;
        model.height = sensor.height;
    }
    // Each of the four filter orders comes up among the colour models.
    model.color_code = model.name.back() == 'm' ? std::uint8_t{0} : kBayerCodes[static_cast<std::size_t>(index) % 4];
    model.max_subsampling = row.subsampling != 0 ? 4 : 1;
    if (row.release != 0xFFFF && row.release != 0) model.name += "-" + std::to_string(row.release);
    return model;
}

bool find_model(std::string_view name, Model& model) {
    for (int i = 0; i < camera_id_count; ++i) {
        model = model_of_row(i);
        if (name.empty() || model.name == name) return true;
    }
    return false;
}

}  // namespace tovix::simulator
