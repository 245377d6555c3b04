// SPDX-License-Identifier: Apache-2.0
// Streams of cameras that fail, fall silent, or are pulled out.
#include "stream_fixture.h"

namespace {

using namespace tovix::test;
using tovix::platform::Operation;
using Clock = std::chrono::steady_clock;

class StreamFaults : public StreamTest {
  protected:
    void plant(Fault fault) { port.access()->faults().plant(fault); }
    /// Hold all three buffers, with no read out: the read that follows the third frame is refused, at once and again, and
    /// before the pause is over the frame is taken.
    void hold_the_third() {
        bus->plant({.operation = Operation::kReadPipeAsync, .skip = 0, .times = 2, .status = kIOReturnBusy});
        ASSERT_EQ(next_frame(), 2);
    }
    /// Plugged in again it is another device: the handle is closed, and the camera opened anew.
    void replug() {
        _tovix* handle = camera;
        EXPECT_EQ(tovix_camera_close(&handle), 0);
        port.access()->plug_in();
        new (&camera) OpenCamera;
        SetUp();
    }
    double seconds_since(Clock::time_point start) {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }
};

TEST_F(StreamFaults, AFailedTransferIsReadAgain) {
    const struct {
        FaultKind kind;
        const char* printed;
    } cases[] = {
        {FaultKind::kStall, "error: read async returned -536854449\n"},
        {FaultKind::kOverrun, "error: read async returned -536870168\n"},
        {FaultKind::kShortAnswer, "error: read async only read 512/1024 bytes\n"},
        {FaultKind::kEmptyAnswer, "error: read async only read 0/1024 bytes\n"},
    };
    for (const auto& [kind, printed] : cases) {
        begin();
        const std::int32_t before = next_frame();
        ASSERT_GE(before, 0);
        tovix_release_buffer(camera, before);
        plant({.place = Place::kBulkIn, .kind = kind});
        StderrCapture capture;
        const std::uint32_t sequence_before = sequence();
        bus->step(kFramePeriodUs);
        ASSERT_TRUE(eventually([&] {
            const StreamLock lock(camera->stream.stream_mutex);
            return camera->stream.failures != 0 && camera->stream.reads_in_flight == 1;
        })) << "the failed read is out again";
        const std::int32_t index = next_frame();
        EXPECT_EQ(capture.text(), printed);
        EXPECT_EQ(sequence(), sequence_before + 1) << "the failed one counted";
        EXPECT_EQ(index, (before + 1) % 3) << "the same buffer again";
        serial_in(index);
        tovix_release_buffer(camera, index);
        EXPECT_EQ(stop(), 0);
        EXPECT_EQ(tovix_disable_streaming(camera), 0);
    }
}

TEST_F(StreamFaults, ARefusedReadIsTriedAgainAfterAPause) {
    begin();
    bus->plant({.operation = Operation::kReadPipeAsync, .skip = 0, .times = 3, .status = kIOReturnNoMemory});
    EXPECT_EQ(next_frame(), 0);
    // Buffer 1 was to be read next and was refused; whichever comes, frames go on.
    EXPECT_GE(while_stepping([&] { return tovix_wait_for_capture_to_buffer(camera); }, 1'000), 0);
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamFaults, AReleaseIssuesTheReadThatWasRefused) {
    begin();
    bus->plant({.operation = Operation::kReadPipeAsync, .skip = 0, .times = 2, .status = kIOReturnBusy});
    EXPECT_EQ(next_frame(), 0);
    ASSERT_TRUE(eventually([&] {
        const StreamLock lock(camera->stream.stream_mutex);
        return camera->stream.failures > 1;
    }));
    EXPECT_EQ(tovix_release_buffer(camera, 0), 0);
    {
        const StreamLock lock(camera->stream.stream_mutex);
        EXPECT_EQ(camera->stream.reads_in_flight, 1);
    }
    EXPECT_GE(next_frame(), 0);
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamFaults, FiveSecondsOfFailuresEndTheStream) {
    begin();
    plant({.place = Place::kBulkIn, .kind = FaultKind::kStall, .times = Fault::kForEver});
    StderrCapture quiet;
    const std::int64_t before_us = bus->now_us();
    EXPECT_EQ(while_stepping([&] { return tovix_wait_for_capture_to_buffer(camera); }, 1'000), TOVIX_ENODATA);
    const std::int64_t took_us = bus->now_us() - before_us;
    EXPECT_GE(took_us, 5'000'000);
    const std::string text = quiet.text();
    const auto tries = std::count(text.begin(), text.end(), '\n');
    EXPECT_TRUE(tries >= 5 && tries < 70) << tries << " tries: at most 1, 2, 4 ... 64 ms apart, then 100 ms, for 5 s";
    EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_ENODATA);
    EXPECT_EQ(tovix_stop_streaming(camera), 0);
    port.access()->faults().clear();
    EXPECT_EQ(tovix_start_streaming(camera), 0) << "a new start may follow";
    EXPECT_GE(next_frame(), 0);
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamFaults, AThreadThatGivesUpTellsTheStart) {
    ASSERT_EQ(tovix_enable_streaming(camera), 0);
    bus->plant({.operation = Operation::kCreateInterfaceAsyncEventSource});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_start_streaming(camera), -1); }),
              "error: unable to create async event source\n");
    plant({.place = Place::kRegisterWrite, .kind = FaultKind::kStall, .address = TOVIX_VIDEO_SWITCH, .times = 2});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(tovix_start_streaming(camera), -1); }),
              "TVXUSBWriteControlPipe Err 0xE000404F -536854449\nerror: unable to send stop video command\n"
              "TVXUSBWriteControlPipe Err 0xE000404F -536854449\nerror: unable to enable video\n");
    EXPECT_EQ(tovix_stop_streaming(camera), -1);
    EXPECT_EQ(tovix_start_streaming(camera), 0) << "a new start may follow";
    EXPECT_GE(next_frame(), 0);
    plant({.place = Place::kRegisterWrite, .kind = FaultKind::kStall, .address = TOVIX_VIDEO_SWITCH});
    StderrCapture capture;
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(capture.text(), "TVXUSBWriteControlPipe Err 0xE000404F -536854449\nerror: unable to stop video\n");
}

