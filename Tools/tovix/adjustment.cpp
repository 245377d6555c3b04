// SPDX-License-Identifier: Apache-2.0
#include "adjustment.h"

#include "adjustment_control.h"

namespace {

// Of the frames that arrive after a change, the first may be whole in the ring already, the second on its way to the
// host, and the third being exposed.
constexpr int kFramesInFlight = 3;

std::unique_ptr<AdjustmentControl> make_control(Adjustment what, const MeasuredArea& measured, std::uint32_t target) {
    switch (what) {
        case Adjustment::kExposure: return make_exposure_control(measured, target);
        case Adjustment::kGain: return make_gain_control(measured, target);
        case Adjustment::kWhiteBalance: return make_white_balance_control(measured);
        case Adjustment::kOneShotWhiteBalance: return make_one_shot_white_balance_control(measured);
        case Adjustment::kDigitalWhiteBalance: return make_digital_white_balance_control(measured);
        case Adjustment::kFocus: return make_focus_control(measured);
    }
    throw Failure("there is no such adjustment");
}

HeldFrame next_frame(CameraStream& stream, const std::string& done) {
    std::optional<HeldFrame> frame = stream.next();
    if (!frame) throw stream.failure(done);
    return std::move(*frame);
}

}  // namespace

const char* name_of(Adjustment what) {
    switch (what) {
        case Adjustment::kExposure: return "exposure";
        case Adjustment::kGain: return "gain";
        case Adjustment::kWhiteBalance:
        case Adjustment::kOneShotWhiteBalance: return "white-balance";
        case Adjustment::kDigitalWhiteBalance: return "digital-white-balance";
        case Adjustment::kFocus: return "focus";
    }
    return "?";
}

Rectangle AdjustmentOptions::area_in(const FrameLayout& layout) const {
    const Rectangle chosen = area.value_or(middle_of(layout));
    if (chosen.x > layout.width || chosen.width > layout.width - chosen.x || chosen.y > layout.height ||
        chosen.height > layout.height - chosen.y) {
        throw Failure(text("the rectangle %ux%u at %u,%u is not in the frame, which has %ux%u pixels", chosen.width,
                           chosen.height, chosen.x, chosen.y, layout.width, layout.height));
    }
    return chosen;
}

HeldFrame fresh_frame(CameraStream& stream, const std::string& done) {
    for (int skipped = 0; skipped < kFramesInFlight; ++skipped)
        next_frame(stream, done);
    return next_frame(stream, done);
}

void adjust(Adjustment what, const AdjustmentOptions& options, const Camera& camera, CameraStream& stream,
            const OnStep& on_step) {
    const FrameLayout layout = camera.frame_layout();
    const MeasuredArea measured{camera, layout, options.area_in(layout)};
    const auto control = make_control(what, measured, options.target);
    const std::uint32_t most_steps = options.most_steps.value_or(control->enough_steps());
    bool fresh = true;
    for (std::uint32_t step = 1; step <= most_steps; ++step) {
        const std::string done = text("after %u step%s", step - 1, step == 2 ? "" : "s");
        const HeldFrame frame = fresh ? next_frame(stream, done) : fresh_frame(stream, done);
        camera.quiet().forget();  // what went wrong from here on is what a failure is about
        on_step(step, control->look(frame.samples()));
        if (!control->change(frame.samples())) return;
        stream.allow_for_exposure();
        fresh = !control->needs_fresh_frames();
    }
    throw Failure(
        text("%s has not settled after %u step%s; allow more with --steps, or look for what changes in the "
             "picture",
             name_of(what), most_steps, most_steps == 1 ? "" : "s"));
}
