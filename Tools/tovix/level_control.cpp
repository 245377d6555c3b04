// SPDX-License-Identifier: Apache-2.0
// Exposure and gain: one setting that brings the mean level to its target.
#include <cmath>

#include "adjustment_control.h"

namespace {

constexpr double kToleranceShare = 0.03;  // of the target
constexpr double kToleranceLevels = 1;    // noise and whole numbers of the setting allow no less

/// How the library goes a step, and what helps at the ends of the range.
struct Setting {
    std::uint32_t property;
    const char* name;
    std::int32_t (*step)(const MeasuredArea& measured, int target, const std::uint8_t* frame);
    const char* when_too_dark;
    const char* when_too_bright;
};

constexpr Setting kExposure{TOVIX_PROP_EXPOSURE, "exposure",
                            [](const MeasuredArea& measured, int target, const std::uint8_t* frame) {
                                return tovix_oneshot_autoexposure(measured.camera.handle(), target, frame, measured.x(),
                                                                  measured.y(), measured.width(), measured.height(), 0);
                            },
                            "give more light, or raise the gain", "give less light, or lower the gain"};
constexpr Setting kGain{TOVIX_PROP_GAIN, "gain",
                        [](const MeasuredArea& measured, int target, const std::uint8_t* frame) {
                            return tovix_oneshot_autogain(measured.camera.handle(), target, frame, measured.x(),
                                                          measured.y(), measured.width(), measured.height());
                        },
                        "give more light, or raise the exposure", "give less light, or lower the exposure"};

class LevelControl : public AdjustmentControl {
  public:
    LevelControl(const MeasuredArea& measured, const Setting& setting, std::uint32_t target)
        : measured_(measured), setting_(setting), target_(target) {}

    Figures look(std::span<const std::uint8_t> frame) override {
        mean_ = measured_.levels(frame).mean;
        state_ = read_property(measured_.camera, setting_.property);
        if (!state_.present()) throw Failure(std::string("this camera has no ") + setting_.name);
        return {{"mean", mean_}, {setting_.name, state_.shown_value()}};
    }

    bool change(std::span<const std::uint8_t> frame) override {
        if (std::abs(mean_ - target_) <= std::max(kToleranceLevels, kToleranceShare * target_)) return false;
        const bool too_dark = mean_ < target_;
        if (state_.value == (too_dark ? state_.max : state_.min)) throw at_bound(too_dark);
        const std::int32_t result = setting_.step(measured_, static_cast<int>(target_), frame.data());
        if (result < 0)
            throw measured_.camera.quiet().failure(std::string("cannot adjust the ") + setting_.name, result,
                                                   "try another --roi, or run with --verbose to see each step");
        if (const int value = read_property(measured_.camera, setting_.property).value; value == state_.value)
            throw Failure(text("the mean stays at %.1f instead of %u: no %s but %s brings it nearer; %s", mean_,
                               target_, setting_.name, value_text(*state_.property, state_.shown_value()).c_str(),
                               too_dark ? setting_.when_too_dark : setting_.when_too_bright));
        return true;
    }

  private:
    Failure at_bound(bool too_dark) const {
        const double bound = too_dark ? state_.shown_max() : state_.shown_min();
        return Failure(text("%s is at its %s of %s and the picture is still %s (mean %.1f) than %u; %s", setting_.name,
                            too_dark ? "maximum" : "minimum", value_text(*state_.property, bound).c_str(),
                            too_dark ? "darker" : "brighter", mean_, target_,
                            too_dark ? setting_.when_too_dark : setting_.when_too_bright));
    }

    const MeasuredArea measured_;
    const Setting& setting_;
    const std::uint32_t target_;
    double mean_ = 0;
    PropertyState state_{};
};

}  // namespace

std::unique_ptr<AdjustmentControl> make_exposure_control(const MeasuredArea& measured, std::uint32_t target) {
    return std::make_unique<LevelControl>(measured, kExposure, target);
}

std::unique_ptr<AdjustmentControl> make_gain_control(const MeasuredArea& measured, std::uint32_t target) {
    return std::make_unique<LevelControl>(measured, kGain, target);
}
