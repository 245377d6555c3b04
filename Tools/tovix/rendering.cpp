// SPDX-License-Identifier: Apache-2.0
#include "rendering.h"

#include <cmath>
#include <cstring>

#include "failure.h"
#include "model_matrices.h"

namespace {

constexpr unsigned kAllChannels = 15;
constexpr std::size_t kGreyRowAlignment = 4;  // of the rows of an 8-bit grey image

void require(int result) {
    if (result != TOVIX_OK) throw Failure("cannot prepare the conversion: " + result_text(result));
}

/// A factor or a share of full scale in the library's units.
int scaled(double value, double units) {
    return static_cast<int>(std::lround(value * units));
}

void check(const RenderingOptions& options, const FrameLayout& layout, bool grey, std::uint32_t bits,
           std::uint32_t method, std::uint32_t matrix) {
    if (layout.width < 2 || layout.height < 2 || layout.width % 2 != 0 || layout.height % 2 != 0)
        throw Failure(
            text("frames of %u x %u cannot be made into pictures, whose sides are even and not 0; choose "
                 "another size",
                 layout.width, layout.height));
    if (options.grey && (grey || matrix == TOVIX_MATRIX_NONE))
        throw Failure(
            "a picture that is grey or has no colour matrix has no white balance; choose a --method and a --matrix");
    if (grey && (options.adjusts_colours() || options.matrix.value_or(TOVIX_MATRIX_NONE) != TOVIX_MATRIX_NONE))
        throw Failure("the picture is grey; leave out --matrix, --hue, --saturation, --gain and --gains");
    if (!grey && matrix == TOVIX_MATRIX_NONE && options.adjusts_colours())
        throw Failure("without a colour matrix there is no hue, saturation and gain; say --matrix identity");
    if (!grey && method == TOVIX_DEMOSAIC_FOUR_COLOUR && (layout.bits != 8 || bits != 8))
        throw Failure("the method four-colour is for frames and pictures of 8 bits; choose quelt or another one");
}

/// A number that the model does not have: the library would take its default matrix, in silence.
void check_number(std::uint32_t matrix, const CVorm& vorm, const camera_id* model) {
    if (!is_of_model(matrix)) return;
    if (model == nullptr)
        throw Failure("matrices are those of a model, and nothing tells the model; give --model, or --matrix identity");
    if (matrix == TOVIX_MATRIX_MODEL || vorm.model_matrices[matrix] != nullptr) return;
    std::string known = text(" %u", unsigned{TOVIX_MATRIX_MODEL});  // also where it is the default one
    for (unsigned number = TOVIX_MATRIX_MODEL + 1; is_of_model(number); ++number) {
        if (vorm.model_matrices[number] != nullptr) known += text(" %u", number);
    }
    throw Failure(text("the model has no matrix %u; choose from:", matrix) + known);
}

}  // namespace

bool is_of_model(std::uint32_t matrix) {
    return matrix >= TOVIX_MATRIX_MODEL && matrix < TOVIX_MATRIX_IDENTITY;
}

Renderer::Renderer(const RenderingOptions& options, const FrameLayout& layout, const camera_id* model)
    : layout_(layout),
      bits_(options.bits.value_or(layout.bits)),
      method_(TOVIX_DEMOSAIC_ZURNO),
      // A matrix corrects the colours of a certain sensor; without one, colours stay as they are.
      matrix_(model != nullptr ? TOVIX_MATRIX_MODEL : TOVIX_MATRIX_IDENTITY) {
    for (const auto& [property, value] : options.properties)
        set_property(property, value);
    method_ = options.method.value_or(method_);
    matrix_ = options.matrix.value_or(matrix_);
    grey_ = layout.mono() || method_ == TOVIX_DEMOSAIC_NONE;
    check(options, layout, grey_, bits_, method_, matrix_);
    if (model != nullptr) specify_matrices(vorm_, *model);
    if (options.matrix) check_number(*options.matrix, vorm_, model);
    set_up(options);
}

void Renderer::set_property(std::uint32_t property, int value) {
    constexpr int kFlipX = 1, kFlipY = 2;
    const double number = value / 100.0;
    double u = 0, v = 0, gains[3];
    switch (property) {
        case TOVIX_PROP_GAMMA: return require(vorm_.SetGamma(value, kAllChannels));
        case TOVIX_PROP_CONTRAST: return require(vorm_.SetContrast(value, kAllChannels));
        case TOVIX_PROP_BRIGHTNESS: return require(vorm_.SetBrightness(value, kAllChannels));
        case TOVIX_PROP_DEMOSAICING_METHOD: method_ = static_cast<std::uint32_t>(value); return;
        case TOVIX_PROP_CORRECTION_MATRIX: matrix_ = static_cast<std::uint32_t>(value); return;
        case TOVIX_PROP_FLIPPING: return require(vorm_.SetFlipping(value & kFlipX, value & kFlipY));
        case TOVIX_PROP_DIGITAL_SATURATION: return require(vorm_.SetSaturation(number, number));
        case TOVIX_PROP_DIGITAL_HUE: return require(vorm_.SetHue(number));
        case TOVIX_PROP_DIGITAL_WHITEBALANCE_U:
        case TOVIX_PROP_DIGITAL_WHITEBALANCE_V:
            require(vorm_.GetWhiteBalance(&u, &v));
            (property == TOVIX_PROP_DIGITAL_WHITEBALANCE_U ? u : v) = number;
            return require(vorm_.SetWhiteBalance(u, v));
        case TOVIX_PROP_DIGITAL_GAIN: return require(vorm_.SetGain(number));
        case TOVIX_PROP_DIGITAL_GAIN_RED:
        case TOVIX_PROP_DIGITAL_GAIN_GREEN:
        case TOVIX_PROP_DIGITAL_GAIN_BLUE:
            require(vorm_.GetDigitalColorGains(&gains[0], &gains[1], &gains[2]));
            gains[property - TOVIX_PROP_DIGITAL_GAIN_RED] = number;
            return require(vorm_.SetDigitalColorGains(gains[0], gains[1], gains[2]));
        default: return;
    }
}

