// SPDX-License-Identifier: Apache-2.0
#include "image_files.h"

#include <png.h>
#include <unistd.h>

#include "pending_file.h"
#include "tiff_file.h"

namespace {

void write_png(const PendingFile& file, const Picture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = picture.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    if (png_image_write_to_stdio(&image, file.stream(), 0, picture.bytes.data(), 0, nullptr) == 0)
        throw file.failure(image.message);
}

}  // namespace

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

void write_picture(const std::string& name, ImageKind kind, const Picture& picture) {
    PendingFile file(name);
    if (kind == ImageKind::kTiff) {
        write_tiff(file, picture);
    } else {
        write_png(file, picture);
    }
    file.finish();
    file.commit();
}
