// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target on files that are kept, where the target is built without libFuzzer: TARGET FOLDER. Arguments that
// begin with '-' are libFuzzer's.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "target.h"

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    int count = 0;
    for (const std::string folder : std::span(argv + 1, static_cast<std::size_t>(argc - 1))) {
        if (folder.starts_with('-')) continue;
        for (const auto& file : std::filesystem::directory_iterator(folder)) {
            dprintf(STDOUT_FILENO, "%s\n", file.path().c_str());  // a crash follows the name of its cause
            std::ifstream stream(file.path(), std::ios::binary);
            const std::vector<char> bytes(std::istreambuf_iterator<char>(stream), {});
            const tovix::fuzz::Block input({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
            LLVMFuzzerTestOneInput(input.data(), bytes.size());
            ++count;
        }
    }
    tovix::fuzz::require(count > 0, "there are files to replay");
    return 0;
}
