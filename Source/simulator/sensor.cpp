// SPDX-License-Identifier: Apache-2.0
// A frame is made in three steps, and each step's result stays until a setting that it depends on changes:
//
//   scene    light on every pixel of the sensor              sensor size
//   signal   what each delivered sample's site collects      area, subsampling, blur, light, colour filter
//   frames   bytes, one frame a noise pattern                all the rest
//
// A sample is, in 8-bit levels and before the tone curve,
//
//   exposure / 10 ms * gains * 242 * signal + dark level + noise,  clamped to 0..255.
#include "sensor.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <optional>
#include <utility>

#include "readout.h"
#include "scene.h"

namespace tovix::simulator {
namespace {

constexpr double kWhiteLevel = 242;        // what white adds to the dark level at 10 ms and gain 1.0
constexpr double kMaxDarkLevel = 32;       // however hot it gets
constexpr double kShotNoiseLevel = 32;     // where shot noise equals read noise, at gain 1.0
constexpr double kMaxExposure = 1e9;       // microseconds
constexpr double kMaxFactor = 1e3;         // each other factor; products stay far from the end of a float
constexpr double kMaxBlur = 32;            // pixels
constexpr std::uint32_t kMaxSide = 65535;  // what the camera's size registers hold
constexpr std::uint64_t kMaxFrameBytes = std::uint64_t{256} << 20;
constexpr std::size_t kNoisePatterns = 8;
constexpr std::size_t kPatternBytes = std::size_t{64} << 20;  // for all patterns, unless one is larger

void make_factor(double& value, double most) {
    value = value > 0 ? std::min(value, most) : 0;  // a NaN is not above 0
}

/// The same settings with every value in the range that the arithmetic can bear.
SensorSettings tamed(SensorSettings s) {
    for (double* factor : {&s.gain, &s.gain_red, &s.gain_blue, &s.gain_green_red, &s.gain_green_blue, &s.light[0],
                           &s.light[1], &s.light[2], &s.noise})
        make_factor(*factor, kMaxFactor);
    make_factor(s.exposure_us, kMaxExposure);
    make_factor(s.blur, kMaxBlur);
    s.temperature = std::isnan(s.temperature) ? 25 : std::clamp(s.temperature, -273.0, 1000.0);
    s.subsample_x = std::max(s.subsample_x, 1u);
    s.subsample_y = std::max(s.subsample_y, 1u);
    s.bytes_per_sample = s.bytes_per_sample == 2 ? 2 : 1;
    if (has_colour(s)) s.x_offset &= ~1u, s.y_offset &= ~1u;
    return s;
}

bool deliverable(const SensorSettings& s) {
    const std::uint64_t columns = s.width / s.subsample_x, rows = s.height / s.subsample_y;
    if (std::max(s.width, s.height) > kMaxSide || std::max(s.sensor_width, s.sensor_height) > kMaxSide) return false;
    const std::uint64_t sensor_pixels = std::uint64_t{s.sensor_width} * s.sensor_height;
    const std::uint64_t bytes = columns * rows * s.bytes_per_sample;
    return bytes > 0 && bytes <= kMaxFrameBytes && sensor_pixels > 0 && sensor_pixels <= kMaxScenePixels;
}

/// The settings with all that cannot change the signal set to one value.
SensorSettings without_electronics(SensorSettings s) {
    s.exposure_us = s.gain = s.gain_red = s.gain_blue = s.gain_green_red = s.gain_green_blue = 0;
    s.noise = s.temperature = 0;
    s.tone_curve = {};
    s.bytes_per_sample = 1;
    return s;
}

/// Nearly normal deviates: four 16-bit uniform numbers added up, from SplitMix64. None is beyond 3.5.
class Noise {
  public:
    explicit Noise(std::uint64_t seed) : state_(seed * 0xD1342543DE82EF95u) {}

    float next() {
        std::uint64_t bits = state_ += 0x9E3779B97F4A7C15u;
        bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9u;
        bits = (bits ^ bits >> 27) * 0x94D049BB133111EBu;
        bits ^= bits >> 31;
        const auto sum =
            static_cast<int>((bits & 0xFFFF) + (bits >> 16 & 0xFFFF) + (bits >> 32 & 0xFFFF) + (bits >> 48));
        return static_cast<float>(sum - 2 * 0xFFFF) * (1.7320508f / 65536);
    }

