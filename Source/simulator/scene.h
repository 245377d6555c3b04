// SPDX-License-Identifier: Apache-2.0
// What a simulated camera looks at: the built-in test chart, or a picture file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tovix::simulator {

/// More pixels than any scene or sensor may have; bounds the memory that a file or a setting can ask for.
inline constexpr std::uint64_t kMaxScenePixels = 64'000'000;

/// Light falling on a grid of pixels: rows top to bottom, red, green, blue for each pixel, linear, 1.0 = white.
struct Irradiance {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<float> samples;

    Irradiance() = default;
    Irradiance(std::uint32_t columns, std::uint32_t rows)
        : width(columns), height(rows), samples(std::size_t{3} * columns * rows) {}
    float* row(std::size_t y) { return samples.data() + 3 * y * width; }
    const float* row(std::size_t y) const { return samples.data() + 3 * y * width; }
};

/// Light of a channel from its sRGB code; both from 0 to 1.
float srgb_to_linear(float code);

/// Never changes, so one scene may serve several sensors and threads.
class Scene {
  public:
    virtual ~Scene() = default;

    /// The scene as it fills a sensor of this size, each pixel the mean over its area. Neither side is 0, and
    /// the area is within kMaxScenePixels. May throw std::bad_alloc, nothing else.
    virtual Irradiance project(std::uint32_t width, std::uint32_t height) const = 0;
};

/// The built-in test chart, drawn afresh for each sensor size and so sharp at all of them.
std::shared_ptr<const Scene> test_chart();

/// A PNG file of 8 or 16 bits, its encoding (sRGB where it names none) taken back to linear light;
/// transparent parts are black. Where its proportions differ from the sensor's it keeps them, and what hangs
/// over is cut off evenly. On failure the result is null and `error` is one line without a line end, which names the
/// file.
std::shared_ptr<const Scene> load_picture(const std::string& path, std::string& error);

}  // namespace tovix::simulator
