// SPDX-License-Identifier: Apache-2.0
// The C interface of the simulation, used as an application would.
#include "tovixapi/simulation.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "stderr_capture.h"
#include "tovixapi/tovixapi.h"

namespace {

tovix_simulated_options options_of(const char* model, std::uint32_t state) {
    tovix_simulated_options options{};
    options.size = sizeof options;
    options.model = model;
    options.state = state;
    options.mark_frames = 1;
    return options;
}

TEST(Simulation, RefusesWhatItCannotDo) {
    tovix_simulated_options options = options_of("nothing of that name", TOVIX_SIMULATED_READY);
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL) << "no bus";
    EXPECT_EQ(tovix_simulation_begin(3), TOVIX_EINVAL);
    ASSERT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_STEPPED), 0);
    EXPECT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_STEPPED), TOVIX_EINVAL) << "one at a time";
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL); }),
              "error: there is no simulated model 'nothing of that name'\n");
    options = options_of(nullptr, 7);
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL);
    options = options_of(nullptr, TOVIX_SIMULATED_READY);
    options.picture = "/no/such/picture.png";
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL);
    for (std::uint32_t i = 0; i < 33; ++i)
        EXPECT_NE(tovix_simulation_model_name(i), nullptr);
    EXPECT_EQ(tovix_simulation_model_name(33), nullptr);
    tovix_simulated_fault fault{};
    EXPECT_EQ(tovix_simulation_plant_fault(nullptr, &fault), TOVIX_EFAIL);
    tovix_simulation_end();
    tovix_simulation_end();
}

TEST(Simulation, TwoCamerasAtOnceAsFastAsTheyGo) {
    ASSERT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_FAST), 0);
    const tovix_simulated_options options[] = {options_of("lyra03m", TOVIX_SIMULATED_READY),
                                               options_of("atlas13c", TOVIX_SIMULATED_READY)};
    _tovix* cameras[2] = {};
    tovix_simulated_camera* devices[2] = {};
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(tovix_simulation_attach(&options[i], &devices[i]), 0);
        ASSERT_EQ(tovix_camera_open_by_pid(&cameras[i], i == 0 ? 0x0204 : 0x0613), 0);
        ASSERT_EQ(tovix_enable_streaming(cameras[i]), 0);
        ASSERT_EQ(tovix_start_streaming(cameras[i]), 0);
    }
    std::uint32_t last[2] = {};
    for (int frame = 0; frame < 50; ++frame) {
        for (int i = 0; i < 2; ++i) {
            const std::int32_t index = tovix_wait_for_capture_to_buffer(cameras[i]);
            ASSERT_GE(index, 0);
            tovix_image_format format{};
            ASSERT_EQ(tovix_get_image_format(cameras[i], &format), 0);
            std::uint32_t serial = 0;
            EXPECT_EQ(tovix_simulation_check_frame(tovix_get_buffer_address(cameras[i], index), format.width,
                                                   format.height, &serial),
                      1);
            EXPECT_TRUE(frame == 0 || serial > last[i]);
            last[i] = serial;
            EXPECT_EQ(tovix_release_buffer(cameras[i], index), 0);
        }
    }
    // One is pulled out; the other does not notice.
    EXPECT_EQ(tovix_simulation_unplug(devices[0]), 0);
    EXPECT_GE(tovix_wait_for_capture_to_buffer(cameras[1]), 0);
    std::int32_t index = 0;
    while ((index = tovix_wait_for_capture_to_buffer(cameras[0])) >= 0) tovix_release_buffer(cameras[0], index);
    EXPECT_EQ(index, TOVIX_ENODATA) << "after the frames that were complete";
    for (_tovix*& camera : cameras)
        EXPECT_EQ(tovix_camera_close(&camera), 0);
    tovix_simulation_end();
}