TEST_F(StreamFaults, AFailedTransferDuringAStopIsReadAgain) {
    begin();
    EXPECT_EQ(next_frame(), 0);
    plant({.place = Place::kBulkIn, .kind = FaultKind::kStall, .times = 3});
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(sequence(), 2u) << "the stop waited for the frame";
}

TEST_F(StreamFaults, UnplugWhileHoldingBuffersAndWaiting) {
    for (int holds = 0; holds <= 3; ++holds) {
        begin();
        for (int i = 0; i < std::min(holds, 2); ++i)
            ASSERT_EQ(next_frame(), i);
        if (holds == 3) hold_the_third();
        std::vector<std::thread> waiters;
        std::atomic<int> ended{0};
        for (int i = 0; i < 3; ++i) {
            waiters.emplace_back([&] {
                if (tovix_wait_for_capture_to_buffer(camera) == TOVIX_ENODATA) ++ended;
            });
        }
        ASSERT_TRUE(eventually([&] {
            const StreamLock lock(camera->stream.stream_mutex);
            return camera->stream.waiters == 3;
        }));
        StderrCapture quiet;
        const auto pulled = Clock::now();
        port.access()->unplug();
        while (ended < 3 && seconds_since(pulled) < 5) {
            bus->step(1'000);  // where no read is out the loop's slices end by the clock
            std::this_thread::yield();
        }
        for (std::thread& waiter : waiters)
            waiter.join();
        EXPECT_LT(seconds_since(pulled), 2.0) << "generous: the machine may be busy";
        EXPECT_EQ(ended, 3) << holds << " held";
        // What a waiter has been told holds at once for every other call.
        EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_ENODATA);
        for (int i = 0; i < holds; ++i)
            EXPECT_EQ(tovix_release_buffer(camera, i), 0);
        EXPECT_EQ(holds % 2 == 0 ? tovix_stop_streaming(camera) : 0, 0);
        EXPECT_EQ(tovix_disable_streaming(camera), 0);
        EXPECT_EQ(tovix_stop_streaming(camera), -1);
        replug();
    }
}

