// SPDX-License-Identifier: Apache-2.0
// The search for the sharpest focus position: a state machine over (where the lens is, how far it goes, how sharp the
// frame is). It climbs until the sharpness falls, then returns to the best place from the side from which it came.
//
//      0 first measure --> 1, 2 coarse: which way is up? --much sharper--> 4 climbing --> 6 fine: walk on, keep peaks
//                               |         ^  |                             ^                |  well beyond the best
//                               |         +--+ hardly different            |                v  peak, or at the limit
//                               +--much less sharp--> 3 reversed ----------+      7 beyond the peak --> 8 on it --> 9 end
//
// Every frame goes through lens_at_rest(); with a frame that it lets pass, through advance().
#pragma once

#include "focus_state.h"

/// The focus drive as it says of itself. Positions are those of a property: 32 bits.
struct FocusDrive {
    std::int32_t min, max, position;
    bool lower_bounded, upper_bounded;  // whether min and max mean anything

    bool has_range() const { return !(lower_bounded && upper_bounded && min >= max); }
};

/// What becomes of a measuring call.
enum class FocusMove {
    kGo,        ///< the lens is to go to af_target
    kFinished,  ///< the search has just ended
    kOver,      ///< it had ended before
    kGaveUp     ///< the coarse search came to no result
};

constexpr int kMostCoarseSteps = 36;

/// A drive without a limit may climb for ever: its fine search ends here, as at a limit. Peaks are nearer: where sharpness
/// falls with the square of the distance, the coarse search sees which way is up from 510 steps away at most, and the fine
/// one is through after 662. A drive with limits has 63 steps at most.
constexpr int kMostFineSteps = 1024;

/// Forget what an earlier search found.
void reset_focus_search(FocusState& search);

/// Begin at the lens's position. The drive has a range.
void begin_focus_search(FocusState& search, const FocusDrive& drive);

/// Whether a frame taken at this position is to be measured; false while the lens is on its way.
[[nodiscard]] bool lens_at_rest(FocusState& search, std::int64_t position);

/// One step of the search with the sharpness of the frame.
[[nodiscard]] FocusMove advance_focus_search(FocusState& search, const FocusDrive& drive, double measure);
