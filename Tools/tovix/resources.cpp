// SPDX-License-Identifier: Apache-2.0
#include "resources.h"

#include <filesystem>

#include "failure.h"

namespace fs = std::filesystem;

std::string find_simulated_resources() {
    std::error_code error;
    const fs::path tool = fs::read_symlink("/proc/self/exe", error);
    const fs::path installed = tool.parent_path() / TOVIX_RESOURCES_FROM_TOOL;
    for (const fs::path& directory : {installed.lexically_normal(), fs::path(TOVIX_SOURCE_RESOURCES)}) {
        if (fs::is_directory(directory, error)) return directory.string();
    }
    throw Failure("no firmware for simulated cameras at " + installed.lexically_normal().string() +
                  "; name its directory with --resources DIR");
}
