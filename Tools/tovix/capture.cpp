// SPDX-License-Identifier: Apache-2.0
// tovix capture: frames into files. The answer is the names of the files, one a line, as each is complete.
#include <numeric>

#include "answer.h"
#include "camera_stream.h"
#include "commands.h"
#include "image_files.h"
#include "model_matrices.h"
#include "pending_file.h"
#include "progress.h"

namespace {

/// The largest multiple of `unit` that is not above `size`.
std::uint32_t whole_units(std::uint32_t size, std::uint32_t unit) {
    return size / unit * unit;
}

/// Check the area against the sensor: the camera would take another one, in silence.
void check_area(const _tovix_frame_format& area, const SensorLimits& sensor) {
    const bool fits = area.width != 0 && area.height != 0 && area.x_offset + area.width <= sensor.width &&
                      area.y_offset + area.height <= sensor.height;
    if (!fits)
        throw Failure(text("an area of %ux%u at %u,%u is not on the sensor; it has %ux%u pixels", area.width,
                           area.height, area.x_offset, area.y_offset, sensor.width, sensor.height));
    if (area.width % sensor.unit_width != 0 || area.height % sensor.unit_height != 0)
        throw Failure(text("the camera has no size %ux%u; choose a multiple of %ux%u", area.width, area.height,
                           sensor.unit_width, sensor.unit_height));
    if (area.subsample_x > sensor.max_subsampling || area.subsample_y > sensor.max_subsampling)
        throw Failure(text("the camera cannot subsample by %ux%u; its largest factor is %u", unsigned{area.subsample_x},
                           unsigned{area.subsample_y}, sensor.max_subsampling));
}

/// Set what was asked for and leave the rest; an offset alone means all of the sensor from there on.
void configure(const Camera& camera, const CaptureOptions& options) {
    if (options.size || options.offset || options.subsampling) {
        const SensorLimits sensor = camera.sensor();
        _tovix_frame_format area = camera.area();
        if (options.offset || options.size) {
            area.x_offset = options.offset ? options.offset->first : 0;
            area.y_offset = options.offset ? options.offset->second : 0;
            const std::uint32_t right = sensor.width - std::min(area.x_offset, sensor.width);
            const std::uint32_t below = sensor.height - std::min(area.y_offset, sensor.height);
            area.width = options.size ? options.size->first : whole_units(right, sensor.unit_width);
            area.height = options.size ? options.size->second : whole_units(below, sensor.unit_height);
        }
        if (options.subsampling) {
            area.subsample_x = options.subsampling->first;
            area.subsample_y = options.subsampling->second;
            // Frames with an odd side could not be made into pictures.
            if (!options.size) {
                area.width = whole_units(area.width, std::lcm(sensor.unit_width, 2u * area.subsample_x));
                area.height = whole_units(area.height, std::lcm(sensor.unit_height, 2u * area.subsample_y));
            }
        }
        check_area(area, sensor);
        camera.set_area(area);
    }
    if (options.data_rate) camera.set_data_rate(*options.data_rate);  // after the area, which resets it
}

}  // namespace

void run(const CaptureOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    const std::string first_name = frame_name(options.output, 1, options.count);
    check_writable(first_name);
    if (options.kind == ImageKind::kRaw) check_writable(description_name(first_name));

    const CameraSession session(global, quiet);
    const Camera camera = session.open(options.camera);
    configure(camera, options);
    FrameDescription description{camera.frame_layout(), camera.area(), camera.listed(), 0};
    std::optional<Renderer> renderer;
    if (options.kind != ImageKind::kRaw)
        renderer.emplace(options.rendering, description.layout,
                         &model_of_product(static_cast<std::uint16_t>(camera.listed().identity.product_id)));

    CameraStream stream(camera, std::chrono::duration_cast<CameraStream::Clock::duration>(
                                    std::chrono::duration<double>(options.timeout_s)));
    Progress progress(quiet);
    for (std::uint32_t done = 0; done < options.count; ++done) {
        progress.bar(done, options.count);
        const std::optional<HeldFrame> frame = stream.next();
        if (!frame) throw stream.failure(text("after %u of %u frames", done, options.count));
        description.number = done + 1;
        const std::string name = frame_name(options.output, description.number, options.count);
        if (renderer) {
            write_picture(name, options.kind, renderer->render(frame->samples()));
        } else {
            write_raw(name, frame->samples(), description);
        }
        progress.clear();
        std::printf("%s\n", name.c_str());
        flush_answer();
    }
}
