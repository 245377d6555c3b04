// SPDX-License-Identifier: Apache-2.0
// Sums and sharpness of any rectangle of a frame that ends where its memory does.
#include "auto.h"
#include "handle.h"
#include "measure.h"
#include "target.h"

#include <cmath>

using namespace tovix::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    _tovix camera{};
    camera.width = static_cast<std::uint16_t>(input.up_to(40));
    camera.height = static_cast<std::uint16_t>(input.up_to(24));
    camera.subsample_x = input.number<std::uint16_t>();
    camera.subsample_y = input.number<std::uint16_t>();
    camera.color_id = input.number<std::uint8_t>();
    camera.pixel_format = input.number<std::uint8_t>();

    const auto number = [&]() -> int {
        const int kind = input.number<std::uint8_t>();
        return kind < 0xE0 ? kind % 48 - 4 : input.number<int>();
    };
    const int x = number(), y = number(), width = number(), height = number(), border = number();
    _FrameDesc desc{};
    if (fill_FrameDesc(&camera, 0, &desc, x, y, width, height, border) != TOVIX_OK) return 0;
    require(desc.win_x >= border && desc.win_x + desc.win_width + border <= desc.frame_width && desc.win_y >= border &&
                desc.win_y + desc.win_height + border <= desc.frame_height,
            "the rectangle lies in the frame");

    desc.sample_16bit = input.up_to(1), desc.sample_msb_second = input.up_to(1), desc.field_layout = input.up_to(1);
    const Block frame(static_cast<std::size_t>(desc.frame_width * desc.frame_height * (1 + desc.sample_16bit)));
    input.fill(frame.span());
    std::uint32_t sums[4];
    BayerOrMonoComputeSums(&desc, frame.data(), 0, sums);
    for (const std::uint32_t sum : sums)
        require(sum <= 255 * 41 * 25, "a sum is of the frame's pixels");
    const double sharpness = tovix_autofocus_calculation(&desc, frame.data());
    require(std::isfinite(sharpness) && sharpness >= 0, "sharpness is a number");
    return 0;
}
