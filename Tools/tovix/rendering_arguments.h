// SPDX-License-Identifier: Apache-2.0
// The options of the command line that say how a frame becomes a picture.
#pragma once

#include <CLI/CLI.hpp>

#include "file_names.h"
#include "rendering.h"

class RenderingArguments {
  public:
    /// Add the options to a command. Once; this outlives its parsing.
    void add_to(CLI::App& command);
    /// Be as before any parsing.
    void forget();
    /// What was given, for a file of that kind. Throws CLI::ValidationError for options that contradict each other.
    RenderingOptions settled(ImageKind kind) const;

  private:
    RenderingOptions options_;
    std::vector<const CLI::Option*> all_;  // none of which is for raw files
};
