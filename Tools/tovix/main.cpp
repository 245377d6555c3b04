// SPDX-License-Identifier: Apache-2.0
// tovix: the command-line tool. Parses, runs one command, and turns its outcome into an exit status.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <new>

#include "answer.h"
#include "arguments.h"

namespace {

constexpr int kFailed = 1;

/// A file that is opened must never become standard output or error because that was closed: messages would go into it.
void fill_standard_streams() {
    int file = 0;
    while (file >= 0 && file <= STDERR_FILENO)
        file = open("/dev/null", O_RDWR);
    if (file >= 0) close(file);
}

}  // namespace

int main(int argc, char** argv) try {
    fill_standard_streams();
    std::signal(SIGPIPE, SIG_IGN);  // a reader that leaves is a write that fails, and so is
    std::signal(SIGXFSZ, SIG_IGN);  // a limit on the size of files

    const auto parsed = parse_arguments(argc, argv);
    if (const int* const status = std::get_if<int>(&parsed)) {
        flush_answer();  // help
        return *status;
    }
    const auto& arguments = std::get<Arguments>(parsed);
    QuietStderr quiet(arguments.global.verbose);
    std::visit([&](const auto& options) { run(options, arguments.global, quiet); }, arguments.command);
    flush_answer();
    return 0;
} catch (const std::bad_alloc&) {
    std::fprintf(stderr, "tovix: out of memory\n");
    return kFailed;
} catch (const std::exception& failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "tovix: %s\n", failure.what());
    return kFailed;
}
