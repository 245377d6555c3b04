// SPDX-License-Identifier: Apache-2.0
// FPGA loading: any image, to a camera that may lie meanwhile.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "camera_table.h"
#include "fpga.h"
#include "hostile_bus.h"
#include "search.h"

using namespace tovix::fuzz;
using tovix::simulator::DeviceOptions;

namespace {

tovix::simulator::Model camera_with_fpga() {
    tovix::simulator::Model model;
    require(find_model("mira13c", model) && model.has_fpga(), "there is such a model");
    return model;
}

/// A resource directory in which the FPGA image is a file that changes.
class Resources {
  public:
    Resources() {
        char name[] = "/tmp/fuzz-XXXXXX";
        require(mkdtemp(name) != nullptr, "a directory can be made");
        root = name;
        const std::filesystem::path path = resource_path((root / model.row->fpga_file).c_str(), 0).text;
        std::filesystem::create_directories(path.parent_path());
        std::filesystem::create_symlink(image.path(), path);
        require(set_resource_root(root.c_str()), "the directory is kept");
    }
    ~Resources() { std::filesystem::remove_all(root); }
    Resources(const Resources&) = delete;
    Resources& operator=(const Resources&) = delete;

    const tovix::simulator::Model model = camera_with_fpga();
    ScratchFile image;
    std::filesystem::path root;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Resources resources;
    Input input(data, size);
    const auto some = input.take(input.number<std::uint8_t>());
    Input lies(some.data(), some.size());
    resources.image.set(input.rest());

    DeviceOptions options;
    options.camera = tovix::simulator::CameraSetup::of(resources.model);
    options.state = DeviceOptions::State::kWithoutFpga;
    HostileBus bus(lies, std::move(options));
    RegistryPort port;
    require(port.open(), "the bus can be searched");
    const camera_id& row = *resources.model.row;
    static_cast<void>(
        usb_init_cameras_by_vid_and_pid<void>(port.get(), row.vendor_id, row.product_id, usb_load_fpga, nullptr));
    return 0;
}
