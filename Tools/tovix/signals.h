// SPDX-License-Identifier: Apache-2.0
// Being asked to stop: by the terminal, by a supervisor, by the end of a session.
#pragma once

#include <signal.h>

#include <array>

/// While one exists, the first SIGINT, SIGTERM or SIGHUP only sets a flag; a second one ends the process as
/// usual. A signal that the process was started to ignore stays ignored. One at a time.
class StopSignals {
  public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// Whether one has come. Any thread.
    static bool came();

  private:
    std::array<struct sigaction, 3> before_;
};
