// SPDX-License-Identifier: Apache-2.0
// A libusb context and its event thread.
//
// Every search of the registry makes a context of its own, because an existing one does not see a device that
// came back unless a device manager runs. The devices found share it; the last of them to go ends it.
#pragma once

#include <libusb.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "../status.h"

namespace tovix::platform {

class LibusbContext {
  public:
    /// libusb's result; `made` is set when it is 0.
    [[nodiscard]] static int create(std::shared_ptr<LibusbContext>& made);
    ~LibusbContext();
    LibusbContext(const LibusbContext&) = delete;
    LibusbContext& operator=(const LibusbContext&) = delete;

    libusb_context* get() const noexcept { return context_; }

    /// One more device of this context needs its transfers completed; the first starts the event thread.
    /// Paired with stop_events() when the result is 0; kIOReturnNoMemory when no thread can be had.
    [[nodiscard]] IOReturn start_events() noexcept;

    /// One device less, which has no transfer under way. Never called on the event thread.
    void stop_events() noexcept;

  private:
    LibusbContext() = default;
    void handle_events() noexcept;

    libusb_context* context_ = nullptr;
    std::mutex mutex_;        // guards what follows, but for the flag
    int listener_count_ = 0;  // devices that need the thread; it runs while there are any
    std::thread thread_;
    std::atomic<bool> stopping_ = false;
};

}  // namespace tovix::platform
