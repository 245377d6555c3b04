// SPDX-License-Identifier: Apache-2.0
// The resource directory from which cameras get their firmware and FPGA images.
#pragma once

#include <string>

/// Beside the installed tool, else in the source tree that it was built from, else empty: the library's default.
/// Throws Failure when there is neither and the cameras are simulated, which need one.
std::string find_resources(bool simulated);
