// SPDX-License-Identifier: Apache-2.0
// The focus search on a camera: its drive is a property, its measure the sharpness of a rectangle.
#include <algorithm>
#include <limits>

#include "auto.h"
#include "focus_search.h"
#include "handle.h"
#include "measure.h"
#include "report.h"

namespace {

constexpr int kBorder = 2;  // the sharpness measure looks so far around a pixel
constexpr std::uint32_t kNoLowerLimit = 1, kNoUpperLimit = 2;

[[nodiscard]] std::int32_t read_drive(_tovix* camera, FocusDrive& drive) {
    std::uint32_t flags = 0;
    const std::int32_t result =
        tovix_property_get_range(camera, TOVIX_PROP_FOCUS, &drive.min, &drive.max, &drive.position, &flags);
    drive.lower_bounded = (flags & kNoLowerLimit) == 0;
    drive.upper_bounded = (flags & kNoUpperLimit) == 0;
    return result;
}

[[nodiscard]] std::int32_t move_lens(_tovix* camera, std::int64_t target) {
    using Limits = std::numeric_limits<int>;
    const auto position = static_cast<int>(std::clamp<std::int64_t>(target, Limits::min(), Limits::max()));
    return tovix_property_set(camera, TOVIX_PROP_FOCUS, position, 0) < 0 ? TOVIX_EFAIL : TOVIX_OK;
}

/// Whether a search was begun, for frames of the format that the camera has now.
bool is_under_way(const _tovix* camera) {
    const FocusState& search = camera->focus;
    return search.af_step > 0 && search.af_desc.frame_width == camera->width &&
           search.af_desc.frame_height == camera->height;
}

}  // namespace

std::int32_t tovix_autofocus_start(_tovix* camera, int x, int y, int width, int height) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    FocusState& search = camera->focus;
    reset_focus_search(search);
    if (const std::int32_t result = fill_FrameDesc(camera, 0, &search.af_desc, x, y, width, height, kBorder);
        result < 0) {
        return result;
    }
    FocusDrive drive{};
    if (const std::int32_t result = read_drive(camera, drive); result < 0) return result;
    if (!drive.has_range()) return TOVIX_EFAIL;
    begin_focus_search(search, drive);
    return TOVIX_OK;
}

std::int32_t tovix_autofocus_process(_tovix* camera, const std::uint8_t* frame) {
    if (refuse_null(camera) || frame == nullptr) return TOVIX_EFAIL;
    FocusDrive drive{};
    if (read_drive(camera, drive) < 0) return TOVIX_EADJUST;
    if (!drive.has_range()) return TOVIX_EFAIL;
    if (!is_under_way(camera)) return TOVIX_EINVAL;
    FocusState& search = camera->focus;
    if (!lens_at_rest(search, drive.position)) return TOVIX_OK;
    switch (advance_focus_search(search, drive, tovix_autofocus_calculation(&search.af_desc, frame))) {
        case FocusMove::kGo: return move_lens(camera, search.af_target);
        case FocusMove::kFinished: return TOVIX_OK;
        case FocusMove::kOver: return TOVIX_EFAIL;
        case FocusMove::kGaveUp: return TOVIX_ENOFOCUS;
    }
    return TOVIX_EFAIL;
}
