// SPDX-License-Identifier: Apache-2.0
// The library with simulated cameras behind the real libusb and a mocked kernel.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../simulated_bus.h"
#include "../stderr_capture.h"
#include "frame_mark.h"
#include "handle.h"
#include "search.h"
#include "simulated_camera_model.h"

namespace {

using namespace tovix::test;
using tovix::mocked_kernel::MockedKernel;
using tovix::mocked_kernel::SimulatedCameraModel;
using tovix::simulator::Transfer;
namespace usb = tovix::simulator::usb;
using State = DeviceOptions::State;
using Transfers = std::vector<Transfer>;

constexpr std::uint32_t kExposure = 0x04A4;  // microseconds

void mark_frames(DeviceOptions& options) {
    options.mark_frames = true;
}

/// A bus of the mocked kernel for the time of a test. Fails the test when platform objects are left over.
class MockedBus {
  public:
    explicit MockedBus(Pace pace = Pace::kAsFastAsItGoes) : clock_(pace) {}
    ~MockedBus() { EXPECT_EQ(tz_platform_objects_alive(), objects_before_) << "platform objects left over"; }

    /// A camera that marks its frames, in the next port, with the port's number as its serial number.
    SimulatedCameraModel& attach(std::string_view model, State state = State::kReady) {
        const int port = static_cast<int>(cameras_.size()) + 1;
        DeviceOptions options = options_of(model, state);
        options.camera.serial_number = static_cast<std::uint32_t>(port);
        mark_frames(options);
        return cameras_.emplace_back(kernel_, port, clock_, std::move(options));
    }

