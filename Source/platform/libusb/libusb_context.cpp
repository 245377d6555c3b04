// SPDX-License-Identifier: Apache-2.0
#include "libusb_context.h"

#include <system_error>

namespace tovix::platform {

int LibusbContext::create(std::shared_ptr<LibusbContext>& made) {
    std::shared_ptr<LibusbContext> context(new LibusbContext);
    if (const int error = libusb_init(&context->context_); error != 0) return error;
    made = std::move(context);
    return 0;
}

LibusbContext::~LibusbContext() {
    if (context_ != nullptr) libusb_exit(context_);
}

IOReturn LibusbContext::start_events() noexcept {
    const std::lock_guard lock(mutex_);
    if (listener_count_ == 0) {
        stopping_ = false;
        try {
            thread_ = std::thread(&LibusbContext::handle_events, this);
        } catch (const std::system_error&) {
            return kIOReturnNoMemory;
        } catch (const std::bad_alloc&) {
            return kIOReturnNoMemory;
        }
    }
    ++listener_count_;
    return kIOReturnSuccess;
}

void LibusbContext::stop_events() noexcept {
    const std::lock_guard lock(mutex_);
    if (--listener_count_ > 0) return;
    stopping_ = true;
    libusb_interrupt_event_handler(context_);  // kept by libusb until the next wait, so it cannot come too early
    thread_.join();
}

void LibusbContext::handle_events() noexcept {
    while (!stopping_)
        libusb_handle_events(context_);  // a failed pass, such as one a signal ended, is tried again
}

}  // namespace tovix::platform
