// SPDX-License-Identifier: Apache-2.0
// The C interface of the simulation, used as an application would.
#include "tovixapi/simulation.h"

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <functional>
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
    options = options_of(nullptr, TOVIX_SIMULATED_READY);
    options.size = 0;
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL);
    tovix_simulated_fault fault{};
    EXPECT_EQ(tovix_simulation_plant_fault(nullptr, &fault), TOVIX_EFAIL);
    tovix_simulation_end();
    tovix_simulation_end();
}

TEST(Simulation, FaultsArePlantedWhereTheyMeanSomething) {
    ASSERT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_STEPPED), 0);
    tovix_simulated_camera* device = nullptr;
    const tovix_simulated_options options = options_of(nullptr, TOVIX_SIMULATED_READY);
    ASSERT_EQ(tovix_simulation_attach(&options, &device), 0);
    const struct {
        int place, kind;
        std::int32_t result;
    } cases[] = {
        {TOVIX_FAULT_AT_MEMORY_WRITE, TOVIX_FAULT_HOSTILE, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_REGISTER_READ, TOVIX_FAULT_HOSTILE, 0},
        {TOVIX_FAULT_AT_REGISTER_WRITE, TOVIX_FAULT_HOSTILE, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_REGISTER_WRITE, TOVIX_FAULT_OVERRUN, 0},
        {TOVIX_FAULT_AT_DESCRIPTOR, TOVIX_FAULT_OVERRUN, 0},
        {TOVIX_FAULT_AT_DESCRIPTOR, TOVIX_FAULT_REFUSED, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_SET_CONFIGURATION, TOVIX_FAULT_BUSY, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_SET_ALTERNATE, TOVIX_FAULT_SHORT, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_CLEAR_HALT, TOVIX_FAULT_UNPLUG, 0},
        {TOVIX_FAULT_AT_BULK_OUT, TOVIX_FAULT_OVERRUN, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_BULK_IN, TOVIX_FAULT_HOSTILE, 0},
        {TOVIX_FAULT_AT_OPEN, TOVIX_FAULT_STALL, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_QUEUE_READ, TOVIX_FAULT_BUSY, 0},
        {TOVIX_FAULT_AT_MOMENT, TOVIX_FAULT_STALL, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_MOMENT, TOVIX_FAULT_UNPLUG, 0},
        {TOVIX_FAULT_AT_MOMENT + 1, TOVIX_FAULT_UNPLUG, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_OPEN, TOVIX_FAULT_BUSY + 1, TOVIX_EINVAL},
    };
    tovix_simulated_fault fault{};
    fault.delay_us = 1000;  // none strikes before it is cleared
    for (const auto& [place, kind, result] : cases) {
        fault.place = static_cast<std::uint32_t>(place);
        fault.kind = static_cast<std::uint32_t>(kind);
        fault.size = sizeof fault;
        EXPECT_EQ(tovix_simulation_plant_fault(device, &fault), result) << place << ", " << kind;
        fault.size = 0;
        EXPECT_EQ(tovix_simulation_plant_fault(device, &fault), TOVIX_EINVAL);
    }
    EXPECT_EQ(tovix_simulation_clear_faults(device), 0);

    // A record of a size, a place and a kind is enough: the next one, wherever, whenever.
    std::uint32_t count = 0;
    fault = {.size = offsetof(tovix_simulated_fault, address),
             .place = TOVIX_FAULT_AT_OPEN,
             .kind = TOVIX_FAULT_REFUSED,
             .address = 0,
             .skip = 9,
             .times = 9,
             .value = 0,
             .delay_us = 9};
    ASSERT_EQ(tovix_simulation_plant_fault(device, &fault), 0);
    printed_by([&] { EXPECT_EQ(tovix_enum_cameras(nullptr, &count), 0); });
    EXPECT_EQ(tovix_enum_cameras(nullptr, &count), 1);
    fault.place = TOVIX_FAULT_AT_MOMENT;
    fault.kind = TOVIX_FAULT_UNPLUG;
    ASSERT_EQ(tovix_simulation_plant_fault(device, &fault), 0);
    ASSERT_EQ(tovix_simulation_step(1), 0);
    count = 0;
    EXPECT_EQ(tovix_enum_cameras(nullptr, &count), 0);
    tovix_simulation_end();
}