  private:
    std::uint64_t state_;
};

/// How the light on one kind of site becomes a level.
struct Amplifier {
    float scale;          // levels for a signal of 1
    float read_variance;  // square levels
    float shot_variance;  // square levels for each level
};

Amplifier amplifier_at(const SensorSettings& s, Site site) {
    double gain = s.gain;
    if (has_colour(s)) {
        const double by_site[2][2] = {{s.gain_blue, s.gain_green_blue}, {s.gain_green_red, s.gain_red}};
        gain *= by_site[site.red_row][site.red_column];
    }
    const double variance = s.noise * s.noise;
    return {static_cast<float>(kWhiteLevel * s.exposure_us / 10'000 * gain), static_cast<float>(variance * gain * gain),
            static_cast<float>(variance * gain / kShotNoiseLevel)};
}

/// From light to levels 0 to 255, with their fractions.
class Amplification {
  public:
    Amplification(const SensorSettings& s, std::size_t pattern) : noisy_(s.noise > 0), noise_(pattern) {
        dark_level_ = static_cast<float>(std::min(std::exp2((s.temperature - 25) / 8), kMaxDarkLevel));
        for (std::size_t y = 0; y < 2; ++y)
            for (std::size_t x = 0; x < 2; ++x)
                amplifiers_[y][x] = amplifier_at(s, site_at(s.color_id, x, y));
    }

    float level(float signal, std::size_t x, std::size_t y) {
        const Amplifier& amplifier = amplifiers_[y & 1][x & 1];
        float level = signal * amplifier.scale;
        if (noisy_) level += std::sqrt(amplifier.read_variance + amplifier.shot_variance * level) * noise_.next();
        return std::clamp(level + dark_level_, 0.0f, 255.0f);
    }

  private:
    bool noisy_;
    Noise noise_;
    float dark_level_;
    Amplifier amplifiers_[2][2];
};

std::uint8_t byte_at(const ToneCurve& curve, float level) {
    return curve[static_cast<std::size_t>(level + 0.5f)];
}

std::uint32_t word_at(const ToneCurve& curve, float level) {
    const auto below = static_cast<std::size_t>(level);
    const float from = curve[below], to = curve[std::min<std::size_t>(below + 1, 255)];
    return static_cast<std::uint32_t>((from + (to - from) * (level - static_cast<float>(below))) * 257 + 0.5f);
}

std::vector<std::uint8_t> develop(const std::vector<float>& signal, const SensorSettings& s, std::size_t pattern) {
    const std::size_t columns = s.width / s.subsample_x, rows = signal.size() / columns;
    std::vector<std::uint8_t> frame(signal.size() * s.bytes_per_sample);
    Amplification amplification(s, pattern);
    const float* in = signal.data();
    std::uint8_t* out = frame.data();
    for (std::size_t y = 0; y < rows; ++y)
        for (std::size_t x = 0; x < columns; ++x) {
            const float level = amplification.level(*in++, x, y);
            if (s.bytes_per_sample == 1) {
                *out++ = byte_at(s.tone_curve, level);
            } else {
                const std::uint32_t word = word_at(s.tone_curve, level);
                *out++ = static_cast<std::uint8_t>(word >> 8);
                *out++ = static_cast<std::uint8_t>(word & 0xFF);
            }
        }
    return frame;
}

std::size_t pattern_count(const SensorSettings& s, std::size_t frame_bytes) {
    if (s.noise == 0) return 1;
    return std::clamp<std::size_t>(kPatternBytes / frame_bytes, 1, kNoisePatterns);
}

}  // namespace

struct Sensor::Prepared {
    Irradiance scene;
    std::vector<float> signal;
    std::vector<std::vector<std::uint8_t>> frames;  // one a noise pattern; empty until first asked for
    std::optional<SensorSettings> signal_settings, frame_settings;

    const std::vector<std::uint8_t>& frame(const Scene& from, const SensorSettings& s, std::uint64_t number) {
        if (frame_settings != s) {
            frame_settings.reset();  // stays so if memory runs out on the way
            prepare_signal(from, s);
            frames.assign(pattern_count(s, signal.size() * s.bytes_per_sample), {});
            frame_settings = s;
        }
        const std::size_t pattern = number % frames.size();
        if (frames[pattern].empty()) frames[pattern] = develop(signal, s, pattern);
        return frames[pattern];
    }

    void prepare_signal(const Scene& from, const SensorSettings& s) {
        const SensorSettings wanted = without_electronics(s);
        if (signal_settings == wanted) return;
        signal_settings.reset();
        if (scene.width != s.sensor_width || scene.height != s.sensor_height)
            scene = from.project(s.sensor_width, s.sensor_height);
        signal = read_signal(scene, s);
        signal_settings = wanted;
    }
};

Sensor::Sensor(std::shared_ptr<const Scene> scene)
    : scene_(std::move(scene)), prepared_(std::make_unique<Prepared>()) {}

Sensor::~Sensor() = default;

void Sensor::render(const SensorSettings& settings, std::uint64_t frame_number, std::vector<std::uint8_t>& frame) try {
    frame.clear();
    const SensorSettings safe = tamed(settings);
    if (deliverable(safe)) frame = prepared_->frame(*scene_, safe, frame_number);
} catch (const std::bad_alloc&) {
    frame.clear();
}

}  // namespace tovix::simulator
