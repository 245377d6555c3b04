// SPDX-License-Identifier: Apache-2.0
// The C interface of the simulation, used as an application would.
#include "tovixapi/simulation.h"

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "stderr_capture.h"
#include "tovixapi/tovixapi.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

tovix_simulated_options options_of(const char* model, std::uint32_t state) {
    tovix_simulated_options options{};
    options.size = sizeof options;
    options.model = model;
    options.state = state;
    options.mark_frames = 1;
    return options;
}

/// A simulation for the time of a test, with the camera that it opens.
class Simulation : public testing::Test {
  protected:
    ~Simulation() override { end(); }

    void begin(std::uint32_t pace) { ASSERT_EQ(tovix_simulation_begin(pace), 0); }
    void end() {
        EXPECT_EQ(tovix_camera_close(&camera), 0);
        tovix_simulation_end();
    }
    tovix_simulated_camera* attach(const tovix_simulated_options& options) {
        tovix_simulated_camera* device = nullptr;
        EXPECT_EQ(tovix_simulation_attach(&options, &device), 0);
        return device;
    }
    static int cameras() {
        std::uint32_t count = 0;
        return tovix_enum_cameras(nullptr, &count);
    }
    /// Two frames of the only camera.
    std::vector<Bytes> shoot() {
        std::vector<Bytes> frames;
        EXPECT_EQ(tovix_camera_open_any(&camera), 0);
        EXPECT_EQ(tovix_enable_streaming(camera), 0);
        EXPECT_EQ(tovix_start_streaming(camera), 0);
        while (frames.size() < 2) {
            const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
            if (index < 0) throw std::runtime_error("no frame comes");
            const std::uint8_t* const data = tovix_get_buffer_address(camera, index);
            frames.emplace_back(data, data + tovix_get_video_frame_size(camera));
            tovix_release_buffer(camera, index);
        }
        return frames;
    }

    _tovix* camera = nullptr;
};

TEST_F(Simulation, RefusesWhatItCannotDo) {
    tovix_simulated_options options = options_of("nothing of that name", TOVIX_SIMULATED_READY);
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL) << "no bus";
    EXPECT_EQ(tovix_simulation_begin(3), TOVIX_EINVAL);
    begin(TOVIX_SIMULATION_STEPPED);
    EXPECT_EQ(tovix_simulation_begin(TOVIX_SIMULATION_STEPPED), TOVIX_EINVAL) << "one at a time";
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL); }),
              "error: there is no simulated model 'nothing of that name'\n");
    options = options_of(nullptr, 7);
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL);
    options = options_of(nullptr, TOVIX_SIMULATED_READY);
    options.picture = "/no/such/picture.png";
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL);
    EXPECT_NE(tovix_simulation_model_name(32), nullptr);
    EXPECT_EQ(tovix_simulation_model_name(33), nullptr);
    options = options_of(nullptr, TOVIX_SIMULATED_READY);
    options.size = 0;
    EXPECT_EQ(tovix_simulation_attach(&options, nullptr), TOVIX_EINVAL);
    tovix_simulated_fault fault{};
    EXPECT_EQ(tovix_simulation_plant_fault(nullptr, &fault), TOVIX_EFAIL);
    EXPECT_EQ(tovix_simulation_attach(nullptr, nullptr), 0);
    EXPECT_EQ(tovix_camera_open_any(&camera), 0);
    EXPECT_NE(camera, nullptr) << "without wishes a camera is ready";
    end();  // as will be done again
}

