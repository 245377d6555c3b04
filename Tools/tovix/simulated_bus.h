// SPDX-License-Identifier: Apache-2.0
// The simulated bus for the time of one command, with cameras on it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quiet_stderr.h"

struct SimulatedCamera {
    std::string model;                // empty: the first model
    std::uint32_t serial_number = 0;  // 0: the next one that is free
};

/// What simulated cameras look at, and how.
struct SimulatedView {
    std::string picture;                   // PNG file; empty: the test chart
    std::array<double, 3> light{1, 1, 1};  // red, green, blue
    double blur = 0;                       // standard deviation, in pixels
    std::optional<double> noise;           // standard deviation, in levels; else the usual
};

class SimulatedBus {
  public:
    enum class Marks : bool { kNone, kInFrames };

    /// In real time. Throws Failure.
    explicit SimulatedBus(const QuietStderr& quiet);
    ~SimulatedBus();
    SimulatedBus(const SimulatedBus&) = delete;
    SimulatedBus& operator=(const SimulatedBus&) = delete;

    /// Attach a camera in `state`, TOVIX_SIMULATED_*. `marks` asks it to number its frames in the pixels. Throws Failure.
    void attach(const SimulatedCamera& camera, const SimulatedView& view, std::uint32_t state,
                Marks marks = Marks::kNone) const;

  private:
    const QuietStderr& quiet_;
};
