// SPDX-License-Identifier: Apache-2.0
// The focus search, with a drive and a lens of any kind: it comes to an end, whatever it is told.
#include "focus_search.h"

#include "saturated.h"
#include "target.h"

using namespace tovix::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto any = [&]() -> std::int32_t {
        return input.flag() ? input.number<std::int8_t>() : input.number<std::int32_t>();
    };
    FocusDrive drive{any(), any(), any(), input.flag(), input.flag()};
    FocusState search{};
    reset_focus_search(search);
    if (!drive.has_range()) return 0;
    begin_focus_search(search, drive);
    // A position takes a few frames to come to rest, and the input is spent before the search is.
    constexpr int kMostFrames = 8 * (kMostCoarseSteps + kMostFineSteps);
    for (int frame = 0; frame < kMostFrames; ++frame) {
        // A lens that goes where it is sent, or anywhere, and a drive that thinks better of its range.
        const bool honest = input.empty() || input.up_to(3) != 0;
        drive.position = honest ? saturated<std::int32_t>(static_cast<double>(search.af_target)) : any();
        if (!honest && input.up_to(15) == 0) drive = {any(), any(), drive.position, input.flag(), input.flag()};
        if (!lens_at_rest(search, drive.position)) continue;
        const double measure = input.flag() ? input.number<std::uint16_t>() : input.number<double>();
        if (advance_focus_search(search, drive, measure) != FocusMove::kGo) return 0;
    }
    require(false, "the search comes to an end");
    return 0;
}
