// SPDX-License-Identifier: Apache-2.0
// Makes one operation of the library fail: the n-th that it asks of the platform, of memory, of threads or of files.
//
// An operation counts when a thread that calls the library, or that the library made, asks for it, and not while that is
// inside the simulated camera: see Counted and Uncounted.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "backend.h"

namespace tovix::faults {

/// What the library asks something of. Operations are counted for each apart.
enum class Domain : std::uint8_t { kPlatform, kMemory, kThreads, kFiles };
inline constexpr std::size_t kDomains = 4;

enum class Kind : std::uint8_t {
    kStall,
    kTimeout,   // nothing comes within 5 s
    kNoDevice,  // as if it were gone, which it is not
    kShort,     // one byte less than all
    kEmpty,     // no bytes, as a success
    kOverrun,
    kNoMemory,
    kBusy,
    kLate,  // the operation is carried out, but too late for whoever waits; a read of a frame takes a second
    kUnplug,
    kReplug,          // unplugged, and plugged in again
    kNoAllocation,    // memory
    kNoThread,        // threads and locks
    kFileRefused,     // files: cannot be opened, read, asked
    kFileCutShort,    // a read brings one byte less
    kFileEmpty,       // a read brings nothing: the end of the file
    kFileInterrupted  // a signal came
};
inline constexpr std::size_t kKinds = 17;

/// Where the library asks: first the platform operations by their numbers, then the C library's.
enum class Site : std::uint8_t {
    kNew = static_cast<std::uint8_t>(platform::Operation::kCount),
    kMalloc,
    kCalloc,
    kAlignedAlloc,
    kThreadCreate,
    kThreadStart,  // std::thread
    kMutexInit,
    kConditionInit,
    kFileOpen,
    kFileRead,
    kFileStat
};

std::string_view name_of(Kind kind);
std::string_view name_of(Site site);
Domain domain_of(Kind kind);
/// Whether a fault of that kind can happen there.
bool is_possible(Site site, Kind kind);

/// One fault of a scenario.
struct Target {
    Kind kind = Kind::kStall;
    std::uint32_t index = 0;  // operation of the kind's domain, from 0
    bool onwards = false;     // and all that follow
};

class Injector {
  public:
    /// Count operations, and fail those of `target`, if there is one.
    void begin(const std::optional<Target>& target);
    void end();

    /// An operation is about to be done: the fault that strikes it, if any. Any thread.
    std::optional<Kind> strike(Site site);

    /// What was asked since begin().
    const std::vector<Site>& trace(Domain domain) const { return traces_[static_cast<std::size_t>(domain)]; }
    std::uint32_t strikes() const { return strikes_; }

  private:
    std::mutex mutex_;
    bool active_ = false;                 // guarded by mutex_
    std::optional<Target> target_;        // guarded by mutex_
    std::vector<Site> traces_[kDomains];  // guarded by mutex_ while active
    std::uint32_t strikes_ = 0;           // guarded by mutex_ while active
};

Injector& injector();

/// Whether what this thread asks counts. Threads that the library creates are like their creator.
inline thread_local bool thread_counts = false;

class CountingScope {
  public:
    explicit CountingScope(bool counts) : before_(std::exchange(thread_counts, counts)) {}
    ~CountingScope() { thread_counts = before_; }
    CountingScope(const CountingScope&) = delete;
    CountingScope& operator=(const CountingScope&) = delete;

  private:
    const bool before_;
};

struct Counted : CountingScope {
    Counted() : CountingScope(true) {}
};
struct Uncounted : CountingScope {
    Uncounted() : CountingScope(false) {}
};

}  // namespace tovix::faults
