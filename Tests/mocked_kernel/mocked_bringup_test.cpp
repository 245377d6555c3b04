// SPDX-License-Identifier: Apache-2.0
// The library with simulated cameras behind the real libusb and a mocked kernel.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "../simulated_bus.h"
#include "../stderr_capture.h"
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

/// A bus of the mocked kernel for the time of a test. Fails the test when platform objects are left over.
class MockedBus {
  public:
    ~MockedBus() { EXPECT_EQ(tz_platform_objects_alive(), objects_before_) << "platform objects left over"; }

    /// A camera in the next port, with the port's number as its serial number.
    SimulatedCameraModel& attach(std::string_view model, State state = State::kReady) {
        const int port = static_cast<int>(cameras_.size()) + 1;
        DeviceOptions options = options_of(model, state);
        options.camera.serial_number = static_cast<std::uint32_t>(port);
        return cameras_.emplace_back(kernel_, port, clock_, std::move(options));
    }

  private:
    const long objects_before_ = tz_platform_objects_alive();
    tovix::simulator::Clock clock_{Pace::kAsFastAsItGoes};
    MockedKernel kernel_;
    std::list<SimulatedCameraModel> cameras_;
};

_tovix* opened(int product_id) {
    _tovix* camera = nullptr;
    EXPECT_EQ(tovix_camera_open_by_pid(&camera, product_id), 0);
    if (camera == nullptr) throw std::runtime_error("the camera does not open");
    return camera;
}

/// Stream frames whose last packet is not full.
void stream(_tovix* camera, int count) {
    const _tovix_frame_format format = format_of(160, 122);
    ASSERT_EQ(tovix_set_video_format(camera, &format), 0);
    ASSERT_EQ(tovix_enable_streaming(camera), 0);
    ASSERT_EQ(tovix_start_streaming(camera), 0);
    for (int i = 0; i < count; ++i) {
        const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
        ASSERT_GE(index, 0) << "frame " << i;
        EXPECT_EQ(tovix_release_buffer(camera, index), 0);
    }
    EXPECT_EQ(tovix_stop_streaming(camera), 0);
}

void close(_tovix* camera) {
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
        std::uint32_t count = 0;
        EXPECT_EQ(tovix_enum_cameras(nullptr, &count), static_cast<int>(product_ids.size()));
        for (const int product_id : product_ids) {
            _tovix* const camera = opened(product_id);
            stream(camera, kFrames);
            close(camera);
        }
    });
}

/// What hosts do differently:
///   - Reads of the descriptors of device and configuration. Linux reads them once when a device comes, before anyone
///     looks; libusb then answers from what Linux has kept.
///   - Choices of a configuration. Linux chooses the first one when a device comes; as that is the one the
///     library wants, the back end has nothing to do.
bool is_up_to_the_host(const Transfer& transfer) {
    if (transfer.kind != Transfer::Kind::kControl) return false;
    const auto& setup = transfer.setup;
    const bool describes =
        setup.value == usb::descriptor(usb::kDeviceType) || setup.value == usb::descriptor(usb::kConfigurationType);
    return (setup.request_type == usb::kToHost && setup.request == usb::kGetDescriptor && describes) ||
           (setup.request_type == usb::kToDevice && setup.request == usb::kSetConfiguration);
}

/// A transcript without that, and without how many frames a stream brings before it is stopped, and which: each side has
/// its own speed.
std::string comparable(const Transfers& transfers) {
    std::string text, last;
    for (const Transfer& transfer : transfers) {
        if (is_up_to_the_host(transfer)) continue;
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
            record(bus.attach(each.model, State::kBare), each.in_process);
        printed_in_process = use(product_ids);
    }
    EXPECT_EQ(printed, printed_in_process);
    for (const Case& each : cases)
        EXPECT_EQ(comparable(each.mocked), comparable(each.in_process)) << each.model;
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
    _tovix* const camera = opened(0x0113);
    stream(camera, 10);
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
    close(camera);
}

}  // namespace
