// SPDX-License-Identifier: Apache-2.0
#include "focus_search.h"

#include <cstdlib>
#include <utility>

#include "saturated.h"

namespace {

enum State : std::int64_t {
    kFirstMeasure = 0,
    kCoarse = 1,
    kCoarseSharper = 2,  // a little sharper than at the start
    kReversed = 3,
    kClimbing = 4,
    kUnused = 5,  // nothing leads here; the target is asked for again
    kFine = 6,
    kBeyondPeak = 7,
    kOnPeak = 8,
    kEnded = 9
};

/// One measuring call. The limits are those of this call alone.
class Step {
  public:
    Step(FocusState& search, const FocusDrive& drive, double measure)
        : s_(search), drive_(drive), min_(drive.min), max_(drive.max), measure_(measure) {
        // A lens that has come to its target, which may be the limit, has room for one step beyond: so the limit itself
        // is measured before it stops the search.
        if (s_.af_direction > 0 && drive.position >= s_.af_target) max_ += s_.af_step;
        if (s_.af_direction < 0 && drive.position <= s_.af_target) min_ -= s_.af_step;
    }

    FocusMove act() {
        switch (s_.af_state) {
            case kFirstMeasure: choose_direction(); return FocusMove::kGo;
            case kCoarse:
            case kCoarseSharper: return search_coarsely();
            case kReversed: leave_reversal(); return FocusMove::kGo;
            case kClimbing: return climb();
            case kFine: return search_finely();
            case kBeyondPeak:
                s_.af_target = s_.af_peak_position;
                s_.af_state = kOnPeak;
                return FocusMove::kGo;
            case kOnPeak: return end(FocusMove::kFinished);
            case kEnded: return FocusMove::kOver;
            default: return FocusMove::kGo;
        }
    }

  private:
    bool at_limit() const {
        if (s_.af_direction > 0) return drive_.upper_bounded && s_.af_target >= max_;
        return drive_.lower_bounded && s_.af_target <= min_;
    }
    void clamp() {
        if (at_limit()) s_.af_target = s_.af_direction > 0 ? max_ : min_;
    }
    /// The target so many steps on; not clamped.
    void go_on(int steps) { s_.af_target += std::int64_t{steps} * s_.af_direction; }

    FocusMove end(FocusMove how) {
        s_.af_state = kEnded;
        return how;
    }

    /// The next target, or the end where there is no room for one.
    FocusMove go_on_to(State next) {
        if (at_limit()) return end(FocusMove::kFinished);
        go_on(1);
        clamp();
        s_.af_state = next;
        return FocusMove::kGo;
    }

    /// Towards the best position, and two steps past it, so that the lens always comes onto it from the same side.
    FocusMove return_to_best() {
        s_.af_peak_position = s_.af_best_position;
        s_.af_target = s_.af_peak_position - 2 * std::int64_t{s_.af_direction};
        s_.af_state = kBeyondPeak;
        return FocusMove::kGo;
    }

    void choose_direction() {
        s_.af_start_measure = measure_;
        s_.af_position = drive_.position;
        const bool nearer_max = s_.af_position - min_ > max_ - s_.af_position;
        const bool down = drive_.upper_bounded ? !drive_.lower_bounded || nearer_max : !drive_.lower_bounded;
        s_.af_direction = static_cast<std::int32_t>(down ? -s_.af_step : s_.af_step);
        s_.af_target = s_.af_position;
        go_on(2);
        s_.af_state = kCoarse;
    }

    FocusMove search_coarsely() {
        if (++s_.coarse_steps > kMostCoarseSteps) return end(FocusMove::kGaveUp);
        if (measure_ > 1.3 * s_.af_start_measure)
            return go_on_to(s_.af_state == kCoarseSharper && s_.af_direction < 0 ? kFine : kClimbing);
        if (s_.af_start_measure > 1.3 * measure_) {
            s_.af_direction = -s_.af_direction;
            go_on(2);
            s_.af_state = kReversed;
            return FocusMove::kGo;
        }
        if (at_limit()) {
            s_.af_direction = -s_.af_direction;
            s_.af_target = s_.af_start_position;
        }
        const bool sharper = measure_ > 1.04 * s_.af_start_measure;
        go_on(sharper ? 1 : 2);
        clamp();
        s_.af_state = sharper ? kCoarseSharper : kCoarse;
        return FocusMove::kGo;
    }

