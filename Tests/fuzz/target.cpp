// SPDX-License-Identifier: Apache-2.0
#include "target.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::FILE* const nowhere = std::fopen("/dev/null", "w")) stderr = nowhere;
    return 0;
}

namespace tovix::fuzz {

void require(bool statement, const char* what) {
    if (statement) return;
    dprintf(STDERR_FILENO, "not true: %s\n", what);
    std::abort();
}

ScratchFile::ScratchFile() : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
    require(fd_ >= 0, "a scratch file can be made");
}

ScratchFile::~ScratchFile() {
    close(fd_);
}

void ScratchFile::set(std::span<const std::uint8_t> content) const {
    const bool written = ftruncate(fd_, 0) == 0 &&
                         pwrite(fd_, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()) &&
                         lseek(fd_, 0, SEEK_SET) == 0;
    require(written, "a scratch file can be written");
}

}  // namespace tovix::fuzz
