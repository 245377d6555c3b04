// SPDX-License-Identifier: Apache-2.0
// White balance in one shot, by the analogue gains of the camera.
#include <algorithm>
#include <cstdio>

#include "colour_levels.h"
#include "report.h"

namespace {

using namespace tovix::adjust;

constexpr const char* kName = "tovix_oneshot_autowhitebalance_ex";

/// The gains of the four places as factors, and what the camera has of them.
class Gains {
  public:
    /// False when there is one that should be there and cannot be read.
    [[nodiscard]] bool read(_tovix* camera) {
        float value = 0;
        std::uint32_t flags = 0;
        has_greens_ = TovixPropertyRange(camera, TOVIX_PROP_GAIN_GREEN1, &min_, &max_, &value, &flags) != 0;
        if (!has_greens_ && TovixPropertyRange(camera, TOVIX_PROP_GAIN_RED, &min_, &max_, &value, &flags) == 0)
            return false;
        const auto get = [&](std::uint32_t property, Place place) {
            return TovixGetProperty(camera, property, &at_[place], &flags) != 0;
        };
        if (has_greens_) {
            if (!get(TOVIX_PROP_GAIN_GREEN1, kGreen1)) return false;
            has_green2_ = get(TOVIX_PROP_GAIN_GREEN2, kGreen2);
            if (!has_green2_) at_[kGreen2] = at_[kGreen1];
        }
        return get(TOVIX_PROP_GAIN_RED, kRed) && get(TOVIX_PROP_GAIN_BLUE, kBlue);
    }

    void balance(const ColourLevels& levels) {
        for (int place = 0; place < kPlaces; ++place)
            at_[place] = at_[place] * levels.average / levels.at[place];
        if (has_greens_) return;
        const float green = (at_[kGreen1] + at_[kGreen2]) / 2;
        at_[kRed] /= green;
        at_[kBlue] /= green;
        at_[kGreen1] = at_[kGreen2] = 1.0f;
    }

    /// Keep the proportions as long as the range allows it; what is too large even so is cut off.
    void fit_range() {
        std::printf("%s: gains: %f/%f/%f/%f\n", kName, at_[kRed], at_[kGreen1], at_[kGreen2], at_[kBlue]);
        if (const float largest = extreme([](float a, float b) { return std::max(a, b); }); largest > max_)
            scale(max_ / largest);
        float smallest = extreme([](float a, float b) { return std::min(a, b); });
        if (smallest < min_) {
            scale(min_ / smallest);
            smallest = min_;
        }
        print_with(smallest);
        for (float& gain : at_)
            gain = std::min(gain, max_);
        print_with(smallest);
    }

    /// A gain that cannot be written does not keep the others from being tried.
    [[nodiscard]] bool write(_tovix* camera) const {
        bool good = true;
        const auto set = [&](std::uint32_t property, Place place) {
            if (TovixSetProperty(camera, property, at_[place], 0) == 0) good = false;
        };
        set(TOVIX_PROP_GAIN_RED, kRed);
        if (has_greens_) set(TOVIX_PROP_GAIN_GREEN1, kGreen1);
        if (has_green2_) set(TOVIX_PROP_GAIN_GREEN2, kGreen2);
        set(TOVIX_PROP_GAIN_BLUE, kBlue);
        return good;
    }

  private:
    /// The largest or smallest of the gains that the camera has.
    float extreme(const auto& of) const {
        const float value = of(at_[kRed], at_[kBlue]);
        return has_greens_ ? of(value, of(at_[kGreen1], at_[kGreen2])) : value;
    }
    void scale(float factor) {
        for (float& gain : at_)
            gain *= factor;
    }
    void print_with(float smallest) const {
        std::printf("%s: gains: %f and %f/%f/%f/%f\n", kName, smallest, at_[kRed], at_[kGreen1], at_[kGreen2],
                    at_[kBlue]);
    }

    float at_[kPlaces] = {1.0f, 1.0f, 1.0f, 1.0f};
    float min_ = 0, max_ = 0;  // of every gain
    bool has_greens_ = false, has_green2_ = false;
};

}  // namespace

std::int32_t tovix_oneshot_autowhitebalance_ex(_tovix* camera, const std::uint8_t* frame, int x, int y, int width,
                                               int height, float red_ratio, float blue_ratio) {
    if (refuse_null(camera) || frame == nullptr) return TOVIX_EFAIL;
    Gains gains;
    if (!gains.read(camera)) return TOVIX_EADJUST;
    ColourLevels levels{};
    const GreySubject subject{frame, x, y, width, height, red_ratio, blue_ratio};
    if (const std::int32_t result = measure_colours(camera, subject, kName, levels); result < 0) return result;
    gains.balance(levels);
    gains.fit_range();
    const bool written = gains.write(camera);
    // The conversion shall not correct a second time; a camera whose conversion has no white balance needs none.
    TovixSetProperty(camera, TOVIX_PROP_DIGITAL_WHITEBALANCE_U, 0.0f, 0);
    TovixSetProperty(camera, TOVIX_PROP_DIGITAL_WHITEBALANCE_V, 0.0f, 0);
    return written ? TOVIX_OK : TOVIX_EADJUST;
}

std::int32_t tovix_oneshot_autowhitebalance(_tovix* camera, const std::uint8_t* frame, int x, int y, int width,
                                            int height) {
    return tovix_oneshot_autowhitebalance_ex(camera, frame, x, y, width, height, 1.0f, 1.0f);
}