TEST(Simulation, FaultsComeWhereAndWhenTheyWerePlanted) {
    ASSERT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_STEPPED), 0);
    const tovix_simulated_options options = options_of("lyra03c", TOVIX_SIMULATED_READY);
    tovix_simulated_camera* device = nullptr;
    ASSERT_EQ(tovix_simulation_attach(&options, &device), 0);
    tovix_simulated_fault fault{.size = sizeof fault,
                                .place = TOVIX_FAULT_OPEN,
                                .kind = TOVIX_FAULT_REFUSED,
                                .address = UINT32_MAX,
                                .skip = 0,
                                .times = 1,
                                .value = 0,
                                .delay_us = 0};
    _tovix* camera = nullptr;
    for (const auto& [kind, reason] :
         {std::pair{TOVIX_FAULT_REFUSED, "Permission denied"}, {TOVIX_FAULT_BUSY, "Device or resource busy"}}) {
        fault.kind = static_cast<std::uint32_t>(kind);
        ASSERT_EQ(tovix_simulation_plant_fault(device, &fault), 0);
        EXPECT_EQ(
            printed_by([&] { EXPECT_EQ(tovix_camera_open_by_pid(&camera, 0x0203), 0); }),
            std::string("usb_open_device: usb device open error: ") + reason + "\nerror: unable to open usb device\n");
        EXPECT_EQ(camera, nullptr);
    }
    fault.place = TOVIX_FAULT_MOMENT;
    EXPECT_EQ(tovix_simulation_plant_fault(device, &fault), TOVIX_EINVAL)
        << "only coming and going happen by themselves";
    fault.kind = TOVIX_FAULT_REPLUG;
    fault.delay_us = 2'000'000;
    ASSERT_EQ(tovix_simulation_plant_fault(device, &fault), 0);
    std::uint32_t count = 0;
    for (const auto& [step_us, attached] : {std::pair{1'999'999, 1}, {1, 0}, {1'499'999, 0}, {1, 1}}) {
        ASSERT_EQ(tovix_simulation_step(static_cast<std::uint64_t>(step_us)), 0);
        EXPECT_EQ(tovix_enum_cameras(nullptr, &count), attached) << step_us;
        count = 0;
    }
    tovix_simulation_end();
}

TEST(Simulation, ATornFrameIsSeen) {
    ASSERT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_FAST), 0);
    const tovix_simulated_options options = options_of("lyra03c", TOVIX_SIMULATED_READY);
    ASSERT_EQ(tovix_simulation_attach(&options, nullptr), 0);
    _tovix* camera = nullptr;
    ASSERT_EQ(tovix_camera_open_any(&camera), 0);
    ASSERT_EQ(tovix_enable_streaming(camera), 0);
    ASSERT_EQ(tovix_start_streaming(camera), 0);
    std::vector<std::vector<std::uint8_t>> frames;
    while (frames.size() < 2) {
        const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
        ASSERT_GE(index, 0);
        const std::uint8_t* const data = tovix_get_buffer_address(camera, index);
        frames.emplace_back(data, data + tovix_get_video_frame_size(camera));
        tovix_release_buffer(camera, index);
    }
    const auto is_whole = [](const std::vector<std::uint8_t>& frame) {
        return tovix_simulation_check_frame(frame.data(), 640, 480, nullptr);
    };
    EXPECT_EQ(is_whole(frames[0]), 1);
    std::vector<std::uint8_t> mixed = frames[0];
    std::copy(frames[1].begin() + 640 * 200, frames[1].end(), mixed.begin() + 640 * 200);
    EXPECT_EQ(is_whole(mixed), 0) << "rows of two frames";
    mixed = frames[0];
    mixed[100'000] = static_cast<std::uint8_t>(mixed[100'000] + 1);
    EXPECT_EQ(is_whole(mixed), 0) << "one pixel";
    mixed = frames[0];
    std::swap_ranges(mixed.begin(), mixed.begin() + 640, mixed.begin() + 640);
    EXPECT_EQ(is_whole(mixed), 0) << "two rows exchanged";
    EXPECT_EQ(tovix_camera_close(&camera), 0);
    tovix_simulation_end();
}

}  // namespace
