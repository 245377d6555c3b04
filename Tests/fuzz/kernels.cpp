// SPDX-License-Identifier: Apache-2.0
// Every exported kernel, on frames and images of exactly their size.
#include "color_kernel_list.h"
#include "target.h"

using namespace tovix::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const kernels::Kernel& kernel = input.one_of(kernels::kKernels);
    kernels::Case call{static_cast<int>(input.up_to(20)), static_cast<int>(input.up_to(12)), {}, {}};
    for (const char letter : std::string_view("rgftiml")) {
        if (input.flag()) call.flags += letter;
    }
    const Block frame(static_cast<std::size_t>(call.width * call.height * kernel.depth / 8));
    input.fill(frame.span());

    const bool in_place = kernel.order == kernels::kInPlace;
    const Block image(static_cast<std::size_t>(kernel.stride(call.width) * call.height));
    if (in_place) input.fill(image.span());
    const bool aimed_at_top = kernel.order == kernels::kSource && kernel.letters[3] == 'm' && !call.has('m');
    kernel.run(call, kernel.letters, in_place ? nullptr : frame.data() + (aimed_at_top ? 1 : 0), image.data());
    return 0;
}
