// SPDX-License-Identifier: Apache-2.0
// Who waits for a thread of the library: for a frame, for its start or its end.
//
// Time that passes only then leaves no camera ahead of an application that is busy, so that a scenario asks for the same
// operations each time.
#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <stop_token>

namespace tovix::faults {

class Waits {
  public:
    /// Somebody is about to wait for `what`, a condition or a thread. Any thread.
    void begin(const void* what);
    /// It has come: until they wait again, those who waited for it are awake.
    void end(const void* what);

    /// Block until somebody waits. False when `over` came first.
    bool wait_for_one(const std::stop_token& over);

  private:
    std::mutex mutex_;
    std::condition_variable_any begun_;
    std::set<const void*> waited_for_;  // guarded by mutex_
};

Waits& waits();

}  // namespace tovix::faults
