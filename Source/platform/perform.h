// SPDX-License-Identifier: Apache-2.0
// What every platform operation has in common: it may be made to fail, lets no exception out, and sets errno.
#pragma once

#include <atomic>
#include <cerrno>
#include <new>

#include "backend.h"

namespace tovix::platform {

/// errno value that says in the host's words what a status means.
int errno_of(IOReturn status) noexcept;

template <class Body>
IOReturn perform(Operation operation, const Body& body) noexcept {
    IOReturn status = backend().intercept(operation);
    if (status == kIOReturnSuccess) {
        try {
            status = body();
        } catch (const std::bad_alloc&) {
            status = kIOReturnNoMemory;
        } catch (...) {
            status = kIOReturnError;
        }
    }
    if (status != kIOReturnSuccess) errno = errno_of(status);
    return status;
}

/// Counts the objects that were handed out and not yet given back.
class Counted {
  public:
    Counted() noexcept { ++alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { --alive; }

    static inline std::atomic<long> alive{0};
};

}  // namespace tovix::platform
