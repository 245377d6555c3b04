// SPDX-License-Identifier: Apache-2.0
// Completions on their way from the thread that sees a transfer end to the run loop that delivers them.
//
//   any thread --post--> CompletionQueue --take--> run loop of the queue's owner --> callback
//
// A loop is told of new work by a flag under its own lock, so a completion or a stop that falls between two
// looks at the queues is seen by the next one. No lock is held while a callback runs.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "backend.h"
#include "platform.h"

namespace tovix::platform {

class CompletionQueue;

/// A read that goes through a completion queue to its callback.
struct QueuedRead final : AsyncRead {
    QueuedRead(std::shared_ptr<CompletionQueue> queue_, IOAsyncCallback1 callback_, void* refcon_)
        : queue(std::move(queue_)), callback(callback_), refcon(refcon_) {}
    void complete(IOReturn status, UInt32 bytes) noexcept override;

    std::shared_ptr<CompletionQueue> queue;
    IOAsyncCallback1 callback;
    void* refcon;
    IOReturn result = kIOReturnSuccess;
    UInt32 bytes_done = 0;
    std::unique_ptr<QueuedRead> next;  // completions are linked, so that queueing needs no memory
};

class CompletionQueue {
  public:
    ~CompletionQueue();
    void post(std::unique_ptr<QueuedRead> read) noexcept;
    std::unique_ptr<QueuedRead> take() noexcept;
    void attach(CFRunLoop* loop) noexcept;  ///< null detaches

  private:
    std::mutex mutex_;
    std::unique_ptr<QueuedRead> first_;  // guarded by mutex_
    QueuedRead* last_ = nullptr;         // guarded by mutex_
    CFRunLoop* loop_ = nullptr;          // guarded by mutex_
};

}  // namespace tovix::platform

struct CFRunLoop {
    void wake() noexcept;
    void stop() noexcept;
    /// Deliver completions until stopped, the deadline passes (if there is one), or one was delivered (if asked).
    CFRunLoopRunResult run(const std::int64_t* deadline_us, bool return_after_source) noexcept;

    std::shared_ptr<tovix::platform::CompletionQueue> queue;  // of the attached source; only the loop's own thread

  private:
    bool deliver_one() noexcept;

    std::mutex mutex_;
    std::condition_variable condition_;
    bool stop_requested_ = false;  // guarded by mutex_; kept until a run has returned for it
    bool work_waiting_ = false;    // guarded by mutex_
};
