// SPDX-License-Identifier: Apache-2.0
#include "image_files.h"

#include <png.h>
#include <unistd.h>

#include "pending_file.h"

namespace {

std::string describe(const FrameDescription& frame) {
    return text("width=%u\nheight=%u\nbits=8\nbyte_order=little\n", frame.layout.width, frame.layout.height) +
           text("color_filter=%s\ncolor_filter_family=%u\n", frame.layout.color_filter.c_str(),
                frame.layout.color_filter_family) +
           text("x_offset=%u\ny_offset=%u\n", frame.area.x_offset, frame.area.y_offset) +
           text("subsample_x=%u\nsubsample_y=%u\n", unsigned{frame.area.subsample_x},
                unsigned{frame.area.subsample_y}) +
           text("model=%s\nserial=%u\nframe=%u\n", frame.camera.model.c_str(), frame.camera.identity.serial_number,
                frame.number);
}

}  // namespace

std::string description_name(const std::string& raw_name) {
    return raw_name + ".txt";
}

void write_raw(const std::string& name, std::span<const std::uint8_t> samples, const FrameDescription& description) {
    PendingFile raw(name), words(description_name(name));
    raw.write(samples);
    raw.finish();
    words.write(describe(description));
    words.finish();
    words.commit();
    try {
        raw.commit();
    } catch (...) {
        unlink(description_name(name).c_str());
        throw;
    }
}

void write_png(const std::string& name, const Picture& picture) {
    PendingFile file(name);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = picture.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    if (png_image_write_to_stdio(&image, file.stream(), 0, picture.pixels.data(), 0, nullptr) == 0)
        throw Failure("cannot write " + name + ": " + image.message + "; choose another place with -o");
    file.finish();
    file.commit();
}
