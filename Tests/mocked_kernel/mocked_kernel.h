// SPDX-License-Identifier: Apache-2.0
// A bus of modelled USB devices that the host's own USB library sees as real: a test bed of umockdev with the
// files that Linux would show, and a node for each device. The process runs with libumockdev-preload preloaded.
#pragma once

#include <umockdev.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "usbfs_node.h"

namespace tovix::mocked_kernel {

/// Any thread may plug and unplug, each its own port, but not from within a call of a model.
class MockedKernel {
  public:
    MockedKernel();
    ~MockedKernel();
    MockedKernel(const MockedKernel&) = delete;
    MockedKernel& operator=(const MockedKernel&) = delete;

    /// Plug a device into a port, 1 to 15, that is free. The model outlives its time on the bus, and is in its first
    /// configuration.
    void plug(int port, UsbDeviceModel& model);
    /// The nodes of devices that are plugged in from now on refuse whoever opens them, root too.
    void refuse_users();
    /// Pull the device out. When this returns, the model is called no more.
    void unplug(int port);
    /// The first part of unplug(), when the files that show the device are still there and nobody has been told.
    void disconnect(int port);

  private:
    struct Plugged {
        int port;
        std::string system_path;  // empty once it is pulled out
        std::string node_path;
        std::shared_ptr<UsbfsNode> node;
    };

    Plugged& at(int port);  // with the mutex held

    const Ref<UMockdevTestbed> testbed_;
    std::mutex mutex_;  // guards the test bed, while devices come and go, and what follows
    bool refuses_users_ = false;
    std::vector<Plugged> devices_;  // and those that have left: files of theirs may still be open
};

}  // namespace tovix::mocked_kernel
