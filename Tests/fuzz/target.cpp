// SPDX-License-Identifier: Apache-2.0
#include "target.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    if (std::FILE* const nowhere = std::fopen("/dev/null", "w")) stdout = stderr = nowhere;
    std::cout.rdbuf(nullptr);
    return 0;
}

namespace tovix::fuzz {

void require(bool statement, const char* what) {
    if (statement) return;
    dprintf(STDERR_FILENO, "not true: %s\n", what);
    std::abort();
}

void Input::fill(std::span<std::uint8_t> buffer) {
    constexpr std::size_t kPeriod = 64;
    const auto pattern = take(std::min(kPeriod, buffer.size()));
    std::ranges::fill(buffer, std::uint8_t{0});
    std::ranges::copy(pattern, buffer.begin());
    for (std::size_t done = pattern.size(); done > 0 && done < buffer.size(); done *= 2)
        std::memcpy(&buffer[done], buffer.data(), std::min(done, buffer.size() - done));
}

namespace {
constexpr std::size_t kPage = 4096;
}

Fence::Fence(std::size_t most) : size_((most + kPage - 1) / kPage * kPage) {
    void* const pages = mmap(nullptr, size_ + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    require(pages != MAP_FAILED, "a fence can be made");
    pages_ = static_cast<std::uint8_t*>(pages);
    require(mprotect(pages_ + kPage, size_, PROT_READ | PROT_WRITE) == 0, "a fence can be opened");
}

Fence::~Fence() {
    munmap(pages_, size_ + 2 * kPage);
}

std::span<std::uint8_t> Fence::span(std::size_t size, bool at_end) const {
    require(size <= size_, "it fits between the fences");
    return {pages_ + kPage + (at_end ? size_ - size : 0), size};
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
