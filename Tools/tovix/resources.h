// SPDX-License-Identifier: Apache-2.0
// The resource directory from which simulated cameras get their firmware and FPGA images.
#pragma once

#include <string>

/// Beside the installed tool, else in the source tree that it was built from. Real cameras never get these files: they
/// hold nothing that a microcontroller could run. Throws Failure when there is neither.
std::string find_simulated_resources();