    void leave_reversal() {
        go_on(1);
        s_.af_state = at_limit() ? kOnPeak : kClimbing;
        clamp();
    }

    FocusMove climb() {
        if (s_.af_measure_last > measure_) {  // the peak was passed
            s_.af_best_position = s_.af_target - s_.af_direction;
            s_.af_best_measure = s_.af_measure_last;
            if (at_limit()) return return_to_best();
        }
        return go_on_to(kFine);
    }

    FocusMove search_finely() {
        keep_peak();
        const std::int64_t distance =
            s_.af_direction > 0 ? s_.af_target - s_.af_best_position : s_.af_best_position - s_.af_target;
        const bool well_beyond = static_cast<std::uint64_t>(distance) > static_cast<std::uint64_t>(8 * s_.af_step);
        if (0.6 * s_.af_best_measure > measure_ && well_beyond) return return_to_best();
        const bool far_enough = at_limit() || ++s_.fine_steps > kMostFineSteps;
        if (far_enough && s_.af_best_measure != 0) return return_to_best();
        if (far_enough) return end(FocusMove::kFinished);
        return go_on_to(kFine);
    }

    /// When the previous position is a local peak of the last three: the top of the parabola through them.
    void keep_peak() {
        const double m1 = s_.af_measure_last, m2 = s_.af_measure_before;
        if (!(m1 > measure_ && m1 > m2)) return;
        const double x1 = static_cast<double>(s_.af_target - s_.af_direction);
        const double step = static_cast<double>(s_.af_step);
        const double a = (2 * m1 - m2 - measure_) / 2 / step / step;
        const double peak = (measure_ - m2) / 4 / a / step + x1;
        const double value = a * ((peak - x1) * (peak - x1)) + m1;
        if (!(value > s_.af_best_measure)) return;
        s_.af_best_measure = value;
        s_.af_best_position = saturated<std::int64_t>(peak + 0.5);
    }

    FocusState& s_;
    const FocusDrive& drive_;
    std::int64_t min_, max_;
    double measure_;
};

}  // namespace

void reset_focus_search(FocusState& search) {
    const _FrameDesc desc = search.af_desc;
    search = {};
    search.af_desc = desc;
}

void begin_focus_search(FocusState& search, const FocusDrive& drive) {
    search.af_position = search.af_previous_position = search.af_start_position = drive.position;
    const bool both = drive.lower_bounded && drive.upper_bounded;
    const std::int64_t range = both ? std::int64_t{drive.max} - drive.min : 0;
    search.af_step = range > 0 ? range / 32 : std::abs(std::int64_t{drive.position}) / 64;
    if (search.af_step == 0) search.af_step = 1;
}

bool lens_at_rest(FocusState& search, std::int64_t position) {
    if (search.af_state == kFirstMeasure) return true;
    if (position != search.af_position || search.af_position != search.af_previous_position) {
        search.af_previous_position = std::exchange(search.af_position, position);
        const bool arrived = search.af_direction > 0 ? position >= search.af_target : position <= search.af_target;
        search.af_settled = arrived;
        return false;
    }
    // A lens that stopped short of its target gets one frame more.
    search.af_settled = search.af_settled == 0;
    return search.af_settled == 0;
}

FocusMove advance_focus_search(FocusState& search, const FocusDrive& drive, double measure) {
    const FocusMove move = Step(search, drive, measure).act();
    if (move == FocusMove::kGo) search.af_measure_before = std::exchange(search.af_measure_last, measure);
    return move;
}
