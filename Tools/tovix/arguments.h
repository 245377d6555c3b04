// SPDX-License-Identifier: Apache-2.0
// The command line.
#pragma once

#include <variant>

#include "commands.h"

using Command = std::variant<ListOptions, InfoOptions, GetOptions, SetOptions, AutoOptions, CaptureOptions,
                             ConvertOptions, StreamOptions, SimulateOptions>;

struct Arguments {
    GlobalOptions global;
    Command command;
};

/// The arguments, or the exit status when there is nothing to run: help was asked for and printed, or the
/// usage was wrong and standard error says how.
std::variant<Arguments, int> parse_arguments(int argc, char** argv);
