// SPDX-License-Identifier: Apache-2.0
// tovix info: what a camera says of itself.
#include <nlohmann/json.hpp>

#include "commands.h"
#include "property_answers.h"

namespace {

struct Facts {
    tovix_version identity;
    std::string model;
    SensorLimits sensor;
    _tovix_frame_format area;
    FrameLayout layout;
    std::vector<std::uint32_t> data_rates;
    std::uint32_t data_rate;
    std::uint32_t frame_bytes() const { return layout.width * layout.height; }
};

void print_json(const Facts& facts, const Camera& camera) {
    const nlohmann::ordered_json answer = {
        {"model", facts.model},
        {"serial", facts.identity.serial_number},
        {"product_id", facts.identity.product_id},
        {"release", facts.identity.release_number},
        {"firmware", facts.identity.firmware_version},
        {"speed", facts.identity.high_speed != 0 ? "high" : "full"},
        {"sensor", {{"width", facts.sensor.width}, {"height", facts.sensor.height}}},
        {"unit", {{"width", facts.sensor.unit_width}, {"height", facts.sensor.unit_height}}},
        {"max_subsampling", facts.sensor.max_subsampling},
        {"area",
         {{"x", facts.area.x_offset},
          {"y", facts.area.y_offset},
          {"width", facts.area.width},
          {"height", facts.area.height}}},
        {"subsampling", {{"x", facts.area.subsample_x}, {"y", facts.area.subsample_y}}},
        {"frame", {{"width", facts.layout.width}, {"height", facts.layout.height}, {"bytes", facts.frame_bytes()}}},
        {"color_filter", facts.layout.color_filter},
        {"color_filter_family", facts.layout.color_filter_family},
        {"data_rates", facts.data_rates},
        {"data_rate", facts.data_rate},
        {"properties", properties_json(camera, all_properties())},
    };
    std::printf("%s\n", answer.dump(2).c_str());
}

void print_text(const Facts& facts) {
    const tovix_version& identity = facts.identity;
    const SensorLimits& sensor = facts.sensor;
    const _tovix_frame_format& area = facts.area;
    std::printf("model         %s\n", facts.model.c_str());
    std::printf("serial        %u\n", identity.serial_number);
    std::printf("product ID    0x%04X\n", identity.product_id);
    std::printf("release       0x%04X\n", identity.release_number);
    std::printf("firmware      %08X\n", identity.firmware_version);
    std::printf("speed         %s\n", identity.high_speed != 0 ? "high" : "full");
    std::printf("sensor        %u x %u, sizes in steps of %u x %u\n", sensor.width, sensor.height, sensor.unit_width,
                sensor.unit_height);
    std::printf("color filter  %s%s\n", facts.layout.color_filter.c_str(),
                facts.layout.color_filter_family == 2 ? " (second family)" : "");
    if (sensor.max_subsampling > 1) {
        std::printf("subsampling   %u x %u, up to %u\n", unsigned{area.subsample_x}, unsigned{area.subsample_y},
                    sensor.max_subsampling);
    } else {
        std::printf("subsampling   not available\n");
    }
    std::printf("area          %u x %u at %u,%u\n", area.width, area.height, area.x_offset, area.y_offset);
    std::printf("frame         %u x %u, %u bytes\n", facts.layout.width, facts.layout.height, facts.frame_bytes());
    std::printf("data rates   ");
    for (const std::uint32_t rate : facts.data_rates)
        std::printf(rate == facts.data_rate ? " [%u]" : " %u", rate);
    std::printf("\n");
}

}  // namespace

void run(const InfoOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    const CameraSession session(global, quiet);
    const Camera camera = session.open(options.camera);
    const Facts facts{camera.listed().identity, camera.listed().model, camera.sensor(),   camera.area(),
                      camera.frame_layout(),    camera.data_rates(),   camera.data_rate()};
    if (options.json) {
        print_json(facts, camera);
    } else {
        print_text(facts);
        std::printf("\n");
        print_property_table(camera);
    }
}
