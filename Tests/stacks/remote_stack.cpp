// SPDX-License-Identifier: Apache-2.0
// The host's own kernel. Somebody else serves the cameras to it, and plugs and unplugs them when told: over the terminal
// or the pair of pipes that TOVIX_CAMERA_CONTROL names, "path" or "commands:answers". See camera_orders.h.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "stack.h"

namespace tovix::stacks {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

/// Devices that are no root hubs, configured and, as far as that may come by itself, open to this user.
unsigned devices_shown() {
    unsigned count = 0;
    const auto word = [](const fs::path& file) {
        std::string text;
        std::ifstream(file) >> text;
        return text;
    };
    for (const fs::directory_entry& entry : fs::directory_iterator("/sys/bus/usb/devices")) {
        const fs::path& device = entry.path();
        if (word(device / "bConfigurationValue").empty() || word(device / "idVendor") == "1d6b") continue;
        char node[64];
        std::snprintf(node, sizeof node, "/dev/bus/usb/%03d/%03d", std::atoi(word(device / "busnum").c_str()),
                      std::atoi(word(device / "devnum").c_str()));
        count += access(node, R_OK | W_OK) == 0;
    }
    return count;
}

class RemoteStack final : public Stack {
  public:
    RemoteStack() {
        const char* const control = std::getenv("TOVIX_CAMERA_CONTROL");
        if (control == nullptr) throw std::runtime_error("TOVIX_CAMERA_CONTROL is not set");
        const std::string path = control;
        const std::size_t colon = path.find(':');
        commands_.open(path.substr(0, colon));
        answers_.open(path.substr(colon == std::string::npos ? 0 : colon + 1));
        for (unsigned number = 1; number <= kCameras.size(); ++number)
            plug(number);
    }
    ~RemoteStack() override {
        for (unsigned number = 1; number <= kCameras.size(); ++number)
            unplug(number);
    }

    void plug(unsigned number) override {
        tell("plug", number);
        ++plugged_;
        for (const auto deadline = std::chrono::steady_clock::now() + 5s;
             devices_shown() != plugged_ && std::chrono::steady_clock::now() < deadline;)
            std::this_thread::sleep_for(10ms);
    }
    void unplug(unsigned number) override {
        tell("unplug", number);
        --plugged_;
    }
    std::string resources() const override {
        const char* const directory = std::getenv("TOVIX_RESOURCES");
        return directory != nullptr ? directory : "";
    }

  private:
    void tell(const char* command, unsigned number) {
        commands_ << command << ' ' << number << '\n' << std::flush;
        std::string answer;
        if (!std::getline(answers_, answer) || answer != "done")
            throw std::runtime_error("whoever serves the cameras says '" + answer + "'");
    }

    std::ofstream commands_;
    std::ifstream answers_;
    unsigned plugged_ = 0;
};

}  // namespace

std::unique_ptr<Stack> make_stack() {
    return std::make_unique<RemoteStack>();
}

}  // namespace tovix::stacks
