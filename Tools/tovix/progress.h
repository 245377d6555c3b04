// SPDX-License-Identifier: Apache-2.0
// A line on the terminal that shows how far long work has come. Nothing where there is no terminal.
#pragma once

#include <cstdint>
#include <string>

#include "quiet_stderr.h"

class Progress {
  public:
    explicit Progress(const QuietStderr& quiet) : out_(quiet.can_draw() ? quiet.messages() : nullptr) {}
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void note(const std::string& words);
    void bar(std::uint32_t done, std::uint32_t total);
    /// Remove the line, for text that is to stay.
    void clear();

  private:
    std::FILE* out_;
    bool drawn_ = false;
};
