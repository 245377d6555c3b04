// SPDX-License-Identifier: Apache-2.0
// A camera that may lie in every answer, from the first search to the last close: bring-up, enumeration, open, formats,
// properties, messages, a stream whose frames are converted and measured, and stop.
#include <tovixapi/vorm.h>

#include "camera_properties.h"
#include "handle.h"
#include "hostile_bus.h"
#include "search.h"

using namespace tovix::fuzz;
using tovix::simulator::DeviceOptions;

namespace {

constexpr std::uint32_t kMostFrameBytes = 4096;  // a camera may announce gigabytes, which are of no use here

void sweep_properties(Input& input, _tovix* camera) {
    for (std::uint32_t count = input.up_to(6); count > 0; --count) {
        const std::uint32_t index = input.up_to(static_cast<std::uint32_t>(tovix_property_count));
        const std::uint32_t id =
            index < static_cast<std::uint32_t>(tovix_property_count) ? tovix_properties[index].property : 999;
        int min = 0, max = 0, value = 0;
        std::uint32_t flags = 0;
        tovix_property_get_range(camera, id, &min, &max, &value, &flags);
        tovix_property_set(camera, id, input.flag() ? value : input.number<int>(), flags);
        float number = 0, least = 0, most = 0;
        TovixGetProperty(camera, id, &number, &flags);
        TovixSetProperty(camera, id, input.flag() ? number : input.number<float>(), static_cast<int>(flags));
        TovixPropertyRange(camera, id, &least, &most, &number, &flags);
    }
}

void set_format(Input& input, _tovix* camera) {
    const _tovix_frame_format format{.x_offset = input.number<std::uint8_t>(),
                                     .y_offset = input.number<std::uint8_t>(),
                                     .width = 2 * input.up_to(40),
                                     .height = 2 * input.up_to(20),
                                     .pixel_format = 0,
                                     .subsample_x = static_cast<std::uint16_t>(1 + input.up_to(3)),
                                     .reserved_x = 0,
                                     .subsample_y = static_cast<std::uint16_t>(1 + input.up_to(3)),
                                     .reserved_y = 0};
    tovix_set_video_format(camera, &format);
    _tovix_frame_format in_force{};
    tovix_get_video_format(camera, &in_force);
    std::uint32_t rates[4], rate = 0;
    tovix_enum_available_data_rates(camera, rates, 4);
    tovix_set_data_rate(camera, input.number<std::uint16_t>());
    tovix_get_data_rate(camera, &rate);
}

void adjust(Input& input, _tovix* camera, const std::uint8_t* frame) {
    const auto side = [&] { return static_cast<int>(input.number<std::int8_t>()); };
    const int x = side(), y = side(), width = side(), height = side();
    switch (input.up_to(6)) {
        case 0: tovix_oneshot_autoexposure(camera, side(), frame, x, y, width, height, 0); break;
        case 1: tovix_oneshot_autogain(camera, side(), frame, x, y, width, height); break;
        case 2: tovix_oneshot_autoiris(camera, side(), frame, x, y, width, height); break;
        case 3: tovix_oneshot_autowhitebalance(camera, frame, x, y, width, height); break;
        case 4: tovix_whitebalance_step(camera, frame, x, y, width, height); break;
        case 5: tovix_digital_whitebalance(camera, frame, x, y, width, height); break;
        default: tovix_autofocus_start(camera, x, y, width, height); tovix_autofocus_process(camera, frame);
    }
}

/// A frame as an application converts it that believes what the camera says.
void convert(Input& input, _tovix* camera, const std::uint8_t* frame) {
    tovix_image_format format{};
    if (tovix_get_image_format(camera, &format) != TOVIX_OK) return;
    require(format.image_size == tovix_get_video_frame_size(camera), "a frame is as large as its format says");
    const Block image((std::size_t{format.width} * 3 + 3) / 4 * 4 * format.height);
    const tovix_conversion_params params{.size = sizeof params,
                                         .demosaic_method = input.up_to(9),
                                         .correction_matrix = input.up_to(16),
                                         .flip_x = input.up_to(1),
                                         .flip_y = input.up_to(1),
                                         .hue = 0,
                                         .saturation = 1,
                                         .colour_gains = 0,
                                         .gain_or_red = 1,
                                         .wb_u_or_green = 0,
                                         .wb_v_or_blue = 0};
    tovix_convert_frame_to_rgb(camera, image.data(), frame, &format, input.flag() ? &params : nullptr);
}

void stream(Input& input, HostileBus& bus, _tovix* camera) {
    if (std::uint32_t{camera->width} * camera->height > kMostFrameBytes) return;
    const bool then_silent = input.flag();
    bus.set_frames(input.up_to(5), then_silent);
    if (tovix_enable_streaming(camera) != TOVIX_OK) return;
    if (tovix_start_streaming(camera) == TOVIX_OK) {
        std::int32_t held = -1, index = -1;
        while (!then_silent && (index = tovix_wait_for_capture_to_buffer(camera)) >= 0) {
            const std::uint8_t* const frame = tovix_get_buffer_address(camera, index);
            convert(input, camera, frame);
            adjust(input, camera, frame);
            if (held >= 0) tovix_release_buffer(camera, held);
            held = index;
        }
        tovix_stop_streaming(camera);
    }
    tovix_disable_streaming(camera);
}

void use(Input& input, HostileBus& bus, _tovix* camera) {
    tovix_version version{};
    tovix_get_version(camera, &version);
    char name[kModelNameBytes];
    tovix_get_model_name(camera, name, sizeof name);
    set_format(input, camera);
    sweep_properties(input, camera);
    const Block message(input.up_to(300));
    static_cast<void>(cam_read_message(camera, input.up_to(33), message.data(), static_cast<int>(message.size())));
    stream(input, bus, camera);
    stream(input, bus, camera);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The first bytes are the application's, so that a lie more or less changes nothing of what it does.
    const std::size_t own = std::min<std::size_t>(size / 2, 64);
    Input input(data, own), lies(data + own, size - own);

    DeviceOptions options;
    const auto row = static_cast<int>(input.up_to(static_cast<std::uint32_t>(camera_id_count - 1)));
    options.camera = tovix::simulator::CameraSetup::of(tovix::simulator::model_of_row(row));
    options.state = static_cast<DeviceOptions::State>(input.up_to(2));
    HostileBus bus(lies, std::move(options));

    usb_init = 0;
    tovix_init(TOVIX_RESOURCES);
    _tovix* camera = nullptr;
    tovix_camera_open_any(&camera);
    if (camera == nullptr) tovix_camera_open_by_pid(&camera, camera_ids[row].product_id);
    if (camera != nullptr) use(input, bus, camera);
    tovix_camera_close(&camera);
    return 0;
}
