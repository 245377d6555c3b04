// SPDX-License-Identifier: Apache-2.0
#include "quiet_stderr.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string_view>

namespace {

constexpr off_t kManyBytes = off_t{1} << 20;

off_t size_of(int file) {
    return lseek(file, 0, SEEK_END);
}

/// What an error line says after its prefix; nothing for any other line.
std::string_view error_in(std::string_view line) {
    for (const std::string_view prefix : {"error:", "ERR:", "Error:"}) {
        if (!line.starts_with(prefix)) continue;
        line.remove_prefix(prefix.size());
        return line.substr(std::min(line.find_first_not_of(' '), line.size()));
    }
    return {};
}

}  // namespace

QuietStderr::QuietStderr(bool verbose) {
    if (verbose) return;
    const int memory = memfd_create("library messages", MFD_CLOEXEC);
    const int former = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    messages_ = former >= 0 ? fdopen(former, "w") : nullptr;
    // Appending, since forget() cuts the file short while the library may be writing.
    if (memory < 0 || messages_ == nullptr || fcntl(memory, F_SETFL, O_APPEND) != 0 ||
        dup2(memory, STDERR_FILENO) < 0) {
        if (memory >= 0) close(memory);
        return;  // noisy is better than not at all
    }
    setvbuf(messages_, nullptr, _IOLBF, 0);
    memory_ = memory;
}

QuietStderr::~QuietStderr() {
    if (memory_ >= 0) {
        std::fflush(stderr);
        dup2(fileno(messages_), STDERR_FILENO);
        close(memory_);
    }
    if (messages_ != nullptr) std::fclose(messages_);
}

bool QuietStderr::can_draw() const {
    return memory_ >= 0 && isatty(fileno(messages_)) == 1;
}

std::string QuietStderr::lines() const {
    if (memory_ < 0) return {};
    std::string all(static_cast<std::size_t>(std::max(size_of(memory_), off_t{0})), '\0');
    const ssize_t got = pread(memory_, all.data(), all.size(), 0);
    all.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return all;
}

bool QuietStderr::says_refused() const {
    const std::string all = lines();
    return all.find("unable to open device: e00002e2") != std::string::npos ||
           all.find("device open error: Permission denied") != std::string::npos;
}

std::string QuietStderr::last_error() const {
    // Lines without the prefix often only say what an error line before them led to.
    std::string last_error, last_unable;
    std::istringstream all(lines());
    for (std::string line; std::getline(all, line);) {
        if (const std::string_view error = error_in(line); !error.empty()) {
            last_error = error;
        } else if (line.find("unable") != std::string::npos) {
            last_unable = line;
        }
    }
    return printable(last_error.empty() ? last_unable : last_error);
}

void QuietStderr::forget() {
    if (memory_ >= 0 && ftruncate(memory_, 0) != 0) {
        // Then a later failure may show an older reason, which is better than failing here.
    }
}

void QuietStderr::forget_when_many() {
    if (memory_ >= 0 && size_of(memory_) > kManyBytes) forget();
}

Failure QuietStderr::failure(const std::string& what, std::int32_t result, const std::string& advice) const {
    const std::string reason = last_error();
    return Failure(what + ": " + (reason.empty() ? result_text(result) : reason) + "; " + advice);
}
