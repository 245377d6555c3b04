// SPDX-License-Identifier: Apache-2.0
// The video of a simulated camera: when frames end, and the newest one until the host has read it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "clock.h"
#include "registers.h"
#include "sensor.h"

namespace tovix::simulator {

class Video {
  public:
    /// `mark_frames`: write a serial and checksums into the pixels, see frame_mark.h.
    Video(std::shared_ptr<const Scene> scene, bool mark_frames);

    /// Frames begin when the time is told next. Nothing when it runs already.
    void start(const SensorSettings& settings);
    /// What has not been read is lost.
    void stop();
    /// Time has come to this: the frame that has ended by now is the newest. True when there is a new one.
    bool advance(std::int64_t now_us, const Registers& registers);

    /// The first frame waits to be told the time.
    bool waits_for_time() const { return starts_; }
    std::int64_t frame_end_us() const { return frame_end_us_; }  ///< of the frame that is taken now
    std::uint32_t frames_produced() const { return frames_produced_; }

    /// What is left to be read of the newest frame.
    std::span<const std::uint8_t> left() const { return std::span(frame_).subspan(sent_); }
    /// So many bytes of it have been read.
    void discard(std::size_t bytes);
    void discard_frame();

  private:
    void produce_frame(const SensorSettings& settings);

    Sensor sensor_;
    bool mark_frames_;
    bool starts_ = false;
    std::int64_t frame_end_us_ = kNever;
    std::vector<std::uint8_t> frame_;
    std::size_t sent_ = 0;
    std::uint32_t frames_produced_ = 0;
};

}  // namespace tovix::simulator
