// SPDX-License-Identifier: Apache-2.0
// The library reports on the standard error stream, step by step. The tool keeps that to itself and shows one line of
// it when something failed.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "failure.h"

/// While one exists, file descriptor 2 leads into memory, and messages() to where it led before.
class QuietStderr {
  public:
    /// `verbose` leaves file descriptor 2 as it is.
    explicit QuietStderr(bool verbose);
    ~QuietStderr();
    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

    /// Where the tool's own messages go.
    std::FILE* messages() const { return messages_ != nullptr ? messages_ : stderr; }
    /// Whether a progress line may be drawn there: on a terminal that the library does not write to.
    bool can_draw() const;

    /// The library's last line that begins with "error:", without that, or else its last one that says
    /// "unable"; empty when there is none.
    std::string last_error() const;
    /// Whether the library was refused a device for lack of permission, while it brought it up or later.
    bool says_refused() const;
    /// Drop the lines so far, so that a later failure is not explained by an earlier one.
    void forget();
    /// Drop them when they have become many: cameras in trouble report each transfer, for as long as a stream runs.
    void forget_when_many();

    /// The failure of a library call: `what`, the library's own reason or else its result in words, and `advice`.
    Failure failure(const std::string& what, std::int32_t result, const std::string& advice) const;

  private:
    std::string lines() const;

    int memory_ = -1;                // the memory file; -1 while nothing is redirected
    std::FILE* messages_ = nullptr;  // the former file descriptor 2
};
