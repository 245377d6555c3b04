// SPDX-License-Identifier: Apache-2.0
#include "answer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "failure.h"

void flush_answer() {
    errno = 0;
    // An earlier write may have failed that nobody looked at.
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
    if (errno == EPIPE) return;
    throw Failure("cannot write to standard output" + (errno != 0 ? std::string(": ") + std::strerror(errno) : ""));
}
