// SPDX-License-Identifier: Apache-2.0
// The application's side of a stream: enable, start, wait and release, stop, disable.
#include <signal.h>

#include <cstdlib>
#include <limits>
#include <utility>

#include "report.h"
#include "stream_engine.h"

namespace {

constexpr std::size_t kBufferAlignment = 64;
constexpr std::uint64_t kMaxFrameBytes = std::numeric_limits<std::int32_t>::max();

/// The mutex and the condition, unless they exist. An error number.
[[nodiscard]] int make_locks(StreamState& stream) {
    if (stream.has_locks) return 0;
    if (const int error = pthread_mutex_init(&stream.stream_mutex.native, nullptr); error != 0) return error;
    if (const int error = pthread_cond_init(&stream.stream_cond, nullptr); error != 0) {
        pthread_mutex_destroy(&stream.stream_mutex.native);
        return error;
    }
    stream.has_locks = true;
    return 0;
}

/// Give the ring back, as it was before there was one: no frame is left that a late waiter could be handed.
void free_buffers(StreamState& stream) {
    const StreamLock lock(stream.stream_mutex);
    for (stream_buffer& buffer : stream.buffers) {
        std::free(buffer.data);
        buffer = {};
    }
    stream.reading_index = -1;
    stream.frame_sequence = 0;
    stream.acquired_sequence = 0;
}

[[nodiscard]] bool allocate_buffers(StreamState& stream) {
    for (stream_buffer& buffer : stream.buffers) {
        void* memory = nullptr;
        if (posix_memalign(&memory, kBufferAlignment, stream.frame_size) != 0) return false;
        buffer.data = static_cast<std::uint8_t*>(memory);
    }
    return true;
}

/// Create the acquisition thread with every signal blocked, so that the application's handlers run on its own threads.
[[nodiscard]] int create_thread(_tovix* camera) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&camera->stream.stream_thread, nullptr, usb_stream_thread_callback, camera);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

[[nodiscard]] StreamThread thread_state(StreamState& stream) {
    const StreamLock lock(stream.stream_mutex);
    return stream.thread_state;
}

/// Join the acquisition thread, which has ended or is about to. The join's result.
int join_thread(StreamState& stream) {
    const int error = pthread_join(stream.stream_thread, nullptr);
    const StreamLock lock(stream.stream_mutex);
    stream.thread_state = StreamThread::kNone;
    return error;
}

bool refuse_running(const StreamState& stream) {
    const bool running = stream.stream_running || stream.stream_stopping;
    if (running) std::fprintf(stderr, "error: stream is already running\n");
    return running;
}

bool is_buffer_index(std::int32_t index) {
    return index >= 0 && index < kStreamBuffers;
}

/// Wait until a frame is there that was not handed out yet. False when none can come.
[[nodiscard]] bool wait_for_newer_frame(StreamState& stream) TZ_REQUIRES(stream.stream_mutex) {
    const std::uint32_t begun_in = stream.starts;
    const auto ended = [&]() TZ_NO_ANALYSIS { return !stream.stream_running || stream.starts != begun_in; };
    bool can_come = true;
    ++stream.waiters;
    while (can_come && stream.frame_sequence == stream.acquired_sequence) {
        if (ended()) {
            can_come = false;
            break;
        }
        pthread_cond_wait(&stream.stream_cond, &stream.stream_mutex.native);
        can_come = !stream.stream_stopping && !ended();
    }
    if (--stream.waiters == 0) pthread_cond_broadcast(&stream.stream_cond);  // disable may wait for that
    return can_come;
}

}  // namespace

std::int32_t tovix_enable_streaming(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    StreamState& stream = camera->stream;
    if (refuse_running(stream)) return TOVIX_EFAIL;
    if (stream.enabled()) {
        std::fprintf(stderr, "error: stream is already running\n");
        return TOVIX_EFAIL;
    }
    const std::uint64_t frame_bytes = std::uint64_t{camera->width} * camera->height;
    if (frame_bytes == 0 || frame_bytes > kMaxFrameBytes) return TOVIX_EINVAL;

    if (const int error = make_locks(stream); error != 0) return -error;
    stream.frame_size = static_cast<std::uint32_t>(frame_bytes);
    std::fprintf(stderr, "%s: number of bytes expected: %u\n", "tovix_enable_streaming", stream.frame_size);
    if (!allocate_buffers(stream)) {
        free_buffers(stream);
        return TOVIX_ENOMEM;
    }
    return TOVIX_OK;
}

