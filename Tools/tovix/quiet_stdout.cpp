// SPDX-License-Identifier: Apache-2.0
#include "quiet_stdout.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "answer.h"
#include "failure.h"

QuietStdout::QuietStdout() {
    flush_answer();
    former_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (former_ >= 0 && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0) return;
    if (former_ >= 0) close(former_);
    throw Failure("cannot keep the answer apart from messages: no file descriptor is left; close other files");
}

QuietStdout::~QuietStdout() {
    std::fflush(stdout);
    dup2(former_, STDOUT_FILENO);
    close(former_);
}
