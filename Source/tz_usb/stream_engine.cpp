// SPDX-License-Identifier: Apache-2.0
// The acquisition thread: switches the video on, keeps one asynchronous read out, stamps and announces what
// completes, and on request drains the last read and switches the video off.
//
//             +-- complete: next buffer --+
//             v                           |
//   thread start --> read out --> completion (on this thread, inside its run loop)
//             ^                           |
//             +-- failed: same buffer, ---+
//                 after a growing pause
//
// A read that fails is issued again: at once the first time, then after pauses that double from 1 ms to 100 ms, so that a
// camera in trouble costs no processor time. When reads have failed for 5 s without a frame between them, or as soon as the
// camera has left the bus, the stream has ended.
#include "stream_engine.h"

#include <algorithm>

#include "report.h"

namespace {

constexpr UInt8 kVideoPipe = 1;
constexpr std::uint32_t kVideoOn = 0x80;
constexpr std::uint32_t kVideoOff = 0;
constexpr UInt32 kBeforeVideoOnUs = 10'000;

constexpr std::uint32_t kFirstRetryPauseUs = 1'000;
constexpr std::uint32_t kLongestRetryPauseUs = 100'000;
constexpr std::uint64_t kGiveUpAfterNs = 5'000'000'000;
constexpr std::uint32_t kGiveUpAfterFailures = 5;  // so that two bad frames of a long exposure are not the end

constexpr double kIdleSliceSeconds = 0.05;

constexpr double kDrainSliceSeconds = 1.0;
constexpr int kSilentDrainSlices = 10;

std::int32_t switch_video(_tovix* camera, std::uint32_t state) {
    return tz_usb_write_tovix_bytes(camera, TOVIX_VIDEO_SWITCH, &state, sizeof state);
}

/// Leave no stall and no transfer on the video pipe.
void clear_video_pipe(_tovix* camera) {
    (*camera->interface)->ClearPipeStallBothEnds(camera->interface, kVideoPipe);
    (*camera->interface)->AbortPipe(camera->interface, kVideoPipe);
}

/// The stream has come to its end: nobody waits for a frame any longer, and the thread leaves its loop.
void lose_camera(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    camera->stream.camera_lost = true;
    camera->stream.reading_index = -1;
    camera->stream.stream_running.set(false);
    pthread_cond_broadcast(&camera->stream.stream_cond);
    CFRunLoopStop(camera->stream.stream_run_loop);
}

void forget_failures(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    camera->stream.failures = 0;
    camera->stream.retry_pause_us = 0;
}

/// A read was refused or failed. Says when to try again: after retry_pause_us on the acquisition thread, or at once when
/// that is 0.
void note_failure(_tovix* camera, IOReturn status) TZ_REQUIRES(camera->stream.stream_mutex) {
    const std::uint64_t now_ns = mach_absolute_time();
    if (camera->stream.failures == 0) camera->stream.failing_since_ns = now_ns;
    ++camera->stream.failures;
    if (status == kIOReturnNoDevice || (camera->stream.failures >= kGiveUpAfterFailures &&
                                        now_ns - camera->stream.failing_since_ns >= kGiveUpAfterNs)) {
        lose_camera(camera);
        return;
    }
    if (camera->stream.failures > 1) {
        camera->stream.retry_pause_us =
            std::clamp(2 * camera->stream.retry_pause_us, kFirstRetryPauseUs, kLongestRetryPauseUs);
    }
    CFRunLoopStop(camera->stream.stream_run_loop);  // the thread's loop has to look at the pause
}

/// Issue the read of one frame into buffer `index`.
std::int32_t usb_stream_schedule_read(_tovix* camera, std::int32_t index) TZ_REQUIRES(camera->stream.stream_mutex);

/// Choose the buffer for the next read, the free one with the oldest frame, and issue the read.
std::int32_t usb_stream_buffer_read_next(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    std::int32_t oldest = -1;
    for (std::int32_t i = 0; i < kStreamBuffers; ++i) {
        if (camera->stream.buffers[i].hold_count != 0) continue;
        if (oldest < 0 || camera->stream.buffers[i].sequence < camera->stream.buffers[oldest].sequence) oldest = i;
    }
    if (oldest < 0) {
        std::fprintf(stderr, "all buffers are in use - unable to stream data\n");
        return TOVIX_EINVAL;
    }
    return usb_stream_schedule_read(camera, oldest);
}

/// Read into the next buffer. When that is refused no buffer stays marked, so that a retry may choose another.
void read_next(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    const std::int32_t result = usb_stream_buffer_read_next(camera);
    if (result == TOVIX_OK) return;
    camera->stream.reading_index = -1;
    if (result == TOVIX_EINVAL) {
        forget_failures(
            camera);  // all buffers are held: the next release issues a read, and until then nothing is tried
    } else {
        note_failure(camera, result);
    }
}

/// Try again after a failure: the same buffer when its transfer failed, else the next.
void retry_read(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    if ((*camera->interface)->GetPipeStatus(camera->interface, kVideoPipe) != kIOReturnSuccess)
        (*camera->interface)->ClearPipeStallBothEnds(camera->interface, kVideoPipe);
    if (camera->stream.reading_index < 0) {
        read_next(camera);
    } else if (const std::int32_t result = usb_stream_schedule_read(camera, camera->stream.reading_index);
               result != TOVIX_OK) {
        camera->stream.reading_index = -1;
        note_failure(camera, result);
    }
}

/// A transfer failed, or brought less than a frame: read into the same buffer again.
void read_again(_tovix* camera, IOReturn status) TZ_REQUIRES(camera->stream.stream_mutex) {
    if (camera->stream.drain_aborted) {
        camera->stream.reading_index = -1;
        return;
    }
    note_failure(camera, status);
    if (!camera->stream.camera_lost && camera->stream.retry_pause_us == 0) retry_read(camera);
}

/// Completion of an asynchronous read, on the acquisition thread.
void usb_stream_buffer_ready_callback(void* refcon, IOReturn result, UInt32 bytes) {
    auto* const camera = static_cast<_tovix*>(refcon);
    const StreamLock lock(camera->stream.stream_mutex);
    const std::int32_t index = camera->stream.reading_index;
    --camera->stream.reads_in_flight;
    if (result != kIOReturnSuccess) {
        std::fprintf(stderr, "error: read async returned %d\n", result);
        read_again(camera, result);
        return;
    }
    if (bytes != camera->stream.frame_size) {
        std::fprintf(stderr, "error: read async only read %u/%u bytes\n", bytes, camera->stream.frame_size);
        read_again(camera, kIOReturnUnderrun);
        return;
    }
    forget_failures(camera);
    camera->stream.reading_index = -1;
    stream_buffer& buffer = camera->stream.buffers[index];
    buffer.acquired_size = bytes;
    buffer.sequence = ++camera->stream.frame_sequence;
    buffer.hold_count = 0;
    if (camera->stream.stream_running && !camera->stream.stream_stopping) read_next(camera);
    pthread_cond_broadcast(&camera->stream.stream_cond);
}

std::int32_t usb_stream_schedule_read(_tovix* camera, std::int32_t index) {
    if (camera->stream.reading_index != -1 && camera->stream.reading_index != index) {
        std::fprintf(stderr, "attempting to read %d when in progress of reading %d", index,
                     camera->stream.reading_index);
        return TOVIX_EINVAL;
    }
    camera->stream.reading_index = index;
    stream_buffer& buffer = camera->stream.buffers[index];
    const IOReturn status = (*camera->interface)
                                ->ReadPipeAsync(camera->interface, kVideoPipe, buffer.data, camera->stream.frame_size,
                                                usb_stream_buffer_ready_callback, camera);
    if (status != kIOReturnSuccess) {
        std::fprintf(stderr, "error: unable to configure async read\n");
        return status;
    }
    ++camera->stream.reads_in_flight;
    buffer.acquired_size = 0;
    buffer.sequence = 0;
    return TOVIX_OK;
}

/// Whether a read that failed or was refused waits to be tried again.
bool retry_waits(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    return camera->stream.failures != 0 && camera->stream.reads_in_flight == 0 && !camera->stream.camera_lost &&
           !camera->stream.drain_aborted;
}

/// Without a read nothing tells of a camera that leaves the bus, so it is asked for.
void look_for_camera(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    if ((*camera->interface)->GetPipeStatus(camera->interface, kVideoPipe) == kIOReturnNoDevice) lose_camera(camera);
}

/// Switch the video on and issue the first read. The event source, or null when the stream could not be started.
CFRunLoopSourceRef start_reading(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    CFRunLoopSourceRef created = nullptr;
    const CFRunLoopRef run_loop = CFRunLoopGetCurrent();
    if (run_loop == nullptr ||
        (*camera->interface)->CreateInterfaceAsyncEventSource(camera->interface, &created) != kIOReturnSuccess) {
        std::fprintf(stderr, "error: unable to create async event source\n");
        return nullptr;
    }
    if (switch_video(camera, kVideoOff) != TOVIX_OK) std::fprintf(stderr, "error: unable to send stop video command\n");
    clear_video_pipe(camera);
    IOSleepMicroseconds(kBeforeVideoOnUs);
    if (switch_video(camera, kVideoOn) != TOVIX_OK) {
        std::fprintf(stderr, "error: unable to enable video\n");
        CFRelease(created);
        return nullptr;
    }
    camera->stream.stream_run_loop = run_loop;
    CFRunLoopAddSource(run_loop, created, kCFRunLoopDefaultMode);
    camera->stream.stream_running.set(true);
    camera->stream.thread_state = StreamThread::kRunning;
    read_next(camera);
    return created;
}

/// Whether a stop has been requested.
bool usb_stream_stopping(_tovix* camera) {
    const StreamLock lock(camera->stream.stream_mutex);
    return static_cast<bool>(camera->stream.stream_stopping);
}

/// Deliver completions until a stop is requested or the camera is lost. While no read is out - one waits to be tried
/// again, or all buffers are held - the loop runs in slices.
void run_stream(_tovix* camera) {
    while (!usb_stream_stopping(camera)) {
        bool read_is_out = false;
        double slice_seconds = kIdleSliceSeconds;
        {
            const StreamLock lock(camera->stream.stream_mutex);
            if (camera->stream.camera_lost) return;
            read_is_out = camera->stream.reads_in_flight != 0;
            if (retry_waits(camera)) slice_seconds = camera->stream.retry_pause_us / 1e6;
        }
        if (read_is_out) {
            CFRunLoopRun();
        } else if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, slice_seconds, true) == kCFRunLoopRunTimedOut) {
            const StreamLock lock(camera->stream.stream_mutex);
            if (retry_waits(camera)) {
                retry_read(camera);
            } else if (camera->stream.reads_in_flight == 0) {
                look_for_camera(camera);
            }
        }
    }
}

