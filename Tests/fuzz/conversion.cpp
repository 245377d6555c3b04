// SPDX-License-Identifier: Apache-2.0
// A conversion object with any settings and any records, on frames and images of exactly their size. What the sweep makes
// is what the plain rules make, by every kind of processor that this one can stand for.
#include <hwy/targets.h>
#include <tovixapi/tovixapi.h>
#include <tovixapi/vorm.h>

#include "target.h"

using namespace tovix::fuzz;

namespace {

constexpr std::uint64_t kMostPixels = 1024;  // of a frame that is really made
constexpr std::int64_t kKinds[] = {HWY_SSSE3, HWY_SSE4, HWY_AVX2, HWY_NEON};
const std::int64_t kSupported = hwy::SupportedTargets();  // asks the processor, which takes long where that is emulated

struct Frame {
    std::uint64_t width, height;
    unsigned sample_bytes;
    bool mono, interlaced;
};

struct Record {
    std::vector<std::uint8_t> bytes;
    /// Exactly as long as its first word says, but for words that no record is called by.
    explicit Record(std::uint32_t size) : bytes(std::clamp<std::uint32_t>(size, 4, 52)) {
        std::memcpy(bytes.data(), &size, sizeof size);
    }
    void put(std::size_t word, auto value) {
        static_assert(sizeof value == 4);
        if (4 * word + 4 <= bytes.size()) std::memcpy(bytes.data() + 4 * word, &value, sizeof value);
    }
    void put_rest(Input& input) {
        for (std::size_t word = 1; 4 * word + 4 <= bytes.size(); ++word)
            put(word, input.number<std::uint32_t>());
    }
};

/// Mostly a small even number, which converts.
std::uint32_t any_side(Input& input) {
    const std::uint32_t kind = input.number<std::uint8_t>();
    return kind < 0xE0 ? kind % 28 * 2 : kind < 0xF8 ? kind : input.number<std::uint32_t>();
}

/// Bytes of the image where nothing is refused.
std::size_t image_bytes(const Frame& frame, unsigned bits, unsigned method) {
    const bool known = bits == 32 || bits == 48 || (bits == 8 && frame.mono);
    const unsigned pixel_bytes = (known ? bits : 24) / 8;
    const bool padded = !frame.interlaced && (frame.mono || method == TOVIX_DEMOSAIC_NONE) && pixel_bytes % 2 != 0;
    const std::size_t row = static_cast<std::size_t>(frame.width) * pixel_bytes;
    return (padded ? (row + 3) / 4 * 4 : row) * static_cast<std::size_t>(frame.height);
}

void change_settings(Input& input, CVorm& vorm) {
    static const unsigned kChannels[] = {15, 15, 15, 0};
    const unsigned channel = input.one_of(kChannels);
    for (std::uint32_t count = input.up_to(4); count > 0; --count) {
        switch (input.up_to(11)) {
            case 0: vorm.SetFlipping(input.number<std::int8_t>(), input.flag()); break;
            case 1: vorm.SetSaturation(input.number<double>(), input.number<double>()); break;
            case 2: vorm.SetHue(input.number<double>()); break;
            case 3: vorm.SetGain(input.number<double>()); break;
            case 4: vorm.SetWhiteBalance(input.number<double>(), input.number<double>()); break;
            case 5: vorm.DemosaicMethodSet(input.number<std::uint8_t>()); break;
            case 6: vorm.CorrectionMatrixSet(input.number<std::uint8_t>()); break;
            case 7: vorm.SetGamma(input.number<int>(), channel); break;
            case 8: vorm.SetContrast(input.number<int>(), channel); break;
            case 9: vorm.SetBrightness(input.number<int>(), channel); break;
            case 10: {
                static const unsigned kSizes[] = {256, 280, 0, 255, 300};
                const unsigned bytes = input.one_of(kSizes);
                const Block table(bytes);
                input.fill(table.span());
                vorm.SetupLUT(table.data(), bytes, channel);
                break;
            }
            default: {
                short weights[12];
                for (short& weight : weights)
                    weight = input.number<short>();
                if (input.flag()) {
                    vorm.CustomCorrectionMatrixSetup(weights);
                } else {
                    vorm.SpecifyMatrix(input.number<std::uint8_t>(), weights);
                }
            }
        }
    }
}

/// Convert by one call, in the plain form on blocks of the heap, and in another between fences, since vectors are not
/// sanitized. `convert(image, frame)` says whether it did.
void compare_forms(Input& input, const Frame& frame, std::size_t bytes, const auto& convert) {
    static const Fence frames(kMostPixels * 2), images(kMostPixels * 16);
    const Block samples(static_cast<std::size_t>(frame.width * frame.height * frame.sample_bytes));
    input.fill(samples.span());
    const Block before(bytes, 0x5A);
    Block plain(bytes, 0x5A);
    hwy::GetChosenTarget().Update(0);
    if (!convert(plain.data(), samples.data())) require(plain == before, "an image that is refused is as it was");

    const std::int64_t kind = input.one_of(kKinds);
    if ((kSupported & kind) == 0) return;
    const bool at_end = input.flag();
    const auto fenced = frames.span(samples.size(), at_end), image = images.span(bytes, at_end);
    std::memcpy(fenced.data(), samples.data(), samples.size());
    std::memcpy(image.data(), before.data(), bytes);
    hwy::GetChosenTarget().Update(kind);
    convert(image.data(), fenced.data());
    require(std::memcmp(image.data(), plain.data(), bytes) == 0, "every form makes the same image");
}

bool is_small(const Frame& frame) {
    return frame.width == 0 || frame.height == 0 ||
           (frame.width <= kMostPixels && frame.height <= kMostPixels / frame.width);
}

constexpr unsigned kBits[] = {24, 32, 48, 8, 0, 16};

/// The call that applications use, by its records.
void convert_by_records(Input& input, CVorm& vorm) {
    static const std::uint32_t kFormatSizes[] = {52, 52, 52, 0, 51};
    static const std::uint32_t kParamSizes[] = {44, 44, 12, 0, 43};
    Record format(input.one_of(kFormatSizes)), params(input.one_of(kParamSizes));
    const bool with_format = input.number<std::uint8_t>() != 0, with_params = input.flag();
    const std::uint32_t width = any_side(input), height = any_side(input), depth = input.up_to(2);
    const std::uint32_t flags = input.number<std::uint8_t>(), interlaced = input.up_to(1);
    const std::uint32_t method = input.up_to(11), matrix = input.up_to(17);
    format.put_rest(input);
    format.put(1, width), format.put(2, height), format.put(3, depth), format.put(5, flags), format.put(9, interlaced);
    params.put_rest(input);
    params.put(1, method), params.put(2, matrix);

    unsigned default_method = 0;
    vorm.DemosaicMethodGet(&default_method);
    Frame frame{width, height, depth == 0 ? 1u : 2u, (flags & TOVIX_IMAGE_MONO) != 0, interlaced != 0};
    if (!with_format) frame = {};
    if (!is_small(frame)) return;
    const unsigned bits = input.one_of(kBits);
    compare_forms(input, frame, image_bytes(frame, bits, with_params ? method : default_method),
                  [&](std::uint8_t* image, const std::uint8_t* samples) {
                      return vorm.ConvertToRgb(image, samples, bits, with_format ? format.bytes.data() : nullptr,
                                               with_params ? params.bytes.data() : nullptr) == TOVIX_OK;
                  });
}

/// The last step alone, by layout and settings of the application's own.
void convert_by_settings(Input& input, CVorm& vorm) {
    static std::vector<unsigned short> table16 = [] {
        std::vector<unsigned short> made(65536);
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i] = static_cast<unsigned short>(i * 40503);
        return made;
    }();
    const auto any_size = [&]() -> std::uint64_t {
        const std::uint64_t side = any_side(input);
        return side == 0xFFFF'FFFF ? input.number<std::uint64_t>() : side;
    };
    _vorm_format format{};
    format.width = any_size(), format.height = any_size();
    format.first_row_blue = input.up_to(2), format.first_green = input.up_to(2), format.mono = input.up_to(1);
    format.interlaced = input.up_to(2), format.rows_reversed = input.up_to(2), format.sample_kind = input.up_to(3);
    _vorm_settings settings = vorm.settings;
    settings.demosaic_method = input.up_to(11), settings.correction_matrix = input.up_to(17);
    settings.flip_x = input.number<std::int8_t>(), settings.flip_y = input.number<std::int8_t>();
    alignas(16) short weights[12];
    for (short& weight : weights)
        weight = input.number<short>();
    settings.matrix = input.number<std::uint8_t>() != 0 ? weights : nullptr;
    settings.lut_size = input.flag() && settings.lut != nullptr ? settings.lut_size : 0;
    settings.lut16 = input.flag() ? table16.data() : nullptr;

    const Frame frame{format.width, format.height, format.sample_kind == 0 ? 1u : 2u, format.mono != 0,
                      format.interlaced != 0};
    if (!is_small(frame)) return;
    const unsigned bits = input.one_of(kBits);
    compare_forms(input, frame, image_bytes(frame, bits, settings.demosaic_method),
                  [&](std::uint8_t* image, const std::uint8_t* samples) {
                      return vorm.ConvertBayerToRgb(image, samples, bits, &format, &settings) == 1;
                  });
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    CVorm vorm;
    const bool by_records = input.flag();
    change_settings(input, vorm);
    if (by_records) {
        convert_by_records(input, vorm);
    } else {
        convert_by_settings(input, vorm);
    }
    hwy::GetChosenTarget().Update(kSupported);
    return 0;
}
