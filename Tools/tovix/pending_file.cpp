// SPDX-License-Identifier: Apache-2.0
#include "pending_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace {

Failure cannot_write(const std::string& path, const char* reason) {
    return Failure("cannot write " + path + ": " + reason + "; choose another place with -o");
}

Failure cannot_write(const std::string& path) {
    return cannot_write(path, std::strerror(errno));
}

}  // namespace

PendingFile::PendingFile(std::string path)
    : path_(std::move(path)), temporary_(path_ + text(".part-%d", static_cast<int>(getpid()))) {
    const int file = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) throw cannot_write(path_);
    stream_ = fdopen(file, "wb");
    if (stream_ != nullptr) return;
    const Failure failure = cannot_write(path_);
    close(file);
    unlink(temporary_.c_str());
    throw failure;
}

PendingFile::~PendingFile() {
    if (stream_ != nullptr) std::fclose(stream_);
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

Failure PendingFile::failure(const std::string& reason) const {
    return cannot_write(path_, reason.c_str());
}

void PendingFile::write(std::span<const std::uint8_t> bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), stream_) != bytes.size()) throw cannot_write(path_);
}

void PendingFile::write(const std::string& words) {
    if (std::fputs(words.c_str(), stream_) < 0) throw cannot_write(path_);
}

void PendingFile::finish() {
    if (std::fclose(std::exchange(stream_, nullptr)) != 0) throw cannot_write(path_);
}

void PendingFile::commit() {
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) throw cannot_write(path_);
    temporary_.clear();
}

void check_writable(const std::string& path) {
    // Taking a device's or a pipe's name away from it would be worse than failing.
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw cannot_write(path, S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "not a regular file");
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    const char* const name = folder.empty() ? "." : folder.c_str();
    if (stat(name, &status) != 0) throw cannot_write(path);
    if (!S_ISDIR(status.st_mode)) throw cannot_write(path, std::strerror(ENOTDIR));
    if (access(name, W_OK | X_OK) != 0) throw cannot_write(path);
}
