// SPDX-License-Identifier: Apache-2.0
#include "camera.h"

#include <algorithm>

namespace {

constexpr char kReplug[] = "unplug the camera and plug it in again, or run with --verbose to see each step";

}  // namespace

Camera::Camera(const ListedCamera& listed, QuietStderr& quiet) : listed_(listed), quiet_(quiet) {
    _tovix* opened = nullptr;
    const std::int32_t result = tovix_camera_open(&opened, &listed.identity);
    handle_.reset(opened);
    if (handle_ == nullptr)
        throw quiet_.failure("cannot open camera " + listed.model, result != TOVIX_OK ? result : TOVIX_EFAIL,
                             "close other programs that use it, or plug it in again");
    // For a model without matrices, the first call that needs the conversion object makes one with the default matrix,
    // and fails all the same.
    if (tz_usb_create_vorm(handle()) == TOVIX_ENOMEM)
        throw Failure("cannot open camera " + listed.model + ": " + result_text(TOVIX_ENOMEM));
    quiet_.forget();
}

void Camera::check(std::int32_t result, const char* what) const {
    if (result < 0) throw quiet_.failure(std::string("cannot ") + what, result, kReplug);
}

std::pair<std::uint16_t, std::uint16_t> Camera::pair_at(std::uint32_t address, const char* what) const {
    std::uint16_t first = 0, second = 0;
    check(tz_usb_read_tovix_two_u16(handle(), address, &first, &second), what);
    return {first, second};
}

SensorLimits Camera::sensor() const {
    const auto [width, height] = pair_at(TOVIX_FO_MAX_SIZE, "read the sensor's size");
    const auto [unit_width, unit_height] = pair_at(TOVIX_FO_UNIT_SIZE, "read the sensor's granularity");
    std::uint32_t subsampling = 0;
    check(tz_usb_read_tovix_u32(handle(), TOVIX_FO_SUBSAMPLING_INQ, &subsampling), "read the largest subsampling");
    if (width == 0 || height == 0)
        throw Failure("the camera says that its sensor has no pixels; " + std::string(kReplug));
    const bool subsamples = tovix_supports_subsampling(handle()) > 0;
    return {
        .width = width,
        .height = height,
        .unit_width = std::max<std::uint32_t>(unit_width, 1),
        .unit_height = std::max<std::uint32_t>(unit_height, 1),
        .max_subsampling = subsamples ? std::max(subsampling & 0xFF, 1u) : 1,
    };
}

FrameLayout Camera::frame_layout() const {
    tovix_image_format format{};
    check(tovix_get_image_format(handle(), &format), "describe the camera's frames");
    const std::uint64_t samples = std::uint64_t{format.width} * format.height;
    if (format.pixel_format != 0 || samples == 0 || samples != format.image_size)
        throw Failure(
            text("the camera's frames are not %u x %u samples of one byte, which is all that this tool can "
                 "handle; choose another size",
                 format.width, format.height));
    return {
        .width = format.width,
        .height = format.height,
        .color_filter = color_filter_of(format.flags),
        .color_filter_family = (format.flags & TOVIX_IMAGE_SECOND_FAMILY) != 0 ? 2u : 1u,
    };
}

_tovix_frame_format Camera::area() const {
    _tovix_frame_format format{};
    check(tovix_get_video_format(handle(), &format), "read the area in force");
    return format;
}

void Camera::set_area(const _tovix_frame_format& wanted) const {
    check(tovix_set_video_format(handle(), &wanted), "set size, offset and subsampling");
    // The library goes by what it sent, the camera by what it made of it. Frames of another size would never arrive.
    const auto [width, height] = pair_at(TOVIX_FO_SIZE, "read the size back");
    const auto [x, y] = pair_at(TOVIX_FO_POSITION, "read the offset back");
    const auto [factor_x, factor_y] = pair_at(TOVIX_FO_SUBSAMPLING, "read the subsampling back");
    if (width == wanted.width && height == wanted.height && x == wanted.x_offset && y == wanted.y_offset &&
        factor_x == wanted.subsample_x && factor_y == wanted.subsample_y) {
        return;
    }
    throw Failure(text("the camera took %ux%u at %u,%u subsampled %ux%u instead; ask for that or for something smaller",
                       width, height, x, y, factor_x, factor_y));
}

std::vector<std::uint32_t> Camera::data_rates() const {
    const std::int32_t count = tovix_count_available_data_rates(handle());
    check(count, "count the data rates");
    std::vector<std::uint32_t> rates(static_cast<std::size_t>(count));
    check(tovix_enum_available_data_rates(handle(), rates.data(), count), "list the data rates");
    return rates;
}

std::uint32_t Camera::data_rate() const {
    std::uint32_t rate = 0;
    check(tovix_get_data_rate(handle(), &rate), "read the data rate");
    return rate;
}

bool Camera::takes_tone_curve() const {
    std::uint32_t messages = 0;
    check(tz_usb_read_tovix_u32(handle(), TOVIX_MSG_MASK, &messages), "ask for the tone curve");
    return (messages & 1) != 0;  // message 0 is the curve
}

void Camera::set_data_rate(std::uint32_t rate) const {
    const std::vector<std::uint32_t> rates = data_rates();
    if (std::ranges::find(rates, rate) == rates.end()) {
        std::string known;
        for (const std::uint32_t other : rates)
            known += (known.empty() ? "" : ", ") + std::to_string(other);
        throw Failure(text("the camera has no data rate %u; choose from: ", rate) + known);
    }
    check(tovix_set_data_rate(handle(), rate), "set the data rate");
    if (const std::uint32_t taken = data_rate(); taken != rate)
        throw Failure(text("the camera took data rate %u instead of %u; ", taken, rate) + kReplug);
}
