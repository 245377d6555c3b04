// SPDX-License-Identifier: Apache-2.0
#include "input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "failure.h"

namespace {

Failure cannot_read(const std::string& path, const std::string& reason) {
    return Failure("cannot read " + printable(path) + ": " + reason);
}

}  // namespace

// Not blocking: opening a pipe would wait for a writer.
InputFile::InputFile(std::string path)
    : path_(std::move(path)), file_(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (file_ < 0) throw cannot_read(path_, std::strerror(errno));
    struct stat status {};
    const bool known = fstat(file_, &status) == 0;
    if (known && S_ISREG(status.st_mode)) {
        size_ = static_cast<std::uint64_t>(status.st_size);
        return;
    }
    const Failure failure = cannot_read(path_, known ? "not a regular file" : std::strerror(errno));
    close(file_);
    throw failure;
}

InputFile::~InputFile() {
    close(file_);
}

std::vector<std::uint8_t> InputFile::read(std::uint64_t most) const {
    if (size_ > most)
        throw cannot_read(path_, text("%llu bytes are more than the %llu that it may have",
                                      static_cast<unsigned long long>(size_), static_cast<unsigned long long>(most)));
    std::vector<std::uint8_t> bytes(size_);
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t got = ::read(file_, bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw cannot_read(path_, std::strerror(errno));
        if (got == 0) throw cannot_read(path_, "it became shorter meanwhile");
        done += static_cast<std::size_t>(got);
    }
    return bytes;
}