TEST_F(StreamFaults, HeldBuffersAfterARefusedReadDoNotSpin) {
    begin();
    ASSERT_EQ(next_frame(), 0);
    ASSERT_EQ(next_frame(), 1);
    StderrCapture capture;
    hold_the_third();
    for (int i = 0; i < 200; ++i) {
        bus->step(10'000);
        std::this_thread::yield();
    }
    const std::string text = capture.text();
    EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 8) << text;
    EXPECT_EQ(tovix_release_buffer(camera, 0), 0);
    EXPECT_GE(next_frame(), TOVIX_EINVAL) << "reading goes on";
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamFaults, AStartWaitsForTheThreadOfALostStream) {
    begin();
    plant({.place = Place::kBulkIn, .kind = FaultKind::kStall, .times = Fault::kForEver});
    StderrCapture quiet;
    EXPECT_EQ(while_stepping([&] { return tovix_wait_for_capture_to_buffer(camera); }, 1'000), TOVIX_ENODATA);
    port.access()->faults().clear();
    // Its thread may still be switching the video off; whatever the moment, the new stream is not disturbed.
    EXPECT_EQ(tovix_start_streaming(camera), 0);
    for (int i = 0; i < 5; ++i) {
        const std::int32_t index = next_frame();
        ASSERT_GE(index, 0);
        tovix_release_buffer(camera, index);
    }
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamFaults, ARefusedAbortIsTriedAgain) {
    begin();
    ASSERT_EQ(next_frame(), 0);
    port.access()->control({0x40, 0x12, 0, TOVIX_VIDEO_SWITCH, 4}, std::array<std::uint8_t, 4>{}.data());
    bus->plant({.operation = Operation::kAbortPipe, .skip = 0, .times = 1, .status = kIOReturnBusy});
    EXPECT_EQ(while_stepping([&] { return tovix_stop_streaming(camera); }, 100'000), 0);
}

TEST_F(StreamFaults, UnplugWhileIdleStartingAndStopping) {
    StderrCapture quiet;
    for (const char* when : {"idle", "enabled", "starting", "stopping", "not stopped"}) {
        const std::string_view moment = when;
        if (moment == "starting")
            plant(
                {.place = Place::kRegisterWrite, .kind = FaultKind::kUnplug, .address = TOVIX_VIDEO_SWITCH, .skip = 1});
        if (moment != "idle") {
            ASSERT_EQ(tovix_enable_streaming(camera), 0);
        }
        if (moment == "starting") {
            EXPECT_EQ(tovix_start_streaming(camera), -1);
        } else if (moment == "stopping" || moment == "not stopped") {
            ASSERT_EQ(tovix_start_streaming(camera), 0);
            std::thread stopper;
            if (moment == "stopping") stopper = std::thread([&] { EXPECT_EQ(tovix_stop_streaming(camera), 0); });
            if (moment == "stopping") eventually([&] { return bool{camera->stream.stream_stopping}; });
            port.access()->unplug();
            if (stopper.joinable()) stopper.join();
        } else {
            port.access()->unplug();
        }
        std::uint32_t word = 0;
        EXPECT_EQ(tz_usb_read_tovix_u32(camera, TOVIX_FO_SIZE, &word), -1) << when;
        if (moment == "idle") {
            EXPECT_EQ(tovix_enable_streaming(camera), 0);
        } else if (moment == "enabled") {
            EXPECT_EQ(tovix_start_streaming(camera), -1);
        }
        if (moment == "not stopped") {
            ASSERT_TRUE(eventually([&] { return !camera->stream.stream_running; }));
            EXPECT_EQ(tovix_disable_streaming(camera), 0) << "a stream that ended by itself needs no stop";
        }
        replug();
    }
}

}  // namespace
