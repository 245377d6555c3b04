// SPDX-License-Identifier: Apache-2.0
#include "backend.h"

#include <atomic>

#include "platform.h"

namespace tovix::platform {

namespace {

std::atomic<Backend*> selected_backend{nullptr};

}  // namespace

Backend& backend() noexcept {
    Backend* const selected = selected_backend.load(std::memory_order_acquire);
    return selected != nullptr ? *selected : libusb_backend();
}

}  // namespace tovix::platform

void tz_platform_select(tovix::platform::Backend* stack) noexcept {
    tovix::platform::selected_backend.store(stack, std::memory_order_release);
}

UInt64 mach_absolute_time() noexcept {
    return static_cast<UInt64>(tovix::platform::backend().now_us()) * 1000;
}

void IOSleepMicroseconds(UInt32 microseconds) noexcept {
    tovix::platform::backend().sleep_us(microseconds);
}