TEST_F(Simulation, FaultsArePlantedWhereTheyMeanSomething) {
    begin(TOVIX_SIMULATION_STEPPED);
    tovix_simulated_camera* const device = attach(options_of(nullptr, TOVIX_SIMULATED_READY));
    const struct {
        int place, kind;
        std::int32_t result;
    } cases[] = {
        {TOVIX_FAULT_AT_MEMORY_WRITE, TOVIX_FAULT_HOSTILE, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_REGISTER_WRITE, TOVIX_FAULT_HOSTILE, TOVIX_EINVAL},
        {TOVIX_FAULT_AT_DESCRIPTOR, TOVIX_FAULT_OVERRUN, 0},
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
    fault.size = offsetof(tovix_simulated_fault, address);
    fault.place = TOVIX_FAULT_AT_OPEN;
    fault.kind = TOVIX_FAULT_REFUSED;
    fault.skip = fault.times = 9, fault.delay_us = 9;
    ASSERT_EQ(tovix_simulation_plant_fault(device, &fault), 0);
    printed_by([] { EXPECT_EQ(cameras(), 0); });
    EXPECT_EQ(cameras(), 1);
    fault.place = TOVIX_FAULT_AT_MOMENT;
    fault.kind = TOVIX_FAULT_UNPLUG;
    ASSERT_EQ(tovix_simulation_plant_fault(device, &fault), 0);
    ASSERT_EQ(tovix_simulation_step(1), 0);
    EXPECT_EQ(cameras(), 0);
}

TEST_F(Simulation, OptionsShowInThePicture) {
    // The left half of the picture is black, the right half white.
    const std::string path = testing::TempDir() + "simulation_test_" + std::to_string(getpid()) + ".png";
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = 4, image.height = 3, image.format = PNG_FORMAT_GRAY;
    const std::uint8_t pixels[12] = {0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255};
    ASSERT_TRUE(png_image_write_to_file(&image, path.c_str(), 0, pixels, 0, nullptr));

    tovix_version version{};
    const auto frames_with = [&](const std::function<void(tovix_simulated_options&)>& change) {
        tovix_simulated_options options = options_of("lyra03m", TOVIX_SIMULATED_READY);
        options.noise = -1;
        options.mark_frames = 0;
        options.picture = path.c_str();
        change(options);
        begin(TOVIX_SIMULATION_FAST);
        attach(options);
        const std::vector<Bytes> frames = shoot();
        EXPECT_EQ(tovix_get_version(camera, &version), 0);
        end();
        return frames;
    };
    const auto level = [](const std::vector<Bytes>& frames, std::size_t column) {
        return frames[0][640 * 240 + column];
    };
    const auto plain = frames_with([](auto&) {});
    EXPECT_EQ(version.high_speed, 1u);
    EXPECT_EQ(plain[0], plain[1]) << "without noise";
    for (const auto& [column, expected] : {std::pair{0, 1}, {319, 1}, {320, 243}, {639, 243}})
        EXPECT_EQ(level(plain, static_cast<std::size_t>(column)), expected) << column;
    EXPECT_EQ(level(frames_with([](auto& options) { options.light[2] = 1; }), 639), 74) << "blue light alone";
    EXPECT_NE(frames_with([](auto& options) { options.noise = 5; })[0], plain[0]);
    const auto blurred = frames_with([](auto& options) { options.blur = 4; });
    EXPECT_NEAR(level(blurred, 320 - 4), 243 * 0.18, 5);
    EXPECT_NEAR(level(blurred, 320 + 3), 243 * 0.82, 5);
    EXPECT_NE(frames_with([](auto& options) { options.picture = nullptr; })[0], plain[0]) << "the test chart";
    frames_with([](auto& options) { options.full_speed = 1; });
    EXPECT_EQ(version.high_speed, 0u);
    std::remove(path.c_str());
}

TEST_F(Simulation, FaultsComeWhereAndWhenTheyWerePlanted) {
    begin(TOVIX_SIMULATION_STEPPED);
    tovix_simulated_camera* const device = attach(options_of("lyra03c", TOVIX_SIMULATED_READY));
    tovix_simulated_fault fault{};
    fault.size = sizeof fault;
    fault.place = TOVIX_FAULT_AT_OPEN;
    fault.address = UINT32_MAX, fault.times = 1;
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
    for (const auto& [step_us, attached] : {std::pair{1'999'999, 1}, {1, 0}, {1'499'999, 0}, {1, 1}}) {
        ASSERT_EQ(tovix_simulation_step(static_cast<std::uint64_t>(step_us)), 0);
        EXPECT_EQ(cameras(), attached) << step_us;
    }
}

TEST_F(Simulation, ATornFrameIsSeen) {
    begin(TOVIX_SIMULATION_FAST);
    attach(options_of("lyra03c", TOVIX_SIMULATED_READY));
    const std::vector<Bytes> frames = shoot();
    const auto is_whole = [](const Bytes& frame) {
        return tovix_simulation_check_frame(frame.data(), 640, 480, nullptr);
    };
    EXPECT_EQ(is_whole(frames[0]), 1);
    Bytes mixed = frames[0];
    std::copy(frames[1].begin() + 640 * 200, frames[1].end(), mixed.begin() + 640 * 200);
    EXPECT_EQ(is_whole(mixed), 0) << "rows of two frames";
    mixed = frames[0];
    mixed[100'000] = static_cast<std::uint8_t>(mixed[100'000] + 1);
    EXPECT_EQ(is_whole(mixed), 0) << "one pixel";
    mixed = frames[0];
    std::swap_ranges(mixed.begin(), mixed.begin() + 640, mixed.begin() + 640);
    EXPECT_EQ(is_whole(mixed), 0) << "two rows exchanged";
}

}  // namespace
