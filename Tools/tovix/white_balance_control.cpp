// SPDX-License-Identifier: Apache-2.0
// The white balances. The rectangle is taken for something grey.
#include <algorithm>

#include "adjustment_control.h"
#include "quiet_stdout.h"

namespace {

constexpr double kLeastMean = 16;         // the library measures nothing darker
constexpr double kMostClipped = 0.1;      // of the samples of a colour
constexpr double kMostUnbalanced = 1.05;  // the stepwise control is content with 1.03
constexpr char kAdvice[] = "try another --roi, or run with --verbose to see each step";

/// The library's measure has the greens two levels too bright. That much less red and blue makes it balance greys.
float ratio_for(const Levels& levels) {
    return static_cast<float>(levels.green / (levels.green + 2));
}

class WhiteBalanceControl : public AdjustmentControl {
  public:
    explicit WhiteBalanceControl(const MeasuredArea& measured) : measured_(measured) {
        check_balanceable(measured.layout, measured.area);
    }

  protected:
    double property(std::uint32_t property) const { return read_property(measured_.camera, property).shown_value(); }
    void add_property(Figures& figures, std::uint32_t property) const {
        const PropertyState state = read_property(measured_.camera, property);
        figures.emplace_back(state.property->name, state.shown_value());
    }

    void check(std::int32_t result) const {
        if (result < 0) throw measured_.camera.quiet().failure("cannot balance the colours", result, kAdvice);
    }

    /// Throw Failure unless a grey came out grey.
    void check_balanced(double red_to_green, double blue_to_green) const {
        const auto [least, most] = std::minmax({red_to_green, blue_to_green, 1.0});
        if (most <= kMostUnbalanced * least) return;
        throw Failure(
            text("the colours end unbalanced, red/green %.3f and blue/green %.3f: the gains do not reach as "
                 "far, or the rectangle (mean %.1f) is too dark; change the light or the exposure",
                 red_to_green, blue_to_green, levels_.mean));
    }

    const MeasuredArea measured_;
    Levels levels_{};
};

/// By the camera's gains, and beyond their reach by those of the conversion object: little by little, or at once.
class GainBalance : public WhiteBalanceControl {
  public:
    using WhiteBalanceControl::WhiteBalanceControl;

    Figures look(std::span<const std::uint8_t> frame) override {
        levels_ = measured_.levels(frame);
        const double green = property(TOVIX_PROP_DIGITAL_GAIN_GREEN);
        red_to_green_ = levels_.red_to_green() * property(TOVIX_PROP_DIGITAL_GAIN_RED) / green;
        blue_to_green_ = levels_.blue_to_green() * property(TOVIX_PROP_DIGITAL_GAIN_BLUE) / green;
        Figures figures{{"mean", levels_.mean}, {"red_to_green", red_to_green_}, {"blue_to_green", blue_to_green_}};
        for (const std::uint32_t gain :
             {TOVIX_PROP_GAIN_RED, TOVIX_PROP_GAIN_GREEN1, TOVIX_PROP_GAIN_GREEN2, TOVIX_PROP_GAIN_BLUE,
              TOVIX_PROP_DIGITAL_GAIN_RED, TOVIX_PROP_DIGITAL_GAIN_GREEN, TOVIX_PROP_DIGITAL_GAIN_BLUE})
            add_property(figures, gain);
        return figures;
    }

  protected:
    double red_to_green_ = 1, blue_to_green_ = 1;
};

class StepwiseBalance : public GainBalance {
  public:
    using GainBalance::GainBalance;

    bool change(std::span<const std::uint8_t> frame) override {
        check_balanceable(levels_);
        const std::int32_t result =
            tovix_whitebalance_step_ex(measured_.camera.handle(), frame.data(), measured_.x(), measured_.y(),
                                       measured_.width(), measured_.height(), ratio_for(levels_), ratio_for(levels_));
        check(result);
        if (result > 0) return true;
        check_balanced(red_to_green_, blue_to_green_);  // a property that it could not set is 0, too
        return false;
    }
};

class OneShotBalance : public GainBalance {
  public:
    using GainBalance::GainBalance;

    bool change(std::span<const std::uint8_t> frame) override {
        if (done_) {
            check_balanced(red_to_green_, blue_to_green_);
            return false;
        }
        check_balanceable(levels_);
        {
            const QuietStdout quiet;
            check(tovix_oneshot_autowhitebalance(measured_.camera.handle(), frame.data(), measured_.x(), measured_.y(),
                                                 measured_.width(), measured_.height()));
        }
        return done_ = true;
    }

