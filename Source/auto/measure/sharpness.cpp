// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "measure.h"
#include "rows.h"

using namespace tovix::measure;

namespace {

constexpr std::int64_t kAcross = 2;  // to the next pixel of the same colour
constexpr int kSaturated = 255;
constexpr int kSaturatedCentre = 259;  // as if a little of what is beyond full scale showed

}  // namespace

double tovix_autofocus_calculation(const _FrameDesc* desc, const std::uint8_t* frame) {
    if (desc->win_width <= 0 || desc->win_height <= 0) return 0;
    const Pixels pixels(*desc, frame);
    const std::int64_t down = desc->field_layout != 0 ? desc->frame_width : 2 * desc->frame_width;
    double sum = 0;
    for_each_row(*desc, desc->win_height, desc->frame_width, [&](std::int64_t place, bool) {
        const std::int64_t end = place + desc->win_width;
        if (place - std::max(down, kAcross) < 0 || end + std::max(down, kAcross) > pixels.count()) return;
        for (std::int64_t at = place; at < end; ++at) {
            const int value = pixels[at];
            const int centre = value == kSaturated ? kSaturatedCentre : value;
            const int difference =
                4 * centre - pixels[at - kAcross] - pixels[at + kAcross] - pixels[at - down] - pixels[at + down];
            sum += difference * difference;
        }
    });
    return sum / static_cast<double>(desc->win_width * desc->win_height);
}
