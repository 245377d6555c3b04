// SPDX-License-Identifier: Apache-2.0
// The message channel: messages of any number and length, to and from a camera that answers anything.
#include "camera_properties.h"
#include "scripted_camera.h"

using namespace tovix::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    ScriptedCamera camera(input);
    constexpr int kWindowBytes = 0x10000 - TOVIX_MSG_DATA;
    while (!input.empty()) {
        const std::uint32_t message = input.up_to(33);
        const bool short_one = input.flag(), read = input.flag(), with_data = input.flag();
        const int length = short_one ? input.number<std::uint8_t>() : input.number<std::int32_t>() % (kWindowBytes + 9);
        const Block block(with_data && length > 0 ? static_cast<std::size_t>(length) : 0, 0);
        const std::int32_t result =
            cam_handle_message(&camera.handle, message, with_data ? block.data() : nullptr, length, read);
        require(result != TOVIX_OK || (length >= 0 && length <= kWindowBytes), "a message that went fits");
    }
    return 0;
}