  private:
    bool done_ = false;
};

/// By the conversion object alone, so that only pictures tell.
class DigitalBalance : public WhiteBalanceControl {
  public:
    using WhiteBalanceControl::WhiteBalanceControl;

    Figures look(std::span<const std::uint8_t> frame) override {
        levels_ = measured_.levels(frame);
        picture_ = converted(frame);
        Figures figures{{"mean", levels_.mean},
                        {"red_to_green", picture_.red_to_green()},
                        {"blue_to_green", picture_.blue_to_green()}};
        for (const std::uint32_t setting :
             {TOVIX_PROP_DIGITAL_WHITEBALANCE_U, TOVIX_PROP_DIGITAL_WHITEBALANCE_V, TOVIX_PROP_DIGITAL_GAIN})
            add_property(figures, setting);
        return figures;
    }

    bool change(std::span<const std::uint8_t> frame) override {
        if (done_) {
            check_balanced(picture_.red_to_green(), picture_.blue_to_green());
            return false;
        }
        check_balanceable(levels_);
        if (read_property(measured_.camera, TOVIX_PROP_CORRECTION_MATRIX).value == TOVIX_MATRIX_NONE)
            throw Failure("without a colour matrix there is no digital white balance; set correction_matrix=1");
        check(tovix_digital_whitebalance_ex(measured_.camera.handle(), frame.data(), measured_.x(), measured_.y(),
                                            measured_.width(), measured_.height(), ratio_for(levels_),
                                            ratio_for(levels_)));
        return done_ = true;
    }

    bool needs_fresh_frames() const override { return false; }

  private:
    /// Means of the rectangle in a picture with the settings of the camera's conversion object.
    Levels converted(std::span<const std::uint8_t> frame) const {
        const FrameLayout& layout = measured_.layout;
        tovix_image_format format{};
        const std::int32_t known = tovix_get_image_format(measured_.camera.handle(), &format);
        std::vector<std::uint8_t> picture(3 * layout.bytes());
        const std::int32_t result = known < 0 ? known
                                              : tovix_convert_frame_to_rgb(measured_.camera.handle(), picture.data(),
                                                                           frame.data(), &format, nullptr);
        if (result < 0) throw measured_.camera.quiet().failure("cannot convert the frame", result, kAdvice);

        const int flipping = read_property(measured_.camera, TOVIX_PROP_FLIPPING).value;
        const Rectangle& area = measured_.area;
        const std::uint32_t left = (flipping & 1) != 0 ? layout.width - area.x - area.width : area.x;
        const std::uint32_t top = (flipping & 2) != 0 ? layout.height - area.y - area.height : area.y;
        std::uint64_t sums[3] = {1, 1, 1};  // a hair of light, so that black has a ratio
        for (std::uint32_t y = top; y < top + area.height; ++y) {
            for (std::size_t at = 3 * (std::size_t{y} * layout.width + left), end = at + 3 * std::size_t{area.width};
                 at < end; ++at)
                sums[at % 3] += picture[at];
        }
        const double pixels = double{1} * area.width * area.height;
        return {0, static_cast<double>(sums[0]) / pixels, static_cast<double>(sums[1]) / pixels,
                static_cast<double>(sums[2]) / pixels, 0};
    }

    Levels picture_{};
    bool done_ = false;
};

}  // namespace

void check_balanceable(const FrameLayout& layout, const Rectangle& area) {
    if (layout.mono()) throw Failure("this camera is monochrome: there are no colours to balance");
    if (((area.x | area.y | area.width | area.height) & 1) != 0)
        throw Failure("white balance measures whole cells of the colour filter: the numbers of --roi have to be even");
}

void check_balanceable(const Levels& levels) {
    if (levels.mean <= kLeastMean)
        throw Failure(
            text("the rectangle is too dark to measure its colours: its mean is %.1f of 255; raise the exposure "
                 "('tovix auto exposure'), or choose another --roi",
                 levels.mean));
    if (levels.clipped > kMostClipped)
        throw Failure(
            text("the rectangle is too bright to measure its colours: %.0f %% of the samples of one are at the "
                 "top; lower the exposure ('tovix auto exposure'), or choose another --roi",
                 100 * levels.clipped));
}

std::unique_ptr<AdjustmentControl> make_white_balance_control(const MeasuredArea& measured) {
    return std::make_unique<StepwiseBalance>(measured);
}

std::unique_ptr<AdjustmentControl> make_one_shot_white_balance_control(const MeasuredArea& measured) {
    return std::make_unique<OneShotBalance>(measured);
}

std::unique_ptr<AdjustmentControl> make_digital_white_balance_control(const MeasuredArea& measured) {
    return std::make_unique<DigitalBalance>(measured);
}
