// SPDX-License-Identifier: Apache-2.0
#include "video.h"

#include <utility>

#include "frame_mark.h"
#include "scene.h"

namespace tovix::simulator {

Video::Video(std::shared_ptr<const Scene> scene, bool mark_frames)
    : sensor_(scene != nullptr ? std::move(scene) : test_chart()), mark_frames_(mark_frames) {}

void Video::start(const SensorSettings& settings) {
    if (frame_end_us_ != kNever || starts_) return;
    // Drawing the first frame takes a while. It is drawn before the first frame's time begins to run.
    sensor_.render(settings, frames_produced_, frame_);
    discard_frame();
    starts_ = true;
}

void Video::stop() {
    starts_ = false;
    frame_end_us_ = kNever;
    discard_frame();
}

bool Video::advance(std::int64_t now_us, const Registers& registers) {
    const std::int64_t period_us = registers.frame_period_us();
    if (std::exchange(starts_, false)) frame_end_us_ = now_us + period_us;
    if (frame_end_us_ > now_us) return false;
    // Frames that nobody waited for were taken and overwritten: only the newest is worth drawing.
    const std::int64_t missed = (now_us - frame_end_us_) / period_us;
    frames_produced_ += static_cast<std::uint32_t>(missed);
    produce_frame(registers.sensor_settings());
    frame_end_us_ += (missed + 1) * period_us;
    return true;
}

void Video::produce_frame(const SensorSettings& settings) {
    const bool being_read = sent_ != 0;
    if (!being_read) {  // else the host is so slow that this frame finds no room in the camera
        sensor_.render(settings, frames_produced_, frame_);
        if (mark_frames_)
            mark_frame(frame_, settings.width / settings.subsample_x * settings.bytes_per_sample, frames_produced_);
    }
    ++frames_produced_;
}

void Video::discard(std::size_t bytes) {
    sent_ += bytes;
    if (sent_ == frame_.size()) discard_frame();
}

void Video::discard_frame() {
    frame_.clear();
    sent_ = 0;
}

}  // namespace tovix::simulator
