// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "handle.h"
#include "simulated_bus.h"
#include "stderr_capture.h"

namespace {

using namespace tovix::test;

_tovix_frame_format area(std::uint32_t width, std::uint32_t height, std::uint16_t subsample_x = 1,
                         std::uint16_t subsample_y = 1) {
    _tovix_frame_format format = format_of(width, height);
    format.x_offset = 16;
    format.y_offset = 8;
    format.pixel_format = 9;
    format.subsample_x = subsample_x;
    format.subsample_y = subsample_y;
    format.reserved_x = format.reserved_y = 5;
    return format;
}

TEST(FrameFormat, IsWrittenReadBackAndDivided) {
    SimulatedBus bus;
    Port& port = bus.attach("mira13c");
    OpenCamera camera;
    std::vector<std::string> writes;
    port.access()->set_observer([&](const tovix::simulator::Transfer& transfer) {
        if (transfer.setup.request_type == 0x40) writes.push_back(transfer.text().substr(14));
    });
    const _tovix_frame_format wanted = area(1000, 600, 3, 2);
    EXPECT_EQ(tovix_set_data_rate(camera, 20'000), 0);
    const std::string printed = printed_by([&] { EXPECT_EQ(tovix_set_video_format(camera, &wanted), 0); });
    EXPECT_EQ(printed.substr(0, printed.find("kps")), "cam_write_format: subsample=3x2, size=333x300, position=16x8\n");
    port.access()->set_observer({});
    EXPECT_EQ(writes, (std::vector<std::string>{
                          "value=0000 index=1048 length=4 done 4: 20 4E 00 00",
                          "value=0000 index=100C length=4 done 4: E8 03 58 02",
                          "value=0000 index=1008 length=4 done 4: 10 00 08 00",
                          "value=0000 index=1018 length=4 done 4: 03 00 02 00",
                          "value=0000 index=1048 length=4 done 4: 40 9C 00 00",
                      }));
    _tovix_frame_format read{};
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_get_video_format(camera, &read), 0); }),
              "tovix_get_video_format: subsample=3x2, size=999x600, position=16x8\n");
    EXPECT_EQ(read.width, 999u);
    EXPECT_EQ(read.pixel_format + read.reserved_x + read.reserved_y, 0u);
    tovix_image_format image{};
    image.unused_6_to_8[0] = image.unused_10_to_12[2] = 77;
    image.reserved = 5;
    EXPECT_EQ(tovix_get_image_format(camera, &image), 0);
    EXPECT_EQ(image.size, 52u);
    EXPECT_EQ(image.image_size, 333u * 300u);
    EXPECT_EQ(image.reserved, 0u);
    std::uint32_t rate = 0;
    EXPECT_EQ(tovix_get_data_rate(camera, &rate), 0);
    EXPECT_EQ(rate, 40'000u) << "a format resets it";
    EXPECT_EQ(image.unused_6_to_8[0] + image.unused_10_to_12[2], 154u) << "left as the caller passed them";
}

TEST(FrameFormat, BadFormatsAreRefusedUnsent) {
    SimulatedBus bus;
    Port& port = bus.attach("mira20c");  // a model without subsampling
    OpenCamera camera;
    int transfers = 0;
    port.access()->set_observer([&](const tovix::simulator::Transfer&) { ++transfers; });
    for (const _tovix_frame_format& bad : {area(640, 480, 0), area(640, 480, 1, 256), area(0, 480), area(640, 0),
                                           area(640, 480, 2), area(640, 480, 1, 2)}) {
        EXPECT_EQ(tovix_set_video_format(camera, &bad), TOVIX_EINVAL);
    }
    EXPECT_EQ(tovix_set_video_format(camera, nullptr), -1);
    EXPECT_EQ(tovix_get_data_rate(camera, nullptr), -1);
    EXPECT_EQ(transfers, 0);
    EXPECT_EQ(camera->width, 1600);
    const _tovix_frame_format plain = area(640, 480);
    EXPECT_EQ(tovix_set_video_format(camera, &plain), 0);
    port.access()->set_observer({});
}

TEST(FrameFormat, LayoutBitsFollowTheColourCode) {
    constexpr int kNone = -1;
    constexpr int kFlags[] = {1, kNone, kNone, kNone, kNone, 1,  1, kNone, 0, 8,  12, 4, 0, 8,  12, 4,
                              4, 12,    8,     0,     4,     12, 8, 0,     2, 10, 14, 6, 6, 14, 10, 2};
    _tovix camera{};
    camera.width = 10;
    camera.height = 4;
    for (std::uint32_t code = 0; code < 40; ++code) {
        camera.color_id = code;
        tovix_image_format image{};
        image.flags = 99;
        const int flags = code < std::size(kFlags) ? kFlags[code] : kNone;
        EXPECT_EQ(tovix_get_image_format(&camera, &image), flags == kNone ? -1 : 0) << code;
        EXPECT_EQ(image.flags, flags == kNone ? 99u : static_cast<std::uint32_t>(flags)) << code;
        EXPECT_EQ(image.width, 10u) << "written in any case";
    }
    camera.color_id = UINT32_MAX;
    tovix_image_format image{};
    EXPECT_EQ(tovix_get_image_format(&camera, &image), -1);
    camera.color_id = 8;
    for (const auto& [format, bytes] : {std::pair{0u, 40u}, {1u, 80u}, {2u, 120u}, {3u, 40u}}) {
        camera.pixel_format = format;
        EXPECT_EQ(tovix_get_image_format(&camera, &image), 0);
        EXPECT_EQ(image.image_size, bytes);
    }
}

}  // namespace
