// SPDX-License-Identifier: Apache-2.0
// A second camera that streams while the first one is in trouble, and must not lose a frame.
#pragma once

#include "world.h"

namespace tovix::faults {

class Neighbour {
  public:
    /// Attach it and start its stream. From then on time waits for it: frames can be lost only where the library makes
    /// it wait.
    explicit Neighbour(World& world);
    /// Stop it, and see whether every frame came.
    ~Neighbour();
    Neighbour(const Neighbour&) = delete;
    Neighbour& operator=(const Neighbour&) = delete;

  private:
    void take_frames();
    bool keeps_up();

    World& world_;
    std::shared_ptr<simulator::Port> port_;
    _tovix* camera_ = nullptr;
    std::atomic<std::uint32_t> taken_{0};
    bool left_behind_ = false;  // waiting for it again would be in vain
    std::jthread taker_;
};

}  // namespace tovix::faults
