// SPDX-License-Identifier: Apache-2.0
// What an application does with its cameras, through the public calls alone, over whatever stack this is linked with.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../frame_formats.h"
#include "stack.h"
#include "tovixapi/simulation.h"
#include "tovixapi/tovixapi.h"

extern std::uint32_t usb_init;

namespace {

using namespace tovix::stacks;
using namespace std::chrono_literals;

/// Bring cameras up, as a program does that starts: the library acts on that once a process.
void start_up(const Stack& stack) {
    usb_init = 0;
    ASSERT_EQ(tovix_init(stack.resources().c_str()), TOVIX_OK);
}

std::vector<unsigned> serials() {
    std::vector<tovix_version> records(8);
    auto count = static_cast<std::uint32_t>(records.size());
    EXPECT_GE(tovix_enum_cameras(records.data(), &count), 0);
    std::vector<unsigned> found;
    for (const tovix_version& record : std::span(records).first(count)) {
        found.push_back(record.serial_number);
        EXPECT_EQ(record.product_id, kCameras.at(record.serial_number - 1).product_id);
        EXPECT_EQ(record.high_speed, 1u);
    }
    return found;
}

/// What is on the bus once the host has noticed.
std::vector<unsigned> serials_of(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    std::vector<unsigned> found = serials();
    while (found.size() != count && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
        found = serials();
    }
    return found;
}

using List = std::vector<unsigned>;

class Camera {
  public:
    explicit Camera(unsigned number) {
        tovix_version wanted{};
        wanted.product_id = kCameras[number - 1].product_id;
        wanted.serial_number = number;
        EXPECT_EQ(tovix_camera_open(&handle_, &wanted), TOVIX_OK);
        if (handle_ == nullptr) throw std::runtime_error("camera " + std::to_string(number) + " does not open");
        char name[32];
        EXPECT_EQ(tovix_get_model_name(handle_, name, sizeof name), TOVIX_OK);
        EXPECT_STREQ(name, kCameras[number - 1].model);
    }
    ~Camera() { EXPECT_EQ(tovix_camera_close(&handle_), TOVIX_OK); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;
    operator _tovix*() const { return handle_; }

    void start() {
        ASSERT_EQ(tovix_enable_streaming(handle_), TOVIX_OK);
        ASSERT_EQ(tovix_start_streaming(handle_), TOVIX_OK);
    }
    void stop() {
        EXPECT_EQ(tovix_stop_streaming(handle_), TOVIX_OK);
        EXPECT_EQ(tovix_disable_streaming(handle_), TOVIX_OK);
    }

    /// Take that many frames, each whole and newer than the one before. Returns how many it were until the stream ended.
    unsigned take(unsigned count) {
        tovix_image_format format{};
        EXPECT_EQ(tovix_get_image_format(handle_, &format), TOVIX_OK);
        std::int64_t last = -1;
        for (unsigned taken = 0; taken < count; ++taken) {
            const std::int32_t index = tovix_wait_for_capture_to_buffer(handle_);
            if (index < 0) {
                EXPECT_EQ(index, TOVIX_ENODATA);
                return taken;
            }
            std::uint32_t serial = 0;
            EXPECT_EQ(tovix_simulation_check_frame(tovix_get_buffer_address(handle_, index), format.width,
                                                   format.height, &serial),
                      1)
                << "frame " << taken;
            EXPECT_GT(serial, last) << "frame " << taken;
            last = serial;
            EXPECT_EQ(tovix_release_buffer(handle_, index), TOVIX_OK);
        }
        return count;
    }

  private:
    _tovix* handle_ = nullptr;
};

void choose_area(const Camera& camera, std::uint32_t width, std::uint32_t height) {
    const _tovix_frame_format wanted = tovix::test::format_of(width, height, 16, 8);
    ASSERT_EQ(tovix_set_video_format(camera, &wanted), TOVIX_OK);
    _tovix_frame_format now{};
    ASSERT_EQ(tovix_get_video_format(camera, &now), TOVIX_OK);
    EXPECT_EQ(now.x_offset, wanted.x_offset);
    EXPECT_EQ(now.y_offset, wanted.y_offset);
    EXPECT_EQ(now.width, width);
    EXPECT_EQ(now.height, height);

    std::vector<std::uint32_t> rates(static_cast<std::size_t>(tovix_count_available_data_rates(camera)));
    EXPECT_FALSE(rates.empty());
    EXPECT_EQ(tovix_enum_available_data_rates(camera, rates.data(), static_cast<int>(rates.size())),
              static_cast<int>(rates.size()));
    for (const std::uint32_t rate : rates) {
        std::uint32_t chosen = 0;
        EXPECT_EQ(tovix_set_data_rate(camera, rate), TOVIX_OK);
        EXPECT_EQ(tovix_get_data_rate(camera, &chosen), TOVIX_OK);
        EXPECT_EQ(chosen, rate);
    }
}

/// Every property that the camera keeps can be read, and set; only a temperature takes a while.
void sweep_properties(const Camera& camera) {
    int served = 0;
    for (const tovix_property_info& info :
         std::span(tovix_properties, static_cast<std::size_t>(tovix_property_count))) {
        if (info.kept_by != TOVIX_KEPT_BY_CAMERA || info.property == TOVIX_PROP_TEMPERATURE) continue;
        int least = 0, most = 0, value = 0, again = 0;
        std::uint32_t flags = 0;
        if (tovix_property_get_range(camera, info.property, &least, &most, &value, &flags) != TOVIX_OK) continue;
        ++served;
        if (least >= most) continue;
        EXPECT_EQ(tovix_property_set(camera, info.property, most, flags), TOVIX_OK) << info.name;
        EXPECT_EQ(tovix_property_get(camera, info.property, &again, &flags), TOVIX_OK) << info.name;
        EXPECT_EQ(again, most) << info.name;
        EXPECT_EQ(tovix_property_set(camera, info.property, value, flags), TOVIX_OK) << info.name;
    }
    EXPECT_GT(served, 2);
}

TEST(CameraStory, FromBareDevicesToAReplug) {
    const std::unique_ptr<Stack> stack = make_stack();
    start_up(*stack);
    ASSERT_EQ(serials(), List({1, 2, 3})) << "in the order of their places";
    {
        Camera first(1), second(2), third(3);
        EXPECT_EQ(serials(), List()) << "a camera that is open is nobody else's";
        choose_area(first, 640, 480);
        choose_area(second, 320, 244);  // the last packet of a frame is not full
        sweep_properties(first);
        sweep_properties(third);

        first.start();
        second.start();
        std::thread other([&] { EXPECT_EQ(second.take(200), 200u); });
        EXPECT_EQ(first.take(200), 200u);
        other.join();
        second.stop();
        second.start();  // as before, after a stop

        std::atomic<bool> ended = false;
        std::thread waiter([&] {
            second.take(1'000'000);
            ended = true;
        });
        EXPECT_EQ(first.take(5), 5u);
        stack->unplug(2);
        while (!ended)
            EXPECT_EQ(first.take(1), 1u) << "another camera has left";
        waiter.join();
        EXPECT_EQ(first.take(20), 20u);
        first.stop();
        second.stop();
    }
    EXPECT_EQ(serials_of(2), List({1, 3}));

    stack->plug(2);
    EXPECT_EQ(serials(), List({1, 3})) << "it has lost its firmware";
    start_up(*stack);
    EXPECT_EQ(serials(), List({1, 2, 3}));
    Camera again(2);
    again.start();
    EXPECT_EQ(again.take(20), 20u);
    again.stop();
}

}  // namespace
