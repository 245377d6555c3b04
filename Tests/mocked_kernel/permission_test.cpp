// SPDX-License-Identifier: Apache-2.0
// What the tool says of a camera whose node the user may not open.
#include <gtest/gtest.h>

#include "../simulated_bus.h"
#include "camera_session.h"
#include "search.h"
#include "simulated_camera_model.h"

namespace {

using namespace tovix::test;
using State = DeviceOptions::State;

TEST(Permission, TheToolNamesTheUdevRule) {
    // One without its firmware is refused before anyone knows that it is a camera.
    for (const State state : {State::kBare, State::kReady}) {
        SCOPED_TRACE(static_cast<int>(state));
        tovix::simulator::Clock clock(Pace::kAsFastAsItGoes);
        tovix::mocked_kernel::MockedKernel kernel;
        kernel.refuse_users();
        tovix::mocked_kernel::SimulatedCameraModel camera(kernel, 1, clock, options_of("mira13c", state));

        usb_init = 0;
        std::string said;
        QuietStderr quiet(false);
        try {
            const CameraSession session({}, quiet);
        } catch (const NoCamera& failure) {
            said = failure.what();
        }
        EXPECT_EQ(said,
                  "no permission to use the camera; install the udev rule (see README.md), then plug the camera in "
                  "again");
        EXPECT_EQ(tz_platform_objects_alive(), 0);
    }
}

}  // namespace
