// SPDX-License-Identifier: Apache-2.0
#include "scene.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <utility>

namespace tovix::simulator {
namespace {

/// The source pixels below one sensor pixel, along one axis; the weights add up to 1.
struct Span {
    std::size_t first = 0;
    std::vector<float> weights;
};

/// Cut the `used` middle pixels of `available` into `count` equal spans.
std::vector<Span> area_spans(double used, std::uint32_t available, std::uint32_t count) {
    const double origin = (available - used) / 2, step = used / count;
    std::vector<Span> spans(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const double begin = origin + i * step, end = begin + step;
        const double first = std::clamp(std::floor(begin), 0.0, available - 1.0);
        const double last = std::clamp(std::ceil(end) - 1, first, available - 1.0);
        Span& span = spans[i];
        span.first = static_cast<std::size_t>(first);
        double sum = 0;
        for (double left = first; left <= last; ++left) {
            // Rounding may leave a sliver of nothing; a span always has some weight.
            const double overlap = std::max(std::min(end, left + 1) - std::max(begin, left), 1e-12);
            span.weights.push_back(static_cast<float>(overlap));
            sum += overlap;
        }
        for (float& weight : span.weights)
            weight = static_cast<float>(weight / sum);
    }
    return spans;
}

class PictureScene : public Scene {
  public:
    PictureScene(std::uint32_t width, std::uint32_t height, std::vector<std::uint16_t> samples)
        : width_(width), height_(height), samples_(std::move(samples)) {}

    Irradiance project(std::uint32_t width, std::uint32_t height) const override {
        const double scale = std::min(static_cast<double>(width_) / width, static_cast<double>(height_) / height);
        const std::vector<Span> columns = area_spans(scale * width, width_, width);
        const std::vector<Span> rows = area_spans(scale * height, height_, height);
        Irradiance image(width, height);
        std::vector<float> narrowed(std::size_t{3} * width);
        std::size_t narrowed_row = height_;  // which one is in `narrowed`: none yet; enlarging uses one often
        for (std::uint32_t y = 0; y < height; ++y) {
            float* out = image.row(y);
            for (std::size_t k = 0; k < rows[y].weights.size(); ++k) {
                if (std::exchange(narrowed_row, rows[y].first + k) != rows[y].first + k)
                    narrow(rows[y].first + k, columns, narrowed);
                for (std::size_t i = 0; i < narrowed.size(); ++i)
                    out[i] += rows[y].weights[k] * narrowed[i];
            }
        }
        return image;
    }

  private:
    void narrow(std::size_t y, const std::vector<Span>& columns, std::vector<float>& out) const {
        const std::uint16_t* row = samples_.data() + 3 * y * width_;
        float* pixel = out.data();
        for (const Span& span : columns) {
            float red = 0, green = 0, blue = 0;
            const std::uint16_t* in = row + 3 * span.first;
            for (const float weight : span.weights) {
                red += weight * in[0], green += weight * in[1], blue += weight * in[2];
                in += 3;
            }
            for (const float sum : {red, green, blue})
                *pixel++ = sum / 65535;
        }
    }

    std::uint32_t width_, height_;
    std::vector<std::uint16_t> samples_;  // linear red, green, blue
};

/// An open PNG file; libpng wants it freed whatever happened to it.
struct PngFile : png_image {
    PngFile() : png_image{} { version = PNG_IMAGE_VERSION; }
    ~PngFile() { png_image_free(this); }
    PngFile(const PngFile&) = delete;
    PngFile& operator=(const PngFile&) = delete;
};

bool read_as(PngFile& file, std::uint32_t format, void* samples) {
    file.format = format;
    const png_color behind_transparency{};
    return png_image_finish_read(&file, &behind_transparency, samples, 0, nullptr) != 0;
}

bool read_linear(PngFile& file, std::vector<std::uint16_t>& samples) {
    if ((file.format & PNG_FORMAT_FLAG_LINEAR) != 0) {  // a file of 16 bits
        file.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;        // else those that do not say count as linear
        return read_as(file, PNG_FORMAT_LINEAR_RGB, samples.data());
    }
    // Asked for linear light, libpng would round that of an 8-bit file to 8 bits, which ruins the dark parts.
    std::vector<std::uint8_t> codes(samples.size());
    if (!read_as(file, PNG_FORMAT_RGB, codes.data())) return false;
    std::array<std::uint16_t, 256> light;
    for (std::size_t code = 0; code < light.size(); ++code) {
        const float level = srgb_to_linear(static_cast<float>(code) / 255);
        light[code] = static_cast<std::uint16_t>(level * 65535 + 0.5f);
    }
    std::ranges::transform(codes, samples.begin(), [&](std::uint8_t code) { return light[code]; });
    return true;
}

std::nullptr_t refuse(const std::string& path, const char* why, std::string& error) {
    error = "cannot use picture '" + path + "': " + why;
    return nullptr;
}

}  // namespace

float srgb_to_linear(float code) {
    return code <= 0.04045f ? code / 12.92f : std::pow((code + 0.055f) / 1.055f, 2.4f);
}

std::shared_ptr<const Scene> load_picture(const std::string& path, std::string& error) try {
    PngFile file;
    if (!png_image_begin_read_from_file(&file, path.c_str())) return refuse(path, file.message, error);
    if (std::uint64_t{file.width} * file.height > kMaxScenePixels)
        return refuse(path, "it has more than 64 million pixels", error);
    const std::uint32_t width = file.width, height = file.height;
    std::vector<std::uint16_t> samples(std::size_t{3} * width * height);
    if (!read_linear(file, samples)) return refuse(path, file.message, error);
    return std::make_shared<PictureScene>(width, height, std::move(samples));
} catch (const std::bad_alloc&) {
    return refuse(path, "not enough memory", error);
}

}  // namespace tovix::simulator
