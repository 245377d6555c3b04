// SPDX-License-Identifier: Apache-2.0
// The library for the time of one command: the bus, the cameras on it, and the choice of one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "camera.h"
#include "camera_list.h"
#include "simulated_bus.h"

/// What stands in front of the command.
struct GlobalOptions {
    std::vector<SimulatedCamera> simulated;  // none: the host's bus
    SimulatedView view;
    std::string resources;  // resource directory; empty: the usual one
    bool verbose = false;
};

/// There is nothing on the bus that could be opened.
struct NoCamera : Failure {
    using Failure::Failure;
};

class CameraSession {
  public:
    /// Bring the attached cameras up and list them; several seconds when one has no firmware yet. There is at
    /// least one camera afterwards. `marks` asks simulated cameras to number their frames in the pixels. Throws
    /// Failure, and NoCamera where there is none.
    CameraSession(const GlobalOptions& options, QuietStderr& quiet,
                  SimulatedBus::Marks marks = SimulatedBus::Marks::kNone);
    CameraSession(const CameraSession&) = delete;
    CameraSession& operator=(const CameraSession&) = delete;

    const std::vector<ListedCamera>& cameras() const { return cameras_; }

    /// Open the camera that `selector` names, see select_camera(). Throws Failure. The session outlives the camera.
    Camera open(const std::string& selector) const;

  private:
    void start_up(const GlobalOptions& options);

    QuietStderr& quiet_;
    std::optional<SimulatedBus> bus_;
    std::vector<ListedCamera> cameras_;
};
