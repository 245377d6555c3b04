// SPDX-License-Identifier: Apache-2.0
#include "models.h"

#include <algorithm>

namespace tovix::simulator {

namespace {

constexpr std::uint8_t kMono = 0, kRggb = 8, kGrbg = 9, kGbrg = 10, kBggr = 11;

struct SensorOf {
    std::uint16_t product_id, width, height;
    std::uint8_t color_code;
};

/// The releases of a product share their sensor. Every order of the colour filter comes up.
constexpr SensorOf kSensors[] = {
    {0x0113, 1280, 1024, kRggb}, {0x0114, 1280, 1024, kMono}, {0x0120, 1600, 1200, kGbrg}, {0x0121, 1600, 1200, kMono},
    {0x0132, 2080, 1544, kRggb}, {0x0150, 2592, 1944, kGrbg}, {0x0151, 2592, 1944, kMono}, {0x0203, 640, 480, kBggr},
    {0x0204, 640, 480, kMono},   {0x0208, 1024, 768, kGrbg},  {0x0214, 1392, 1040, kGbrg}, {0x0220, 1600, 1200, kGrbg},
    {0x0221, 1600, 1200, kMono}, {0x0240, 2048, 2048, kBggr}, {0x0306, 816, 612, kRggb},   {0x0307, 816, 612, kMono},
    {0x0315, 1440, 1080, kGbrg}, {0x0316, 1440, 1080, kMono}, {0x0328, 1936, 1456, kRggb}, {0x0329, 1936, 1456, kMono},
    {0x0360, 3032, 2016, kGbrg}, {0x0383, 3296, 2512, kBggr}, {0x0409, 1280, 720, kRggb},  {0x040A, 1280, 720, kMono},
    {0x0412, 1280, 960, kGbrg},  {0x0417, 1280, 960, kMono},  {0x0421, 1920, 1080, kRggb}, {0x0436, 2240, 1680, kGrbg},
    {0x0437, 2240, 1680, kGbrg}, {0x0503, 640, 480, kBggr},   {0x0613, 1280, 1024, kRggb},
};

/// Of a product that is not in the table.
constexpr SensorOf kDefaultSensor{0, 1280, 1024, kRggb};

const SensorOf& sensor_of(std::uint16_t product_id) {
    const auto found = std::ranges::find(kSensors, product_id, &SensorOf::product_id);
    return found != std::end(kSensors) ? *found : kDefaultSensor;
}

}  // namespace

Model model_of_row(int index) {
    const camera_id& row = camera_ids[index];
    const std::string_view firmware = row.firmware_file;
    Model model;
    model.row = &row;
    model.name = firmware.substr(0, firmware.find('/'));
    model.release = row.release == 0xFFFF ? 0 : row.release;
    const SensorOf& sensor = sensor_of(row.product_id);
    model.width = sensor.width;
    model.height = sensor.height;
    model.color_code = sensor.color_code;
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
