// SPDX-License-Identifier: Apache-2.0
// The stack for cameras on a real bus.
#pragma once

#include "../backend.h"

namespace tovix::platform {

class LibusbBackend final : public Backend {
  public:
    /// Sorted by bus number, then by the ports on the way to the device: stable as long as nobody replugs,
    /// which the order of the host's own list is not. A host without USB has an empty bus.
    IOReturn devices(std::vector<std::shared_ptr<HostDevice>>& found) override;
};

}  // namespace tovix::platform
