// SPDX-License-Identifier: Apache-2.0
// Streams of cameras that fail, fall silent, or are pulled out.
#include "stream_fixture.h"

namespace {

using namespace tovix::test;
using tovix::platform::Operation;

class StreamFaults : public StreamTest {
  protected:
    void plant(Fault fault) { port.access()->faults().plant(fault); }
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
    for (const bool stopped : {true, false}) {
        plant({.place = Place::kBulkIn, .kind = FaultKind::kStall, .times = Fault::kForEver});
        StderrCapture quiet;
        const std::int64_t before_us = bus->now_us();
        EXPECT_EQ(while_stepping([&] { return tovix_wait_for_capture_to_buffer(camera); }, 1'000), TOVIX_ENODATA);
        EXPECT_GE(bus->now_us() - before_us, 5'000'000);
        const std::string text = quiet.text();
        const auto tries = std::count(text.begin(), text.end(), '\n');
        EXPECT_TRUE(tries >= 5 && tries < 70)
            << tries << " tries: at most 1, 2, 4 ... 64 ms apart, then 100 ms, for 5 s";
        EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_ENODATA);
        port.access()->faults().clear();
        if (stopped) {
            EXPECT_EQ(tovix_stop_streaming(camera), 0);
        }
        // Its thread may still be switching the video off; whatever the moment, the new stream is not disturbed.
        EXPECT_EQ(tovix_start_streaming(camera), 0);
        for (int i = 0; i < 5; ++i) {
            const std::int32_t index = next_frame();
            ASSERT_GE(index, 0);
            tovix_release_buffer(camera, index);
        }
    }
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

TEST_F(StreamFaults, HeldBuffersAfterARefusedReadDoNotSpinAndDoNotHideAnUnplug) {
    begin();
    ASSERT_EQ(next_frame(), 0);
    ASSERT_EQ(next_frame(), 1);
    StderrCapture capture;
    // The third, while no read is out: the next one is refused, at once and again, and before the pause is over the frame
    // is taken.
    bus->plant({.operation = Operation::kReadPipeAsync, .skip = 0, .times = 2, .status = kIOReturnBusy});
    ASSERT_EQ(next_frame(), 2);
    for (int i = 0; i < 200; ++i) {
        bus->step(10'000);
        std::this_thread::yield();
    }
    const std::string text = capture.text();
    EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 8) << text;
    port.access()->unplug();
    EXPECT_EQ(while_stepping([&] { return tovix_wait_for_capture_to_buffer(camera); }, 1'000), TOVIX_ENODATA);
    EXPECT_EQ(tovix_release_buffer(camera, 0), 0);
    EXPECT_EQ(tovix_disable_streaming(camera), 0) << "a stream that ended by itself needs no stop";
}

TEST_F(StreamFaults, UnpluggedWhileItStartsTheCameraDoesNotStart) {
    StderrCapture quiet;
    ASSERT_EQ(tovix_enable_streaming(camera), 0);
    plant({.place = Place::kRegisterWrite, .kind = FaultKind::kUnplug, .address = TOVIX_VIDEO_SWITCH, .skip = 1});
    EXPECT_EQ(tovix_start_streaming(camera), -1);
}

}  // namespace