/// Wait for the read that is out. Its frame is kept like any other. A camera that stays silent for 10 s has its read
/// cancelled.
void drain(_tovix* camera) TZ_REQUIRES(camera->stream.stream_mutex) {
    int silent_slices = 0;
    while (camera->stream.reads_in_flight != 0 || (retry_waits(camera) && camera->stream.reading_index >= 0)) {
        const double seconds =
            camera->stream.reads_in_flight != 0 ? kDrainSliceSeconds : camera->stream.retry_pause_us / 1e6;
        camera->stream.stream_mutex.unlock();
        const CFRunLoopRunResult result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, true);
        camera->stream.stream_mutex.lock();
        if (result == kCFRunLoopRunHandledSource) silent_slices = 0;
        if (result != kCFRunLoopRunTimedOut) continue;
        if (camera->stream.reads_in_flight == 0) {
            retry_read(camera);
        } else if (++silent_slices % kSilentDrainSlices == 0) {
            camera->stream.drain_aborted = true;
            (*camera->interface)->AbortPipe(camera->interface, kVideoPipe);
        }
    }
}

void switch_video_off(_tovix* camera) {
    if (switch_video(camera, kVideoOff) != TOVIX_OK) std::fprintf(stderr, "error: unable to stop video\n");
    clear_video_pipe(camera);
}

}  // namespace

