// SPDX-License-Identifier: Apache-2.0
// The simulated bus of this process, in the place of the host's.
#include <stdexcept>
#include <vector>

#include "stack.h"
#include "tovixapi/simulation.h"
#include "tovixapi/tovixapi.h"

namespace tovix::stacks {
namespace {

class InProcessStack final : public Stack {
  public:
    InProcessStack() {
        tovix_simulation_begin(TOVIX_SIMULATION_FAST);
        for (const StoryCamera& camera : kCameras) {
            tovix_simulated_options options{};
            options.size = sizeof options;
            options.model = camera.model;
            options.serial_number = static_cast<std::uint32_t>(cameras_.size() + 1);
            options.mark_frames = 1;
            if (tovix_simulation_attach(&options, &cameras_.emplace_back()) != TOVIX_OK)
                throw std::runtime_error("no simulated camera");
        }
    }
    ~InProcessStack() override { tovix_simulation_end(); }

    void plug(unsigned number) override { tovix_simulation_plug_in(cameras_[number - 1]); }
    void unplug(unsigned number) override { tovix_simulation_unplug(cameras_[number - 1]); }
    std::string resources() const override { return TOVIX_RESOURCES; }

  private:
    std::vector<tovix_simulated_camera*> cameras_;
};

}  // namespace

std::unique_ptr<Stack> make_stack() {
    return std::make_unique<InProcessStack>();
}

}  // namespace tovix::stacks
