// SPDX-License-Identifier: Apache-2.0
// The objects that platform operations hand out.
#pragma once

#include <memory>
#include <variant>
#include <vector>

#include "perform.h"
#include "platform.h"
#include "run_loop.h"

struct CFRunLoopSource : private tovix::platform::Counted {
    std::shared_ptr<tovix::platform::CompletionQueue> queue = std::make_shared<tovix::platform::CompletionQueue>();
};

namespace tovix::platform {

/// A registry entry: a device or, when it has a number, an interface of one.
struct Service : Counted {
    Service(std::shared_ptr<HostDevice> device_, int interface_number_)
        : device(std::move(device_)), interface_number(interface_number_) {}
    std::shared_ptr<HostDevice> device;
    int interface_number;  // -1 for the device itself
};

/// Entries still to be walked.
struct Iterator : Counted {
    std::vector<std::shared_ptr<Service>> entries;
    std::size_t next = 0;
};

/// Put an iterator into the registry under a new id.
io_iterator_t register_iterator(std::unique_ptr<Iterator> iterator);

/// The entry of that id; null when there is none.
std::shared_ptr<Service> find_service(io_service_t id);

}  // namespace tovix::platform