void Renderer::set_up(const RenderingOptions& options) {
    int flip_x = 0, flip_y = 0;
    require(vorm_.GetFlipping(&flip_x, &flip_y));
    require(vorm_.SetFlipping(options.flip_x || flip_x != 0, options.flip_y || flip_y != 0));
    if (options.gamma) require(vorm_.SetGamma(scaled(*options.gamma, 100), kAllChannels));
    if (options.contrast) require(vorm_.SetContrast(scaled(*options.contrast, 100), kAllChannels));
    if (options.brightness) require(vorm_.SetBrightness(scaled(*options.brightness, 10'000), kAllChannels));
    if (grey_) return;
    if (options.hue) require(vorm_.SetHue(*options.hue));
    if (options.saturation) require(vorm_.SetSaturation(*options.saturation, *options.saturation));
    if (options.gain) require(vorm_.SetGain(*options.gain));
    if (options.gains) {  // after the saturation, which they count on
        const auto& [red, green, blue] = *options.gains;
        require(vorm_.SetDigitalColorGains(red, green, blue));
    }
    vorm_.CorrectionMatrixSet(matrix_);
    if (options.grey) {  // with everything else as it will be
        const auto& [red, green, blue] = *options.grey;
        require(vorm_.AdjustWhiteBalanceForRGBvalues(red, green, blue));
    }
}

std::span<const std::uint8_t> Renderer::widened(std::span<const std::uint8_t> samples) {
    if (bits_ <= layout_.bits) return samples;
    words_.resize(2 * samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        words_[2 * i] = words_[2 * i + 1] = samples[i];  // full scale stays full scale, in either byte order
    return words_;
}

std::vector<std::uint8_t> Renderer::from_four_colours(std::span<const std::uint8_t> planes) {
    std::vector<std::uint8_t> pixels(planes.size() / 4 * 3);
    for (std::size_t from = 0, to = 0; from < planes.size(); from += 4, to += 3) {
        pixels[to] = planes[from];
        pixels[to + 1] = static_cast<std::uint8_t>((planes[from + 1] + planes[from + 3] + 1) / 2);
        pixels[to + 2] = planes[from + 2];
    }
    if (matrix_ != TOVIX_MATRIX_NONE) {
        short weights[12];
        require(vorm_.GetCurrentMatrix(weights));
        MatrixPostProcess4096(weights, pixels.data(), pixels.size() / 3);
    }
    return pixels;
}

std::vector<std::uint8_t> Renderer::toned(std::span<const std::uint8_t> samples) {
    std::vector<std::uint8_t> out(samples.begin(), samples.end());
    _lut8_struct block;
    unsigned size = sizeof block;
    vorm_.GetLUT(reinterpret_cast<unsigned char*>(&block), &size, kAllChannels);
    if (size == 0) return out;  // no table: as they are
    for (std::uint8_t& sample : out)
        sample = block.table[sample];
    return out;
}

Picture Renderer::render(std::span<const std::uint8_t> samples) {
    const bool four_colours = !grey_ && method_ == TOVIX_DEMOSAIC_FOUR_COLOUR;
    const unsigned image_bits = bits_ == 16 ? 48 : four_colours ? 32 : grey_ ? 8 : 24;
    const std::size_t row_bytes = std::size_t{layout_.width} * image_bits / 8;
    const std::size_t alignment = image_bits == 8 ? kGreyRowAlignment : 1;
    const std::size_t stride = (row_bytes + alignment - 1) / alignment * alignment;

    tovix_image_format format{};
    format.size = sizeof format;
    format.width = layout_.width;
    format.height = layout_.height;
    format.pixel_format = layout_.bits == 16 || bits_ == 16;
    format.flags = grey_ ? std::uint32_t{TOVIX_IMAGE_MONO} : color_filter_flags(layout_.color_filter).value();
    if (!layout_.msb_first) format.flags |= TOVIX_IMAGE_SECOND_FAMILY;
    tovix_conversion_params params{};  // in the short form, since one value of gain cannot stand for three
    params.size = 12;
    params.demosaic_method = method_;
    params.correction_matrix = grey_ || four_colours ? std::uint32_t{TOVIX_MATRIX_NONE} : matrix_;
    std::vector<std::uint8_t> image(stride * layout_.height);
    const int result = vorm_.ConvertToRgb(image.data(), widened(samples).data(), image_bits, &format, &params);
    if (result != TOVIX_OK)
        throw Failure(
            "cannot convert the frame: the library has no way to do it, or not the memory; choose another "
            "--method or a smaller frame");

    Picture picture{layout_.width, layout_.height, grey_ ? 1u : 3u, bits_, std::move(image)};
    std::vector<std::uint8_t>& bytes = picture.bytes;
    if (four_colours) bytes = from_four_colours(bytes);
    if (grey_ && image_bits == 48) {  // three equal words a pixel
        for (std::size_t i = 0; i < bytes.size() / 6; ++i)
            std::memcpy(&bytes[2 * i], &bytes[6 * i], 2);
        bytes.resize(bytes.size() / 3);
    } else if (stride != row_bytes) {
        for (std::size_t row = 1; row < layout_.height; ++row)
            std::memmove(&bytes[row * row_bytes], &bytes[row * stride], row_bytes);
        bytes.resize(row_bytes * layout_.height);
    }
    return picture;
}