  private:
    const long objects_before_ = tz_platform_objects_alive();
    tovix::simulator::Clock clock_;
    MockedKernel kernel_;
    std::list<SimulatedCameraModel> cameras_;
};

_tovix* opened(int product_id) {
    _tovix* camera = nullptr;
    EXPECT_EQ(tovix_camera_open_by_pid(&camera, product_id), 0);
    if (camera == nullptr) throw std::runtime_error("the camera does not open");
    return camera;
}

std::int32_t count_cameras() {
    std::uint32_t count = 0;
    return tovix_enum_cameras(nullptr, &count);
}

struct Size {
    std::uint32_t width, height;
};
constexpr Size kSmall{160, 122}, kLarger{320, 240}, kWhole{1280, 1024};  // small: its last packet is not full

void start(_tovix* camera, Size size) {
    const _tovix_frame_format format = format_of(size.width, size.height);
    ASSERT_EQ(tovix_set_video_format(camera, &format), 0);
    ASSERT_EQ(tovix_enable_streaming(camera), 0);
    ASSERT_EQ(tovix_start_streaming(camera), 0);
}

/// Take frames, each of which must be whole and newer than the one before.
void take_frames(_tovix* camera, int count) {
    std::int64_t last = -1;
    for (int i = 0; i < count; ++i) {
        const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
        ASSERT_GE(index, 0) << "frame " << i;
        const std::uint8_t* const frame = tovix_get_buffer_address(camera, index);
        std::uint32_t serial = 0;
        ASSERT_TRUE(tovix::simulator::check_frame({frame, tovix_get_video_frame_size(camera)}, camera->width, &serial))
            << "frame " << i;
        ASSERT_GT(serial, last);
        last = serial;
        EXPECT_EQ(tovix_release_buffer(camera, index), 0);
    }
}

void stop_and_close(_tovix* camera) {
    EXPECT_EQ(tovix_stop_streaming(camera), 0);
    EXPECT_EQ(tovix_disable_streaming(camera), 0);
    EXPECT_EQ(tovix_camera_close(&camera), 0);
}

void record(auto& camera, Transfers& transfers) {
    camera.access()->set_observer([&](const Transfer& transfer) { transfers.push_back(transfer); });
}

/// From bare devices to closed cameras. What the library printed meanwhile.
std::string use(const std::vector<int>& product_ids) {
    constexpr int kFrames = 20;
    return printed_by([&] {
        usb_init = 0;
        EXPECT_EQ(tovix_init(TOVIX_RESOURCES), 0);
        EXPECT_EQ(count_cameras(), static_cast<int>(product_ids.size()));
        for (const int product_id : product_ids) {
            _tovix* const camera = opened(product_id);
            start(camera, kSmall);
            take_frames(camera, kFrames);
            stop_and_close(camera);
        }
    });
}

bool is_standard(const Transfer& transfer, std::uint8_t request_type, std::uint8_t request) {
    return transfer.kind == Transfer::Kind::kControl && transfer.setup.request_type == request_type &&
           transfer.setup.request == request;
}

bool reads_device(const Transfer& transfer) {
    return is_standard(transfer, usb::kToHost, usb::kGetDescriptor) &&
           transfer.setup.value == usb::descriptor(usb::kDeviceType);
}

bool reads_configuration(const Transfer& transfer) {
    return is_standard(transfer, usb::kToHost, usb::kGetDescriptor) &&
           transfer.setup.value == usb::descriptor(usb::kConfigurationType);
}

bool chooses_configuration(const Transfer& transfer) {
    return is_standard(transfer, usb::kToDevice, usb::kSetConfiguration);
}

/// A transcript without what hosts do differently:
///   - Reads of the descriptors of device and configuration. Linux reads them once when a device comes, before anyone
///     looks; libusb then answers from what Linux has kept.
///   - Choices of a configuration. Linux chooses the first one when a device comes; as that is the one the
///     library wants, the back end has nothing to do.
///   - How many frames a stream brings before it is stopped, and which: each side has its own speed.
std::string comparable(const Transfers& transfers) {
    std::string text, last;
    for (const Transfer& transfer : transfers) {
        if (reads_device(transfer) || reads_configuration(transfer) || chooses_configuration(transfer)) continue;
        std::string line = transfer.text() + "\n";
        if (transfer.kind == Transfer::Kind::kBulkIn) {
            line = line.substr(0, line.find(':')) + ": frames\n";
            if (line == last) continue;
        }
        text += last = line;
    }
    return text;
}

TEST(MockedBringUp, TransfersAreThoseOfTheBusInThisProcess) {
    struct Case {
        const char* model;
        int product_id;
        Transfers mocked, in_process;
    };
    // With an FPGA; and without, which when bare looks like any FX2 and is held by a driver of the host.
    Case cases[] = {{"mira13c", 0x0113, {}, {}}, {"atlas13c", 0x0613, {}, {}}};
    const std::vector<int> product_ids{cases[0].product_id, cases[1].product_id};

    std::string printed, printed_in_process;
    {
        MockedBus bus;
        for (Case& each : cases)
            record(bus.attach(each.model, State::kBare), each.mocked);
        printed = use(product_ids);
    }
    {
        SimulatedBus bus(Pace::kAsFastAsItGoes);
        for (Case& each : cases)
            record(bus.attach(each.model, State::kBare, mark_frames), each.in_process);
        printed_in_process = use(product_ids);
    }
    EXPECT_EQ(printed, printed_in_process);
    for (const Case& each : cases) {
        SCOPED_TRACE(each.model);
        EXPECT_EQ(comparable(each.mocked), comparable(each.in_process));
        EXPECT_EQ(std::ranges::count_if(each.mocked, reads_configuration), 0);
        EXPECT_EQ(std::ranges::count_if(each.mocked, chooses_configuration), 1)
            << "by the kernel, when the device came back with its firmware";
        if (std::getenv("TOVIX_PRINT_TRANSCRIPT") == nullptr) continue;
        for (const Transfer& transfer : each.mocked)
            std::puts(transfer.text().c_str());
    }
}

TEST(MockedStreams, TwoOfThreeCamerasAtOnce) {
    MockedBus bus;
    for (const char* model : {"atlas13c", "lyra14c-2", "mira13m"})
        bus.attach(model);
    tovix_version found[3] = {};
    std::uint32_t count = 3;
    ASSERT_EQ(tovix_enum_cameras(found, &count), 3);
    EXPECT_EQ(found[0].product_id, 0x0114u);
    EXPECT_EQ(found[1].product_id, 0x0214u);
    EXPECT_EQ(found[1].release_number, 2u);
    EXPECT_EQ(found[1].serial_number, 2u);
    EXPECT_EQ(found[2].product_id, 0x0613u);

    _tovix* const cameras[] = {opened(0x0214), opened(0x0613)};
    start(cameras[0], kSmall);
    start(cameras[1], kLarger);
    std::vector<std::thread> applications;
    for (_tovix* const camera : cameras)
        applications.emplace_back([camera] { take_frames(camera, 100); });
    for (std::thread& application : applications)
        application.join();
    for (_tovix* const camera : cameras)
        stop_and_close(camera);
    EXPECT_EQ(count_cameras(), 3);
}

TEST(MockedStreams, TheKernelWritesIntoTheRingItself) {
    MockedBus bus;
    SimulatedCameraModel& model = bus.attach("mira13c");
    struct Range {
        const std::uint8_t* begin;
        std::size_t size;
    };
    std::vector<Range> reads;
    model.observe_reads([&](const tovix::mocked_kernel::BulkRead& read) {
        reads.push_back({static_cast<const std::uint8_t*>(read.destination()), read.size()});
    });
    _tovix* camera = opened(0x0113);
    start(camera, kSmall);
    take_frames(camera, 10);
    EXPECT_EQ(tovix_stop_streaming(camera), 0);
    model.observe_reads({});

    std::size_t frames_into[kStreamBuffers] = {}, bytes = 0;
    const std::size_t frame_bytes = tovix_get_video_frame_size(camera);
    for (const Range& read : reads) {
        bytes += read.size;
        const auto* const buffer = std::ranges::find_if(camera->stream.buffers, [&](const stream_buffer& each) {
            return read.begin >= each.data && read.begin + read.size <= each.data + frame_bytes;
        });
        ASSERT_NE(buffer, std::end(camera->stream.buffers)) << read.size << " bytes go somewhere else";
        frames_into[buffer - camera->stream.buffers] += read.begin == buffer->data;
    }
    EXPECT_EQ(bytes, (frames_into[0] + frames_into[1] + frames_into[2]) * frame_bytes);
    for (const std::size_t frames : frames_into)
        EXPECT_GE(frames, 1u);
    EXPECT_EQ(tovix_disable_streaming(camera), 0);
    EXPECT_EQ(tovix_camera_close(&camera), 0);
}

TEST(MockedStreams, AStalledPipeIsClearedAndGoesOn) {
    MockedBus bus;
    SimulatedCameraModel& model = bus.attach("mira13c");
    _tovix* const camera = opened(0x0113);
    start(camera, kWhole);
    take_frames(camera, 2);
    Transfers transfers;
    const auto stall_and_go_on = [&] {
        {
            const auto device = model.access();
            device->set_observer([&](const Transfer& transfer) { transfers.push_back(transfer); });
            device->faults().plant({.place = Place::kBulkIn, .kind = FaultKind::kStall});
        }
        take_frames(camera, 5);
    };
    EXPECT_EQ(printed_by(stall_and_go_on), "error: read async returned -536854449\n");
    model.access()->set_observer({});
    ASSERT_GE(transfers.size(), 6u);
    EXPECT_EQ(transfers[0].text(), "bulk in stall 0:");
    EXPECT_EQ(transfers[1].text(), "control 02 01 value=0000 index=0086 length=0 done 0:");
    stop_and_close(camera);
}

TEST(MockedStreams, ACameraHasOneClient) {
    MockedBus bus;
    bus.attach("mira13c");
    _tovix* const first = opened(0x0113);
    _tovix* second = nullptr;
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_camera_open_by_pid(&second, 0x0113), 0); }),
              "usb_open_device: usb device open error: Device or resource busy\nerror: unable to open usb "
              "device\n");
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(count_cameras(), 0);
    start(first, kSmall);
    take_frames(first, 1);
    stop_and_close(first);
    EXPECT_EQ(count_cameras(), 1);
}

