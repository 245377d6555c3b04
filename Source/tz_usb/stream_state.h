// SPDX-License-Identifier: Apache-2.0
// The state of one camera's stream, shared between the application's threads and the acquisition thread.
//
// The ring: three buffers, at most one read outstanding, any number held by the application.
//
//   free --read issued--> filling --complete--> ready --wait--> held
//                            ^                   | ^             |
//                            +--- oldest reused--+ +---release---+
//
// While the stream runs, under the mutex:
//   - a buffer being filled has sequence 0 and acquired size 0, so no wait returns it;
//   - a held buffer is never chosen for a read;
//   - sequences start at 1 and rise by one with every complete frame.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "platform.h"
#include "thread_annotations.h"

constexpr int kStreamBuffers = 3;

/// A flag that is changed under the stream mutex and may be looked at without it. An atomic in effect;
/// std::atomic could not be copied with the handle.
class StreamFlag {
  public:
    explicit operator bool() const { return __atomic_load_n(&value_, __ATOMIC_ACQUIRE) != 0; }
    void set(bool on) { __atomic_store_n(&value_, std::uint8_t{on}, __ATOMIC_RELEASE); }

  private:
    std::uint8_t value_;
};

/// A pthread mutex that clang's thread-safety analysis knows to be one.
struct TZ_CAPABILITY("mutex") StreamMutex {
    void lock() TZ_ACQUIRE() { pthread_mutex_lock(&native); }
    void unlock() TZ_RELEASE() { pthread_mutex_unlock(&native); }
    pthread_mutex_t native;
};

class TZ_SCOPED_CAPABILITY StreamLock {
  public:
    explicit StreamLock(StreamMutex& mutex) TZ_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~StreamLock() TZ_RELEASE() { mutex_.unlock(); }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

  private:
    StreamMutex& mutex_;
};

struct stream_buffer {
    std::uint8_t* data;           // frame_size bytes, owned from enable to disable
    std::uint8_t hold_count;      // holds by the application
    std::uint32_t acquired_size;  // bytes of the frame in it; 0 while a read fills it
    std::uint32_t sequence;       // of the frame in it; 0 while a read fills it, or before its first
};

/// Where the acquisition thread is. Kept beside the flags, which alone cannot tell a thread that gave up from one that
/// has not come so far.
enum class StreamThread : std::uint8_t {
    kNone,      // no thread, or joined
    kStarting,  // created, has not reported yet
    kRunning,   // video on, frames are read
    kGaveUp,    // ended before the stream ran
    kEnded      // ended after the stream ran: stopped, or the camera is gone
};

struct StreamState {
    /// The mutex and the condition exist: from the first enable until the camera is closed, so that a waiter that comes
    /// when the stream has just been stopped and disabled finds them.
    bool has_locks;
    StreamFlag stream_running;                                 // the thread has switched the video on and reads frames
    StreamFlag stream_stopping;                                // a stop has been requested and not yet carried out
    std::uint8_t reads_in_flight TZ_GUARDED_BY(stream_mutex);  // issued and not yet completed
    pthread_t stream_thread;  // belongs to whoever starts and stops; meaningful unless thread_state is kNone
    StreamMutex stream_mutex;
    pthread_cond_t stream_cond;             // the stream has started or ended, a frame has come, a waiter has left
    stream_buffer buffers[kStreamBuffers];  // `data` changes only in enable and disable; the rest under stream_mutex
    std::int32_t reading_index TZ_GUARDED_BY(stream_mutex);       // buffer that the read fills; -1 when none
    std::uint32_t frame_sequence TZ_GUARDED_BY(stream_mutex);     // newest complete frame; 0 before the first
    std::uint32_t acquired_sequence TZ_GUARDED_BY(stream_mutex);  // last frame handed to the application
    std::uint32_t frame_size;                                     // bytes, fixed by enable
    CFRunLoopRef stream_run_loop TZ_GUARDED_BY(stream_mutex);     // the thread's, while it streams

    StreamThread thread_state TZ_GUARDED_BY(stream_mutex);
    bool camera_lost TZ_GUARDED_BY(stream_mutex);        // no read will succeed any more: the stream is at its end
    bool drain_aborted TZ_GUARDED_BY(stream_mutex);      // the last read was cancelled by us: do not issue it again
    std::uint32_t failures TZ_GUARDED_BY(stream_mutex);  // tries to read that failed or were refused, in a row
    std::uint64_t failing_since_ns TZ_GUARDED_BY(stream_mutex);  // when the first of them did
    std::uint32_t retry_pause_us TZ_GUARDED_BY(stream_mutex);    // until the next try
    std::uint32_t starts TZ_GUARDED_BY(stream_mutex);            // tells a waiter that its stream has been replaced
    std::uint32_t waiters TZ_GUARDED_BY(stream_mutex);           // threads inside the wait call

    /// The ring is allocated and the lock is set up. Changes only in enable and disable.
    bool enabled() const { return buffers[0].data != nullptr; }
};

/// Give the locks back. The stream is disabled, and nobody waits.
void usb_stream_close(StreamState& stream);
