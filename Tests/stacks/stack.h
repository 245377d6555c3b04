// SPDX-License-Identifier: Apache-2.0
// What stands between the library and the simulated cameras, as far as the story in camera_story.cpp needs to know.
#pragma once

#include <array>
#include <memory>
#include <string>

namespace tovix::stacks {

struct StoryCamera {
    const char* model;
    unsigned product_id;
};
/// Two with an FPGA; and one without, which when bare looks like any FX2. The n-th has serial number n, from 1, marks its
/// frames, and is bare whenever it is plugged in.
inline constexpr std::array<StoryCamera, 3> kCameras{{{"mira13c", 0x0113}, {"lyra03m", 0x0204}, {"atlas13c", 0x0613}}};

class Stack {
  public:
    virtual ~Stack() = default;
    /// Plug the n-th camera in; it has been pulled out. When this returns the host shows it to programs.
    virtual void plug(unsigned number) = 0;
    /// Pull it out. The host may notice somewhat later.
    virtual void unplug(unsigned number) = 0;
    /// Where the cameras' firmware is.
    virtual std::string resources() const = 0;
};

/// The stack that this program was linked with, all cameras plugged in. Throws when it cannot be had.
std::unique_ptr<Stack> make_stack();

}  // namespace tovix::stacks
