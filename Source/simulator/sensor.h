// SPDX-License-Identifier: Apache-2.0
// What the sensor of a simulated camera sees: a scene through a lens, exposure, gains and a colour filter, as raw
// bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tovix::simulator {

class Scene;

using ToneCurve = std::array<std::uint8_t, 256>;

constexpr ToneCurve straight_tone_curve() {
    ToneCurve curve{};
    for (std::size_t level = 0; level < curve.size(); ++level)
        curve[level] = static_cast<std::uint8_t>(level);
    return curve;
}

/// Everything that decides what a frame looks like. Equal settings give equal frames, but for the noise.
///
/// Any value is safe. A factor (exposure, gain, light, blur, noise) that is negative or no number counts as
/// 0, a subsampling of 0 as 1. The frame is empty when a side is 0 or over 65535, when it would exceed 256
/// MiB, or when the sensor has no pixels or more than kMaxScenePixels.
struct SensorSettings {
    std::uint32_t sensor_width = 0;  ///< the whole sensor, in pixels; the scene fills it
    std::uint32_t sensor_height = 0;
    std::uint32_t x_offset = 0;  ///< the area that is read, in sensor pixels; a colour sensor rounds offsets
                                 ///< down to even ones, so that `color_id` is also that of the frame
    std::uint32_t y_offset = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t subsample_x = 1;  ///< every n-th colour-filter cell (colour) or pixel (monochrome) is
                                    ///< delivered, width / n samples a row
    std::uint32_t subsample_y = 1;
    std::uint32_t color_id = 0;          ///< 0 monochrome, 8 RGGB, 9 GRBG, 10 GBRG, 11 BGGR; others are monochrome
    std::uint32_t bytes_per_sample = 1;  ///< 1, or 2 with the most significant byte first

    double exposure_us = 10'000;  ///< white reaches just below full scale at 10 ms with all gains at 1.0
    double gain = 1.0;            ///< over all pixels
    double gain_red = 1.0;        ///< then by place in the colour-filter cell; monochrome has none of these
    double gain_blue = 1.0;
    double gain_green_red = 1.0;   ///< greens in red rows
    double gain_green_blue = 1.0;  ///< greens in blue rows

    std::array<double, 3> light{1.0, 1.0, 1.0};  ///< colour of the light: red, green, blue
    double blur = 0.0;          ///< standard deviation of the lens's point spread, in sensor pixels; 32 at most
    double noise = 0.0;         ///< read noise at gain 1.0, standard deviation in 8-bit levels; shot noise grows
                                ///< along with it; 0: every frame is the same
    double temperature = 25.0;  ///< degrees Celsius; the dark level, 1 at 25, doubles every 8 degrees
    /// Output level for each 8-bit input level. 16-bit samples pass it too, interpolated between its entries.
    ToneCurve tone_curve = straight_tone_curve();

    bool operator==(const SensorSettings&) const = default;
};

/// Renders frames of one scene. Keeps what does not change between frames, so that repeated calls with equal
/// settings cost little more than a copy of the frame. One thread at a time may use it.
class Sensor {
  public:
    explicit Sensor(std::shared_ptr<const Scene> scene);
    ~Sensor();

    /// Write one frame, rows top to bottom without padding, into `frame`; `frame_number` chooses among a
    /// handful of prepared noise patterns. Areas that reach over the sensor's edge repeat its last row and
    /// column. A 16-bit sample is 257 times the 8-bit level, with its fraction. Throws nothing: without memory the
    /// frame is empty.
    void render(const SensorSettings& settings, std::uint64_t frame_number, std::vector<std::uint8_t>& frame);

    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;

  private:
    struct Prepared;
    std::shared_ptr<const Scene> scene_;
    std::unique_ptr<Prepared> prepared_;
};

}  // namespace tovix::simulator
