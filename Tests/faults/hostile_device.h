// SPDX-License-Identifier: Apache-2.0
// A device that lies: every field of every answer that a camera gives between bring-up and close, at its extremes.
#pragma once

#include <functional>

#include "world.h"

namespace tovix::faults {

/// Find the fields, and go through them. `each` runs one case: its name, and what it does.
void forge_every_field(const std::function<void(const std::string& name, const std::function<Findings()>& run)>& each);

}  // namespace tovix::faults
