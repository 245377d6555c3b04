// SPDX-License-Identifier: Apache-2.0
// What a call prints on the standard error stream, for tests that compare whole lines.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <string>

class StderrCapture {
  public:
    StderrCapture() : file_(::tmpfile()), saved_(::dup(STDERR_FILENO)) {
        ::fflush(stderr);
        ::dup2(::fileno(file_), STDERR_FILENO);
    }
    ~StderrCapture() { text(); }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    /// Everything printed since the capture began, which ends here.
    std::string text() {
        if (file_ == nullptr) return text_;
        ::fflush(stderr);
        ::dup2(saved_, STDERR_FILENO);
        ::close(saved_);
        ::rewind(file_);
        for (int c = ::fgetc(file_); c != EOF; c = ::fgetc(file_))
            text_ += static_cast<char>(c);
        ::fclose(file_);
        file_ = nullptr;
        return text_;
    }

  private:
    FILE* file_;
    int saved_;
    std::string text_;
};

/// What `call` prints.
std::string printed_by(const auto& call) {
    StderrCapture capture;
    call();
    return capture.text();
}
