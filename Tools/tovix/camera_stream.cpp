// SPDX-License-Identifier: Apache-2.0
#include "camera_stream.h"

#include <algorithm>

namespace {

/// How late the watchdog may be.
constexpr auto kWatchPeriod = std::chrono::milliseconds(20);

}  // namespace

CameraStream::CameraStream(const Camera& camera, double frame_limit_s)
    : camera_(camera), frame_limit_s_(frame_limit_s) {
    allow_for_exposure();
    const char* const advice = "close other programs that use it, or plug it in again";
    if (const std::int32_t result = tovix_enable_streaming(camera.handle()); result < 0)
        throw camera_.quiet().failure("cannot prepare the stream", result, advice);
    if (const std::int32_t result = tovix_start_streaming(camera.handle()); result < 0) {
        tovix_disable_streaming(camera.handle());
        throw camera_.quiet().failure("cannot start the stream", result, advice);
    }
    try {
        watchdog_ = std::jthread([this](const std::stop_token& finished) { watch(finished); });
    } catch (...) {  // no destructor runs for what was not made whole
        tovix_stop_streaming(camera.handle());
        tovix_disable_streaming(camera.handle());
        throw;
    }
}

CameraStream::~CameraStream() {
    watchdog_.request_stop();
    watchdog_.join();
    if (!stopped_) tovix_stop_streaming(camera_.handle());
    tovix_disable_streaming(camera_.handle());
}

std::optional<HeldFrame> CameraStream::next() {
    camera_.quiet().forget_when_many();
    if (end_ != End::kNone) return {};
    wait_ends_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                    std::chrono::duration<double>(frame_limit_s_ + longest_exposure_s_));
    const std::int32_t index = tovix_wait_for_capture_to_buffer(camera_.handle());
    wait_ends_ = Clock::time_point::max();
    if (index >= 0) return HeldFrame(camera_.handle(), index);
    End none = End::kNone;
    end_.compare_exchange_strong(none, End::kCameraGone);  // unless the watchdog knows better
    return {};
}

void CameraStream::allow_for_exposure() {
    int exposure = 0;
    std::uint32_t flags = 0;
    const bool known = tovix_property_get(camera_.handle(), TOVIX_PROP_EXPOSURE, &exposure, &flags) >= 0 &&
                       (flags & TOVIX_PROPERTY_PRESENT) != 0;
    const double now_s = known ? double{ConvertPropToFloat(TOVIX_PROP_EXPOSURE, exposure)} / 1000 : 0;  // from ms
    longest_exposure_s_ = std::max(now_s, std::exchange(exposure_s_, now_s));
}

void CameraStream::watch(const std::stop_token& finished) {
    while (!finished.stop_requested()) {
        const bool signalled = StopSignals::came();
        if (signalled || Clock::now() > wait_ends_.load()) {
            why_late_ = camera_.quiet().last_error();  // stopping has messages of its own
            End none = End::kNone;
            end_.compare_exchange_strong(none, signalled ? End::kSignal : End::kTooLong);
            tovix_stop_streaming(camera_.handle());
            stopped_ = true;
            return;
        }
        std::this_thread::sleep_for(kWatchPeriod);
    }
}

Failure CameraStream::failure(const std::string& done) const {
    switch (end_.load()) {
        case End::kSignal: return Failure("interrupted " + done);
        case End::kTooLong:
            return Failure(text("no frame came within %g s beyond its exposure, ", frame_limit_s_) + done +
                           (why_late_.empty() ? "" : ": " + why_late_) +
                           "; allow more with --timeout, or plug the camera in again");
        default:
            return Failure("the camera is gone or sends nothing whole, " + done +
                           "; check the cable and plug the camera in again, or run with --verbose to see each step");
    }
}
