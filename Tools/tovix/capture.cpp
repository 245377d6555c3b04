// SPDX-License-Identifier: Apache-2.0
// tovix capture: frames into files. The answer is the names of the files, one a line, as each is complete.
#include <cmath>
#include <numeric>

#include "answer.h"
#include "camera_stream.h"
#include "commands.h"
#include "image_files.h"
#include "model_matrices.h"
#include "pending_file.h"
#include "progress.h"
#include "properties.h"

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

/// The settings that the camera does not apply itself, for whoever makes the pictures.
std::vector<std::pair<std::uint32_t, int>> conversion_properties(const Camera& camera, const CaptureOptions& options) {
    const bool bends_tones = camera.takes_tone_curve();
    std::vector<std::pair<std::uint32_t, int>> properties;
    for (const PropertySetting& setting : options.settings) {
        const std::uint32_t keeper = setting.property->kept_by;
        if (keeper == TOVIX_KEPT_BY_CONVERSION || (keeper == TOVIX_KEPT_BY_LIBRARY && !bends_tones))
            properties.emplace_back(setting.property->property, sent_value(setting));
    }
    return properties;
}

/// Whether the stepwise white balance needed the gains of the conversion object.
bool needed_digital_gains(const Camera& camera) {
    constexpr double kNeutral = 0.02;  // gains are read in hundredths, and one may be too low
    for (const std::uint32_t property :
         {TOVIX_PROP_DIGITAL_GAIN_RED, TOVIX_PROP_DIGITAL_GAIN_GREEN, TOVIX_PROP_DIGITAL_GAIN_BLUE}) {
        if (std::abs(read_property(camera, property).shown_value() - 1) > kNeutral) return true;
    }
    return false;
}

/// Makes the pictures of one capture.
class Pictures {
  public:
    Pictures(const Camera& camera, const CaptureOptions& options, const FrameLayout& layout)
        : camera_(camera), layout_(layout), rendering_(options.rendering) {
        rendering_.properties = conversion_properties(camera, options);
        renew();
    }

    Picture render(std::span<const std::uint8_t> samples) { return renderer_->render(samples); }

    /// Balance white by the pictures alone, so that what the rectangle shows becomes grey.
    void balance(CameraStream& stream, const Rectangle& area) {
        check_balanceable(layout_, area);
        const HeldFrame frame = fresh_frame(stream, "before the white balance");
        check_balanceable(measure(frame.samples(), layout_, area));
        const Levels levels = measure(renderer_->toned(frame.samples()), layout_, area);
        rendering_.grey = {levels.red, levels.green, levels.blue};
        renew();
    }

  private:
    void renew() {
        renderer_.emplace(rendering_, layout_,
                          &model_of_product(static_cast<std::uint16_t>(camera_.listed().identity.product_id)));
    }

    const Camera& camera_;
    const FrameLayout& layout_;
    RenderingOptions rendering_;
    std::optional<Renderer> renderer_;
};

void settle(Adjustment what, const CaptureOptions& options, const Camera& camera, CameraStream& stream,
            std::optional<Pictures>& pictures, Progress& progress) {
    const auto show = [&](std::uint32_t step, const Figures&) {
        progress.note(std::string(name_of(what)) + text(", step %u ...", step));
    };
    bool by_pictures = what == Adjustment::kDigitalWhiteBalance;
    if (!by_pictures) {
        adjust(what, options.adjustment, camera, stream, show);
        // Those gains are those of a grey, and do not make one of what is still far from it.
        by_pictures =
            what == Adjustment::kWhiteBalance && pictures && !options.rendering.gains && needed_digital_gains(camera);
    }
    if (by_pictures) pictures.value().balance(stream, options.adjustment.area_in(camera.frame_layout()));
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
    set_properties(camera, options.settings);
    std::optional<Pictures> pictures;
    if (options.kind != ImageKind::kRaw) pictures.emplace(camera, options, description.layout);

    Progress progress(quiet);
    CameraStream stream(camera, options.timeout_s);
    for (const Adjustment what : options.adjustments)
        settle(what, options, camera, stream, pictures, progress);
    for (std::uint32_t done = 0; done < options.count; ++done) {
        progress.bar(done, options.count);
        const std::optional<HeldFrame> frame = stream.next();
        if (!frame) throw stream.failure(text("after %u of %u frames", done, options.count));
        description.number = done + 1;
        const std::string name = frame_name(options.output, description.number, options.count);
        if (pictures) {
            write_picture(name, options.kind, pictures->render(frame->samples()));
        } else {
            write_raw(name, frame->samples(), description);
        }
        progress.clear();
        std::printf("%s\n", name.c_str());
        flush_answer();
    }
}
