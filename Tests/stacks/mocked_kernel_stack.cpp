// SPDX-License-Identifier: Apache-2.0
// Unmodified libusb over the mocked kernel.
#include <list>

#include "../mocked_kernel/simulated_camera_model.h"
#include "models.h"
#include "stack.h"

namespace tovix::stacks {
namespace {

class MockedKernelStack final : public Stack {
  public:
    MockedKernelStack() {
        for (const StoryCamera& camera : kCameras) {
            simulator::Model model;
            if (!simulator::find_model(camera.model, model)) throw std::runtime_error("no such model");
            const auto port = static_cast<int>(cameras_.size() + 1);
            simulator::DeviceOptions options;
            options.camera = simulator::CameraSetup::of(model);
            options.camera.serial_number = static_cast<std::uint32_t>(port);
            options.mark_frames = true;
            cameras_.emplace_back(kernel_, port, clock_, std::move(options));
        }
    }
    void plug(unsigned number) override { at(number).plug_in(); }
    void unplug(unsigned number) override { at(number).unplug(); }
    std::string resources() const override { return TOVIX_RESOURCES; }

  private:
    mocked_kernel::SimulatedCameraModel& at(unsigned number) { return *std::next(cameras_.begin(), number - 1); }

    simulator::Clock clock_{simulator::Pace::kAsFastAsItGoes};
    mocked_kernel::MockedKernel kernel_;
    std::list<mocked_kernel::SimulatedCameraModel> cameras_;
};

}  // namespace

std::unique_ptr<Stack> make_stack() {
    return std::make_unique<MockedKernelStack>();
}

}  // namespace tovix::stacks
