// SPDX-License-Identifier: Apache-2.0
// The resource directory from which simulated cameras get their firmware and FPGA images.
#pragma once

#include <string>

/// Beside the installed tool, else in the source tree that it was built from. Throws Failure when there is neither.
std::string find_resources();
