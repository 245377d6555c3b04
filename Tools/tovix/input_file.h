// SPDX-License-Identifier: Apache-2.0
// A file that is read as a whole.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class InputFile {
  public:
    /// Throws Failure for a file that cannot be opened, and for what is not a regular file.
    explicit InputFile(std::string path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    std::uint64_t size() const { return size_; }
    /// All bytes. Throws Failure when there are more than `most`, and when they cannot be read.
    std::vector<std::uint8_t> read(std::uint64_t most) const;

  private:
    std::string path_;
    int file_;
    std::uint64_t size_ = 0;
};
