// SPDX-License-Identifier: Apache-2.0
// What a call prints on the standard error stream, for tests that compare whole lines.
#pragma once

#include <gtest/gtest.h>

#include <string>

/// One at a time.
class StderrCapture {
  public:
    StderrCapture() { testing::internal::CaptureStderr(); }
    ~StderrCapture() { text(); }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    /// Everything printed since the capture began, which ends here.
    std::string text() {
        if (!ended_) text_ = testing::internal::GetCapturedStderr();
        ended_ = true;
        return text_;
    }

  private:
    bool ended_ = false;
    std::string text_;
};

/// What `call` prints.
std::string printed_by(const auto& call) {
    StderrCapture capture;
    call();
    return capture.text();
}
