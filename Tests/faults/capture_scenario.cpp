// SPDX-License-Identifier: Apache-2.0
// The tool's capture, run in this process over the bus of the world.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "commands.h"
#include "scenarios.h"

namespace tovix::faults {

namespace {

/// A folder of its own, removed with all that is in it.
class Folder {
  public:
    Folder() { std::filesystem::create_directory(path_); }
    ~Folder() {
        const Uncounted own;
        std::filesystem::remove_all(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::filesystem::path& path() const { return path_; }

  private:
    const std::filesystem::path path_ =
        std::filesystem::temp_directory_path() / ("fault_sweep." + std::to_string(::getpid()));
};

/// A picture is there whole or not at all.
bool is_picture(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(stream), {});
    return bytes.starts_with("\x89PNG") && bytes.ends_with("IEND\xAE\x42\x60\x82");
}

}  // namespace

void capture(World& world) {
    constexpr std::uint32_t kPictures = 2;
    std::optional<Folder> folder;
    CaptureOptions options;
    GlobalOptions global;
    {
        const Uncounted own;
        folder.emplace();
        options.count = kPictures;
        options.output = folder->path() / "picture%d.png";
        options.size = NumberPair{kFrameWidth, kFrameHeight};
        options.settings.push_back(parse_setting("exposure=5"));
        global.resources = TOVIX_RESOURCES;
    }
    bool done = false;
    {
        const Passage passage(world.bus());
        QuietStderr quiet(false);
        try {
            run(options, global, quiet);
            done = true;
        } catch (const std::exception& failure) {  // as main() has it
            const Uncounted own;
            world.expect(failure.what()[0] != '\0', "a failure says why");
        }
    }
    const Uncounted own;
    std::uint32_t pictures = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder->path())) {
        world.expect(is_picture(entry.path()), "something half-written was left behind");
        ++pictures;
    }
    world.expect(!done || pictures == kPictures, "a capture that succeeded left its pictures");
}

}  // namespace tovix::faults