struct Shot {
    std::vector<std::vector<std::uint8_t>> frames;
    std::uint32_t high_speed;
};

/// Two frames of the smallest monochrome camera.
Shot shoot(const std::function<void(tovix_simulated_options&)>& change) {
    Shot shot{};
    tovix_simulated_options options{};
    options.size = sizeof options;
    options.model = "lyra03m";
    options.state = TOVIX_SIMULATED_READY;
    options.noise = -1;
    change(options);
    EXPECT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_FAST), 0);
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), 0);
    _tovix* camera = nullptr;
    EXPECT_EQ(tovix_camera_open_any(&camera), 0);
    EXPECT_EQ(tovix_enable_streaming(camera), 0);
    EXPECT_EQ(tovix_start_streaming(camera), 0);
    while (shot.frames.size() < 2) {
        const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
        if (index < 0) break;
        const std::uint8_t* const data = tovix_get_buffer_address(camera, index);
        shot.frames.emplace_back(data, data + tovix_get_video_frame_size(camera));
        tovix_release_buffer(camera, index);
    }
    tovix_version version{};
    EXPECT_EQ(tovix_get_version(camera, &version), 0);
    shot.high_speed = version.high_speed;
    EXPECT_EQ(tovix_camera_close(&camera), 0);
    tovix_simulation_end();
    EXPECT_EQ(shot.frames.size(), 2u);
    shot.frames.resize(2, std::vector<std::uint8_t>(640 * 480));
    return shot;
}

TEST(Simulation, OptionsShowInThePicture) {
    // The left half of the picture is black, the right half white.
    const std::string path = testing::TempDir() + "simulation_test_" + std::to_string(getpid()) + ".png";
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = 4, image.height = 3, image.format = PNG_FORMAT_GRAY;
    const std::uint8_t pixels[12] = {0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255};
    ASSERT_TRUE(png_image_write_to_file(&image, path.c_str(), 0, pixels, 0, nullptr));

    const auto level = [](const Shot& shot, std::size_t column) { return shot.frames[0][640 * 240 + column]; };
    const auto of_picture = [&](const std::function<void(tovix_simulated_options&)>& change) {
        return shoot([&](tovix_simulated_options& options) {
            options.picture = path.c_str();
            change(options);
        });
    };
    const Shot plain = of_picture([](auto&) {});
    EXPECT_EQ(plain.high_speed, 1u);
    EXPECT_EQ(plain.frames[0], plain.frames[1]) << "without noise";
    for (const auto& [column, expected] : {std::pair{0, 1}, {319, 1}, {320, 243}, {639, 243}})
        EXPECT_EQ(level(plain, static_cast<std::size_t>(column)), expected) << column;
    EXPECT_EQ(level(of_picture([](auto& options) { options.light[2] = 1; }), 639), 74) << "blue light alone";
    const Shot noisy = of_picture([](auto& options) { options.noise = 5; });
    EXPECT_NE(noisy.frames[0], plain.frames[0]);
    const Shot blurred = of_picture([](auto& options) { options.blur = 4; });
    EXPECT_NEAR(level(blurred, 320 - 4), 243 * 0.18, 5);
    EXPECT_NEAR(level(blurred, 320 + 3), 243 * 0.82, 5);
    EXPECT_EQ(of_picture([](auto& options) { options.full_speed = 1; }).high_speed, 0u);
    EXPECT_NE(shoot([](auto&) {}).frames[0], plain.frames[0]) << "the test chart";
    std::remove(path.c_str());
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
    while ((index = tovix_wait_for_capture_to_buffer(cameras[0])) >= 0)  // what came before it was pulled out
        EXPECT_EQ(tovix_release_buffer(cameras[0], index), 0);
    EXPECT_EQ(index, TOVIX_ENODATA);
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
                                .place = TOVIX_FAULT_AT_OPEN,
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
    fault.place = TOVIX_FAULT_AT_MOMENT;
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

TEST(Simulation, WithoutWishesACameraIsReady) {
    ASSERT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_STEPPED), 0);
    ASSERT_EQ(tovix_simulation_attach(nullptr, nullptr), 0);
    _tovix* camera = nullptr;
    EXPECT_EQ(tovix_camera_open_any(&camera), 0);
    EXPECT_NE(camera, nullptr);
    EXPECT_EQ(tovix_camera_close(&camera), 0);
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
