// SPDX-License-Identifier: Apache-2.0
// A file that appears under its name when it is complete, and not at all otherwise.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "failure.h"

class PendingFile {
  public:
    /// Create a temporary file beside `path`. Throws Failure.
    explicit PendingFile(std::string path);
    /// Removes it, unless it was committed.
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    std::FILE* stream() const { return stream_; }
    /// Why it cannot be written, in the words of whoever wrote to stream().
    Failure failure(const std::string& reason) const;
    /// Throws Failure.
    void write(std::span<const std::uint8_t> bytes);
    void write(const std::string& words);

    /// Write out what is buffered; what can fail for want of room fails here. Throws Failure.
    void finish();
    /// Give a finished file its name, in the place of a file that has it. Throws Failure.
    void commit();

  private:
    std::string path_, temporary_;
    std::FILE* stream_ = nullptr;
};

/// Throw Failure when it can be seen beforehand that no file can be written under `path`: before seconds of work.
void check_writable(const std::string& path);
