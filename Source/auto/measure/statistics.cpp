// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "measure.h"
#include "rows.h"

using namespace tovix::measure;

void BayerOrMonoComputeSums(const _FrameDesc* desc, const std::uint8_t* frame, std::uint32_t, std::uint32_t sums[4]) {
    std::fill_n(sums, 4, 0u);
    const Pixels pixels(*desc, frame);
    const std::int64_t columns = desc->win_width + (desc->win_width & 1);
    const std::int64_t step = columns + (desc->frame_width - desc->win_width);
    for_each_row(*desc, desc->win_height + (desc->win_height & 1), step, [&](std::int64_t place, bool odd) {
        const std::int64_t end = std::min(place + columns, pixels.count());
        std::uint32_t by_column[2]{};
        for (std::int64_t at = place; at < end; ++at)
            by_column[(at - place) & 1] += static_cast<std::uint32_t>(pixels[at]);
        for (int column = 0; column < 2; ++column)
            sums[2 * odd + column] += by_column[column];
    });
}
