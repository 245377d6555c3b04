// SPDX-License-Identifier: Apache-2.0
// The library reports a few measures on the standard output, where the tool's answer goes.
#pragma once

/// While one exists, what is printed on the standard output goes to the standard error instead.
class QuietStdout {
  public:
    /// Throws Failure.
    QuietStdout();
    ~QuietStdout();
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

  private:
    int former_;
};