void usb_stream_resume_reading(_tovix* camera) {
    const bool idle = camera->stream.reads_in_flight == 0 && camera->stream.reading_index == -1;
    if (camera->stream.stream_running && !camera->stream.stream_stopping && !camera->stream.camera_lost && idle)
        read_next(camera);
}

void* usb_stream_thread_callback(void* handle) {
    auto* const camera = static_cast<_tovix*>(handle);

    camera->stream.stream_mutex.lock();
    camera->stream.stream_stopping.set(false);
    camera->stream.stream_running.set(false);
    const CFRunLoopSourceRef event_source = start_reading(camera);
    if (event_source == nullptr) camera->stream.thread_state = StreamThread::kGaveUp;
    pthread_cond_broadcast(&camera->stream.stream_cond);
    camera->stream.stream_mutex.unlock();
    if (event_source == nullptr) return nullptr;

    run_stream(camera);

    camera->stream.stream_mutex.lock();
    drain(camera);
    if (camera->stream.camera_lost) {
        // A camera in trouble may take seconds to answer; nobody who waits for a frame is kept waiting for that.
        camera->stream.stream_mutex.unlock();
        switch_video_off(camera);
        camera->stream.stream_mutex.lock();
    } else {
        switch_video_off(camera);
    }
    CFRunLoopRemoveSource(camera->stream.stream_run_loop, event_source, kCFRunLoopDefaultMode);
    CFRelease(event_source);
    camera->stream.stream_run_loop = nullptr;
    camera->stream.stream_running.set(false);
    camera->stream.stream_stopping.set(false);
    camera->stream.thread_state = StreamThread::kEnded;
    pthread_cond_broadcast(&camera->stream.stream_cond);
    camera->stream.stream_mutex.unlock();
    return nullptr;
}
