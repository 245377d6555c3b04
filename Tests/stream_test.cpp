// SPDX-License-Identifier: Apache-2.0
// The ring of three buffers while the camera behaves.
#include "stream_fixture.h"

namespace {

using namespace tovix::test;

TEST_F(StreamTest, BuffersTakeTurns) {
    begin();
    for (const std::int32_t expected : {0, 1, 2, 0, 1, 2}) {
        EXPECT_EQ(next_frame(), expected);
        serial_in(expected);
        EXPECT_EQ(tovix_release_buffer(camera, expected), 0);
    }
    EXPECT_EQ(stop(), 0);
    EXPECT_FALSE(camera->stream.stream_running);
    EXPECT_FALSE(camera->stream.stream_stopping);
    const StreamLock lock(camera->stream.stream_mutex);
    EXPECT_EQ(camera->stream.reads_in_flight, 0);
    EXPECT_EQ(camera->stream.reading_index, -1);
}

TEST_F(StreamTest, AHeldBufferIsLeftAlone) {
    begin();
    EXPECT_EQ(next_frame(), 0);
    tovix_release_buffer(camera, 0);
    EXPECT_EQ(next_frame(), 1);
    const std::uint32_t held = serial_in(1);
    for (const std::int32_t expected : {2, 0, 2, 0, 2}) {
        EXPECT_EQ(next_frame(), expected);
        EXPECT_EQ(tovix_release_buffer(camera, expected), 0);
        EXPECT_EQ(serial_in(1), held);
    }
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(serial_in(1), held) << "a hold outlives the stop";
    EXPECT_EQ(tovix_start_streaming(camera), 0);
    for (const std::int32_t other : {0, 2}) {
        const std::int32_t index = next_frame();
        EXPECT_NE(index, 1) << other;
        tovix_release_buffer(camera, index);
    }
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamTest, WithTwoHeldTheNewestIsTakenAtOnce) {
    begin();
    EXPECT_EQ(next_frame(), 0);
    EXPECT_EQ(next_frame(), 1);
    skip_frames(1);  // lands in buffer 2, which is at once read into again
    EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_EINVAL);
    EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_EINVAL) << "nothing was handed out";
    EXPECT_EQ(tovix_release_buffer(camera, 0), 0);
    skip_frames(1);  // into 2, and the next into 0
    EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), 2);
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamTest, WithAllHeldAReleaseGoesOn) {
    begin();
    EXPECT_EQ(next_frame(), 0);
    EXPECT_EQ(next_frame(), 1);
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_ENODATA);
    // The drained frame is in buffer 2. A new start reads into it again, whoever has looked at it.
    EXPECT_EQ(tovix_start_streaming(camera), 0);
    {
        const StreamLock lock(camera->stream.stream_mutex);
        EXPECT_EQ(camera->stream.reading_index, 2);
    }
    EXPECT_EQ(stop(), 0);
    // All three held: no read at the start; the next release issues one.
    camera->stream.buffers[2].hold_count = 1;
    {
        const StreamLock lock(camera->stream.stream_mutex);
        camera->stream.acquired_sequence = camera->stream.frame_sequence;
    }
    const std::string printed = printed_by([&] { EXPECT_EQ(tovix_start_streaming(camera), 0); });
    EXPECT_NE(printed.find("all buffers are in use - unable to stream data\n"), std::string::npos);
    bus->step(10 * kFramePeriodUs);
    EXPECT_EQ(tovix_release_buffer(camera, 1), 0);
    skip_frames(1);
    EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_EINVAL) << "the only free buffer is read into again";
    EXPECT_EQ(tovix_release_buffer(camera, 0), 0);
    skip_frames(1);
    EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), 1);
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamTest, AWaitGivesTheNewestAndEachFrameOnce) {
    begin();
    skip_frames(5);
    const std::int32_t newest = tovix_wait_for_capture_to_buffer(camera);
    EXPECT_EQ(newest, 1) << "frames go to 0 1 2 0 1";
    EXPECT_EQ(camera->stream.buffers[newest].sequence, 5u);
    std::atomic<int> woken{0};
    std::atomic<std::int32_t> first{-1000};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            const std::int32_t index = tovix_wait_for_capture_to_buffer(camera);
            if (index >= 0) tovix_release_buffer(camera, index);
            first = index;
            ++woken;
        });
    }
    // Four waiters need four frames.
    for (int frames = 0; frames < 4; ++frames) {
        const int before = woken;
        bus->step(kFramePeriodUs);
        ASSERT_TRUE(eventually([&] { return woken > before; }));
        EXPECT_EQ(woken, before + 1);
    }
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamTest, StopWakesAWaiterWithTheDrainedFrame) {
    begin();
    EXPECT_EQ(next_frame(), 0);
    std::atomic<std::int32_t> waited{0};
    std::thread waiter([&] { waited = tovix_wait_for_capture_to_buffer(camera); });
    ASSERT_TRUE(waited_for_by(1));
    EXPECT_EQ(stop(), 0);
    waiter.join();
    EXPECT_EQ(waited, TOVIX_ENODATA);
    EXPECT_EQ(sequence(), 2u) << "the drained frame is kept like any other";
}