TEST(MockedUnplug, EndsWaitsAndLeavesAHandleThatCloses) {
    MockedBus bus(Pace::kRealTime);
    SimulatedCameraModel& model = bus.attach("mira13m");
    for (const std::string_view moment : {"idle", "enabled", "waiting", "streaming"}) {
        SCOPED_TRACE(moment);
        _tovix* camera = opened(0x0114);
        std::chrono::steady_clock::time_point pulled;
        if (moment == "waiting" || moment == "streaming") {
            const std::uint32_t exposure_us = moment == "waiting" ? 60'000'000 : 10'000;
            EXPECT_EQ(tz_usb_write_tovix_u32(camera, kExposure, exposure_us), 0);
            start(camera, kSmall);
            std::int32_t result = 0;
            std::thread waiter([&] {
                while ((result = tovix_wait_for_capture_to_buffer(camera)) >= 0)
                    tovix_release_buffer(camera, result);
            });
            const auto waits = [&] {
                const StreamLock lock(camera->stream.stream_mutex);
                return camera->stream.waiters != 0;
            };
            while (!waits())
                std::this_thread::yield();
            pulled = std::chrono::steady_clock::now();
            model.unplug();
            waiter.join();
            EXPECT_EQ(result, TOVIX_ENODATA);
            EXPECT_EQ(tovix_stop_streaming(camera), 0);
        } else {
            const bool enabled = moment == "enabled";
            EXPECT_EQ(enabled ? tovix_enable_streaming(camera) : 0, 0);
            pulled = std::chrono::steady_clock::now();
            model.unplug();
            std::uint32_t word = 0;
            EXPECT_EQ(tz_usb_read_tovix_u32(camera, TOVIX_FO_SIZE, &word), -1);
            EXPECT_EQ(tovix_start_streaming(camera), enabled ? -1 : TOVIX_EINVAL);
        }
        EXPECT_EQ(tovix_disable_streaming(camera), 0);
        EXPECT_EQ(tovix_camera_close(&camera), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - pulled, std::chrono::seconds(2)) << "generous";
        EXPECT_EQ(count_cameras(), 0);
        model.plug_in();
    }
    _tovix* const camera = opened(0x0114);
    start(camera, kSmall);
    take_frames(camera, 3);
    stop_and_close(camera);
}

}  // namespace
