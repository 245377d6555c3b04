// SPDX-License-Identifier: Apache-2.0
// The search for the sharpest focus.
#include "adjustment_control.h"

namespace {

class FocusControl : public AdjustmentControl {
  public:
    explicit FocusControl(const MeasuredArea& measured) : measured_(measured) {
        // The rectangle is in the frame, and that is all that may be wrong besides.
        const std::int32_t result = tovix_autofocus_start(measured.camera.handle(), measured.x(), measured.y(),
                                                          measured.width(), measured.height());
        if (result == TOVIX_EINVAL) throw Failure("this camera has no focus drive; turn the lens by hand");
        if (result < 0)
            throw measured.camera.quiet().failure("cannot focus", result, "run with --verbose to see each step");
    }

    Figures look(std::span<const std::uint8_t> frame) override {
        Figures figures{{"mean", measured_.levels(frame).mean}};
        int position = 0;
        std::uint32_t flags = 0;
        if (tovix_property_get(measured_.camera.handle(), TOVIX_PROP_FOCUS, &position, &flags) >= 0)
            figures.emplace_back("focus", position);
        return figures;
    }

    bool change(std::span<const std::uint8_t> frame) override {
        const std::int32_t result = tovix_autofocus_process(measured_.camera.handle(), frame.data());
        if (result == TOVIX_ENOFOCUS)
            throw Failure("no focus is sharper than the others; choose a --roi with more detail");
        if (result < 0 && result != TOVIX_EFAIL)
            throw measured_.camera.quiet().failure("cannot move the lens", result,
                                                   "run with --verbose to see each step");
        return result == TOVIX_OK;  // TOVIX_EFAIL: the search is over
    }

    bool needs_fresh_frames() const override { return false; }     // the search itself waits for the lens,
    std::uint32_t enough_steps() const override { return 2'000; }  // however slow it is

  private:
    const MeasuredArea measured_;
};

}  // namespace

std::unique_ptr<AdjustmentControl> make_focus_control(const MeasuredArea& measured) {
    return std::make_unique<FocusControl>(measured);
}