TEST_F(StreamTest, CallsOutOfOrderAreRefused) {
    const auto message = [](std::int32_t expected, const std::function<std::int32_t()>& call) {
        return printed_by([&] { EXPECT_EQ(call(), expected); });
    };
    EXPECT_EQ(tovix_release_buffer(camera, 0), TOVIX_EINVAL);
    EXPECT_EQ(tovix_disable_streaming(camera), 0);
    EXPECT_EQ(tovix_get_buffer_address(camera, 0), nullptr);
    EXPECT_EQ(message(-1, [&] { return tovix_stop_streaming(camera); }),
              "error: unable to stop a stream which is not running\n");
    EXPECT_EQ(message(TOVIX_EINVAL, [&] { return tovix_start_streaming(camera); }),
              "error: streaming is not enabled\n");
    EXPECT_EQ(message(TOVIX_ENODATA, [&] { return tovix_wait_for_capture_to_buffer(camera); }),
              "stream is not running - no data to wait for...\n");
    EXPECT_EQ(message(0, [&] { return tovix_enable_streaming(camera); }),
              "tovix_enable_streaming: number of bytes expected: 1024\n");
    EXPECT_EQ(message(-1, [&] { return tovix_enable_streaming(camera); }), "error: stream is already running\n");
    EXPECT_EQ(tovix_get_video_frame_size(camera), 1024u);
    EXPECT_EQ(tovix_get_buffer_count(camera), 3);
    EXPECT_EQ(tovix_get_buffer_status(camera, 0), TOVIX_ENOTSUP);
    EXPECT_EQ(tovix_get_buffer_acquired_size(camera, 9), TOVIX_ENOTSUP);
    EXPECT_NE(tovix_get_buffer_address(camera, 2), nullptr);
    for (const std::int32_t outside : {-1, 3, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(tovix_get_buffer_address(camera, outside), nullptr);
        EXPECT_EQ(tovix_release_buffer(camera, outside), TOVIX_EINVAL);
    }
    ASSERT_EQ(tovix_start_streaming(camera), 0);
    EXPECT_EQ(message(TOVIX_EINVAL, [&] { return tovix_start_streaming(camera); }),
              "error: stream is already running\n");
    EXPECT_EQ(message(-1, [&] { return tovix_enable_streaming(camera); }), "error: stream is already running\n");
    EXPECT_EQ(message(-1, [&] { return tovix_disable_streaming(camera); }),
              "error: unable to disable stream while stream is running\n");
    EXPECT_EQ(tovix_release_buffer(camera, 0), TOVIX_EINVAL) << "not held";
    EXPECT_EQ(next_frame(), 0);
    EXPECT_EQ(tovix_release_buffer(camera, 0), 0);
    EXPECT_EQ(tovix_release_buffer(camera, 0), TOVIX_EINVAL) << "released already";
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(tovix_disable_streaming(camera), 0);
    EXPECT_EQ(tovix_get_buffer_address(camera, 0), nullptr);
    EXPECT_EQ(tovix_get_video_frame_size(camera), 1024u) << "as the last enable fixed it";
}

TEST_F(StreamTest, FramesThatCannotBeAreRefused) {
    for (const auto& [width, height] : {std::pair{0, 16}, {64, 0}, {65'535, 65'535}}) {
        camera->width = static_cast<std::uint16_t>(width);
        camera->height = static_cast<std::uint16_t>(height);
        EXPECT_EQ(tovix_enable_streaming(camera), TOVIX_EINVAL) << width << " x " << height;
        EXPECT_EQ(tovix_get_buffer_address(camera, 0), nullptr);
    }
}

TEST_F(StreamTest, CloseEndsAForgottenStream) {
    begin();
    EXPECT_EQ(next_frame(), 0);
    _tovix* handle = camera;
    EXPECT_EQ(while_stepping([&] { return tovix_camera_close(&handle); }), 0);
    new (&camera) OpenCamera;  // the fixture closes what it opened
}

TEST_F(StreamTest, SilenceDuringAStopIsWaitedOutForTenSeconds) {
    begin();
    for (const std::uint32_t refused_aborts : {0u, 1u}) {  // which are tried again
        const auto round = static_cast<std::int32_t>(refused_aborts);
        EXPECT_EQ(next_frame(), round);
        tovix_release_buffer(camera, round);
        // The camera falls silent behind the library's back.
        port.access()->control({0x40, 0x12, 0, TOVIX_VIDEO_SWITCH, 4}, std::array<std::uint8_t, 4>{}.data());
        bus->plant({.operation = tovix::platform::Operation::kAbortPipe,
                    .skip = 0,
                    .times = refused_aborts,
                    .status = kIOReturnBusy});
        const std::int64_t before_us = bus->now_us();
        EXPECT_EQ(while_stepping([&] { return tovix_stop_streaming(camera); }, 100'000), 0);
        EXPECT_GE(bus->now_us() - before_us, 10'000'000);
        EXPECT_EQ(tovix_start_streaming(camera), 0) << "a new start may follow";
    }
    EXPECT_EQ(next_frame(), 2);
    EXPECT_EQ(stop(), 0);
}

TEST_F(StreamTest, AWaiterMayComeWhenTheStreamHasJustBeenDisabled) {
    // It has seen the stream run, and takes the lock only after the ring was given back.
    for (int round = 0; round < 3; ++round) {
        begin();
        const std::int32_t held = next_frame();
        ASSERT_GE(held, 0);
        skip_frames(1);  // one that nobody has taken
        EXPECT_EQ(stop(), 0);
        EXPECT_EQ(tovix_disable_streaming(camera), 0);
        ASSERT_EQ(pthread_mutex_trylock(&camera->stream.stream_mutex.native), 0) << "the lock is still one";
        pthread_mutex_unlock(&camera->stream.stream_mutex.native);
        camera->stream.stream_running.set(true);  // as the late waiter saw it
        std::thread late([&] { EXPECT_EQ(tovix_wait_for_capture_to_buffer(camera), TOVIX_ENODATA); });
        ASSERT_TRUE(waited_for_by(1)) << "nothing was handed out";
        {
            const StreamLock lock(camera->stream.stream_mutex);
            camera->stream.stream_running.set(false);
            pthread_cond_broadcast(&camera->stream.stream_cond);
        }
        late.join();
    }
}

}  // namespace
