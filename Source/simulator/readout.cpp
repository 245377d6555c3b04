// SPDX-License-Identifier: Apache-2.0
#include "readout.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tovix::simulator {
namespace {

using Weights = std::array<float, 3>;

/// What red, green and blue sites make of red, green and blue light. The dyes overlap, so raw colours are
/// paler than the scene; as each row adds up to 1, greys stay grey and a colour-correction matrix of the usual kind
/// undoes it.
constexpr Weights kCrosstalk[3] = {{0.82f, 0.14f, 0.04f}, {0.10f, 0.78f, 0.12f}, {0.03f, 0.17f, 0.80f}};
constexpr Weights kMonochrome = {0.30f, 0.40f, 0.30f};

/// For each delivered column (or row) the sensor's, the mosaic kept and the edge repeated.
std::vector<std::size_t> delivered_sites(std::uint32_t offset, std::uint32_t count, std::uint32_t subsample,
                                         std::uint32_t limit, bool keep_cells) {
    std::vector<std::size_t> sites(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t step = keep_cells ? i / 2 * 2 * subsample + i % 2 : i * subsample;
        sites[i] = std::min<std::uint64_t>(offset + step, limit - 1);
    }
    return sites;
}

/// The right half of a Gaussian, from its centre on; the whole adds up to 1. No blur leaves the centre alone.
std::vector<float> gaussian(double sigma) {
    const auto radius = static_cast<std::size_t>(std::ceil(3 * sigma));
    std::vector<double> taps(radius + 1, 1.0);
    double sum = 1;
    for (std::size_t i = 1; i <= radius; ++i) {
        const double distance = static_cast<double>(i) / sigma;
        taps[i] = std::exp(-distance * distance / 2);
        sum += 2 * taps[i];
    }
    std::vector<float> out(taps.size());
    std::ranges::transform(taps, out.begin(), [&](double tap) { return static_cast<float>(tap / sum); });
    return out;
}

/// to += weight * from. The blocks of fixed size let compilers use vector instructions at moderate optimisation.
void accumulate(float* __restrict to, const float* __restrict from, std::size_t count, float weight) {
    constexpr std::size_t kBlock = 8;
    for (; count >= kBlock; count -= kBlock, to += kBlock, from += kBlock)
        for (std::size_t i = 0; i < kBlock; ++i)
            to[i] += weight * from[i];
    for (std::size_t i = 0; i < count; ++i)
        to[i] += weight * from[i];
}

/// Blurs rows of the sensor's light and reads them through the colour filter.
class RowReader {
  public:
    RowReader(const Irradiance& scene, const SensorSettings& settings)
        : scene_(scene),
          taps_(gaussian(settings.blur)),
          blurred_(std::size_t{3} * scene.width),
          padded_(scene.width + 2 * radius()),
          row_(scene.width) {
        for (std::size_t y = 0; y < 2; ++y)
            for (std::size_t x = 0; x < 2; ++x) {
                const Site site = site_at(settings.color_id, x, y);
                weights_[y][x] = has_colour(settings) ? kCrosstalk[site.channel()] : kMonochrome;
                for (std::size_t c = 0; c < 3; ++c)
                    weights_[y][x][c] *= static_cast<float>(settings.light[c]);
            }
    }

    /// Write what the sites at `columns` of sensor row `y` collect; `phase` is the row's parity in the mosaic.
    void read(std::size_t y, std::size_t phase, const std::vector<std::size_t>& columns, float* out) {
        blur_down(y);
        for (std::size_t parity = 0; parity < 2; ++parity) {
            blur_along(weights_[phase][parity]);
            for (std::size_t i = parity; i < columns.size(); i += 2)
                out[i] = row_[columns[i]];
        }
    }

  private:
    std::size_t radius() const { return taps_.size() - 1; }

    void blur_down(std::size_t y) {
        std::ranges::fill(blurred_, 0.0f);
        accumulate(blurred_.data(), scene_.row(y), blurred_.size(), taps_[0]);
        for (std::size_t i = 1; i < taps_.size(); ++i) {
            accumulate(blurred_.data(), scene_.row(y - std::min(i, y)), blurred_.size(), taps_[i]);
            accumulate(blurred_.data(), scene_.row(std::min<std::size_t>(y + i, scene_.height - 1)), blurred_.size(),
                       taps_[i]);
        }
    }

    void blur_along(const Weights& weights) {
        float* inside = padded_.data() + radius();
        for (std::size_t x = 0; x < row_.size(); ++x) {
            const float* pixel = blurred_.data() + 3 * x;
            inside[x] = weights[0] * pixel[0] + weights[1] * pixel[1] + weights[2] * pixel[2];
        }
        std::fill_n(padded_.data(), radius(), inside[0]);
        std::fill_n(inside + row_.size(), radius(), inside[row_.size() - 1]);
        std::ranges::fill(row_, 0.0f);
        accumulate(row_.data(), inside, row_.size(), taps_[0]);
        for (std::size_t i = 1; i < taps_.size(); ++i) {
            accumulate(row_.data(), inside - i, row_.size(), taps_[i]);
            accumulate(row_.data(), inside + i, row_.size(), taps_[i]);
        }
    }

    const Irradiance& scene_;
    std::vector<float> taps_;
    std::vector<float> blurred_;  // a row of pixels, blurred down the columns
    std::vector<float> padded_;   // the same through one kind of site, its ends repeated
    std::vector<float> row_;      // the same, blurred along the row too
    Weights weights_[2][2];
};

}  // namespace

std::vector<float> read_signal(const Irradiance& scene, const SensorSettings& s) {
    const bool keep_cells = has_colour(s);
    const auto columns =
        delivered_sites(s.x_offset, s.width / s.subsample_x, s.subsample_x, s.sensor_width, keep_cells);
    const auto rows = delivered_sites(s.y_offset, s.height / s.subsample_y, s.subsample_y, s.sensor_height, keep_cells);
    std::vector<float> signal(columns.size() * rows.size());
    RowReader reader(scene, s);
    for (std::size_t y = 0; y < rows.size(); ++y) {
        float* out = signal.data() + y * columns.size();
        if (y >= 2 && rows[y] == rows[y - 2])  // below the sensor's edge: nothing new
            std::copy_n(out - 2 * columns.size(), columns.size(), out);
        else
            reader.read(rows[y], y & 1, columns, out);
    }
    return signal;
}

}  // namespace tovix::simulator
