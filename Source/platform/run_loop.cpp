// SPDX-License-Identifier: Apache-2.0
#include "run_loop.h"

#include <utility>

#include "objects.h"

namespace tovix::platform {

void QueuedRead::complete(IOReturn status, UInt32 bytes) noexcept {
    result = status;
    bytes_done = bytes;
    const std::shared_ptr<CompletionQueue> target = queue;  // outlives this read, which may be gone after the post
    target->post(std::unique_ptr<QueuedRead>(this));
}

CompletionQueue::~CompletionQueue() {
    while (take()) {
    }
}

void CompletionQueue::post(std::unique_ptr<QueuedRead> read) noexcept {
    const std::lock_guard lock(mutex_);
    read->queue.reset();  // or the queue would keep itself alive
    QueuedRead* const added = read.get();
    (last_ != nullptr ? last_->next : first_) = std::move(read);
    last_ = added;
    if (loop_ != nullptr) loop_->wake();
}

std::unique_ptr<QueuedRead> CompletionQueue::take() noexcept {
    const std::lock_guard lock(mutex_);
    std::unique_ptr<QueuedRead> taken = std::move(first_);
    if (taken) {
        first_ = std::move(taken->next);
        if (!first_) last_ = nullptr;
    }
    return taken;
}

void CompletionQueue::attach(CFRunLoop* loop) noexcept {
    const std::lock_guard lock(mutex_);
    loop_ = loop;
    if (loop_ != nullptr && first_) loop_->wake();
}

}  // namespace tovix::platform

void CFRunLoop::wake() noexcept {
    const std::lock_guard lock(mutex_);
    work_waiting_ = true;
    condition_.notify_one();
}

void CFRunLoop::stop() noexcept {
    const std::lock_guard lock(mutex_);
    stop_requested_ = true;
    condition_.notify_one();
}

bool CFRunLoop::deliver_one() noexcept {
    const auto read = queue ? queue->take() : nullptr;
    if (read) read->callback(read->refcon, read->result, read->bytes_done);
    return read != nullptr;
}

CFRunLoopRunResult CFRunLoop::run(const std::int64_t* deadline_us, bool return_after_source) noexcept {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (std::exchange(stop_requested_, false)) return kCFRunLoopRunStopped;
        if (std::exchange(work_waiting_, false)) {
            lock.unlock();
            const bool delivered = deliver_one();
            lock.lock();
            work_waiting_ = work_waiting_ || delivered;  // there may be more
            if (delivered && return_after_source) return kCFRunLoopRunHandledSource;
        } else if (deadline_us == nullptr) {
            condition_.wait(lock);
        } else if (tovix::platform::backend().now_us() >= *deadline_us) {
            return kCFRunLoopRunTimedOut;
        } else {
            tovix::platform::backend().wait_until(condition_, lock, *deadline_us);
        }
    }
}

CFRunLoopRef CFRunLoopGetCurrent() noexcept {
    thread_local std::unique_ptr<CFRunLoop> loop;
    if (!loop) loop.reset(new (std::nothrow) CFRunLoop);
    return loop.get();
}

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode) noexcept {
    loop->queue = source->queue;
    source->queue->attach(loop);
}

void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode) noexcept {
    source->queue->attach(nullptr);
    loop->queue.reset();
}

void CFRunLoopRun() noexcept {
    CFRunLoopGetCurrent()->run(nullptr, false);
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode, double seconds, bool return_after_source) noexcept {
    const std::int64_t deadline_us =
        tovix::platform::backend().now_us() + static_cast<std::int64_t>(seconds * 1'000'000);
    return CFRunLoopGetCurrent()->run(&deadline_us, return_after_source);
}

void CFRunLoopStop(CFRunLoopRef loop) noexcept {
    loop->stop();
}

void CFRelease(CFRunLoopSourceRef source) noexcept {
    delete source;
}