std::int32_t tovix_start_streaming(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    StreamState& stream = camera->stream;
    if (refuse_running(stream)) return TOVIX_EINVAL;
    if (!stream.enabled() || camera->interface == nullptr) {
        std::fprintf(stderr, "error: streaming is not enabled\n");
        return TOVIX_EINVAL;
    }
    if (thread_state(stream) != StreamThread::kNone) join_thread(stream);  // of a stream that ended by itself
    {
        const StreamLock lock(stream.stream_mutex);
        stream.thread_state = StreamThread::kStarting;
        stream.camera_lost = false;
        stream.drain_aborted = false;
        stream.failures = 0;
        stream.retry_pause_us = 0;
        ++stream.starts;
    }
    if (const int error = create_thread(camera); error != 0) {
        const StreamLock lock(stream.stream_mutex);
        stream.thread_state = StreamThread::kNone;
        return -error;
    }
    StreamThread reached;
    {
        const StreamLock lock(stream.stream_mutex);
        while (stream.thread_state == StreamThread::kStarting)
            pthread_cond_wait(&stream.stream_cond, &stream.stream_mutex.native);
        reached = stream.thread_state;
    }
    if (reached != StreamThread::kGaveUp) return TOVIX_OK;
    join_thread(stream);
    return TOVIX_EFAIL;
}

std::int32_t tovix_wait_for_capture_to_buffer(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    StreamState& stream = camera->stream;
    if (!stream.stream_running) {
        std::fprintf(stderr, "stream is not running - no data to wait for...\n");
        return TOVIX_ENODATA;
    }
    const StreamLock lock(stream.stream_mutex);
    if (!wait_for_newer_frame(stream)) return TOVIX_ENODATA;
    for (std::int32_t i = 0; i < kStreamBuffers; ++i) {
        if (stream.buffers[i].sequence != stream.frame_sequence) continue;
        stream.acquired_sequence = stream.frame_sequence;
        ++stream.buffers[i].hold_count;
        return i;
    }
    return TOVIX_EINVAL;  // its buffer has been taken for the next read, since the other two are held
}

std::int32_t tovix_release_buffer(_tovix* camera, std::int32_t index) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (!is_buffer_index(index) || !camera->stream.enabled()) return TOVIX_EINVAL;
    const StreamLock lock(camera->stream.stream_mutex);
    if (camera->stream.buffers[index].hold_count == 0) return TOVIX_EINVAL;
    --camera->stream.buffers[index].hold_count;
    usb_stream_resume_reading(camera);
    return TOVIX_OK;
}

std::int32_t tovix_stop_streaming(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    StreamState& stream = camera->stream;
    const StreamThread state = stream.enabled() ? thread_state(stream) : StreamThread::kNone;
    if (state != StreamThread::kRunning && state != StreamThread::kEnded) {
        std::fprintf(stderr, "error: unable to stop a stream which is not running\n");
        return TOVIX_EFAIL;
    }
    {
        const StreamLock lock(stream.stream_mutex);
        if (stream.stream_run_loop != nullptr) {  // null when it has ended by itself in the meantime
            stream.stream_stopping.set(true);
            CFRunLoopStop(stream.stream_run_loop);
        }
    }
    return join_thread(stream);
}

std::int32_t tovix_disable_streaming(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    StreamState& stream = camera->stream;
    if (stream.stream_running) {
        std::fprintf(stderr, "error: unable to disable stream while stream is running\n");
        return TOVIX_EFAIL;
    }
    if (!stream.enabled()) return TOVIX_OK;
    if (thread_state(stream) != StreamThread::kNone) join_thread(stream);
    {
        const StreamLock lock(stream.stream_mutex);
        while (stream.waiters != 0)
            pthread_cond_wait(&stream.stream_cond, &stream.stream_mutex.native);
    }
    free_buffers(stream);
    return TOVIX_OK;
}

void usb_stream_close(StreamState& stream) {
    if (!stream.has_locks) return;
    pthread_mutex_destroy(&stream.stream_mutex.native);
    pthread_cond_destroy(&stream.stream_cond);
    stream.has_locks = false;
}

std::uint32_t tovix_get_video_frame_size(_tovix* camera) {
    return camera != nullptr ? camera->stream.frame_size : 0;
}

std::int32_t tovix_get_buffer_count(_tovix*) {
    return kStreamBuffers;
}

std::uint8_t* tovix_get_buffer_address(_tovix* camera, std::int32_t index) {
    return camera != nullptr && is_buffer_index(index) ? camera->stream.buffers[index].data : nullptr;
}

std::int32_t tovix_get_buffer_status(_tovix*, std::int32_t) {
    return TOVIX_ENOTSUP;
}

std::int32_t tovix_get_buffer_acquired_size(_tovix*, std::int32_t) {
    return TOVIX_ENOTSUP;
}
