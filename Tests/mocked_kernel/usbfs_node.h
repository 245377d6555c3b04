// SPDX-License-Identifier: Apache-2.0
// One device node of the mocked kernel: answers the requests that a USB library makes of the node as Linux
// would, out of a model of the device.
//
//   library --SUBMITURB--> pending --model ends it, DISCARDURB, unplug, ...--> completed --REAPURB--> library
//
// The node itself is a pseudo terminal, because a library waits for "writable" to know that it can reap: its
// output is stopped while nothing is completed, and it hangs up when the device is unplugged.
#pragma once

#include <linux/usbdevice_fs.h>
#include <umockdev.h>

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "usb_device_model.h"

namespace tovix::mocked_kernel {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class Object>
using Ref = std::unique_ptr<Object, Unref>;

class UsbfsNode : public std::enable_shared_from_this<UsbfsNode> {
  public:
    /// `configured` is told of every new configuration.
    UsbfsNode(UsbDeviceModel& model, std::function<void(int)> configured);
    ~UsbfsNode();

    /// Path of the terminal that the node is to be a link to.
    const std::string& terminal() const { return terminal_; }
    /// The configuration it is plugged in with.
    int first_configuration() const { return settings_.front().configuration; }
    UMockdevIoctlBase* handler() const { return handler_.get(); }

    /// From now on nothing reaches the model; what is pending ends.
    void unplug();

  private:
    class Urb;
    using Client = UMockdevIoctlClient;  // an open file
    using Urbs = std::list<std::shared_ptr<Urb>>;
    struct Setting {
        int configuration = 0;
        unsigned interface_number = 0;
        unsigned number = 0;
        std::vector<unsigned> endpoints;
    };
    struct Interface {
        unsigned setting = 0;
        const Client* claimed_by = nullptr;
        std::string driver;  // the kernel's own; empty: none
    };

    static gboolean on_ioctl(UMockdevIoctlBase*, Client* client, gpointer self);
    static void on_vanished(UMockdevIoctlBase*, Client* client, gpointer self);

    // Each answers with a result, or with an errno value as a negative number.
    long handle(Client& client);
    long submit(const Client& client, UMockdevIoctlData& argument);
    long discard(const Client& client, unsigned long address);
    long reap(const Client& client, UMockdevIoctlData& argument);
    long claim(const Client& client, unsigned number);
    long release(const Client& client, unsigned number);
    long set_interface(const Client& client, unsigned number, unsigned setting);
    long set_configuration(int value);
    long clear_halt(const Client& client, unsigned endpoint);
    long get_driver(usbdevfs_getdriver& answer);
    long driver_request(const usbdevfs_ioctl& request);

    void start(const std::shared_ptr<Urb>& urb, unsigned type);
    Interface* claimed(const Client& client, unsigned number);
    const Setting* setting(unsigned interface_number, unsigned number) const;
    bool may_use(const Client& client, unsigned endpoint);
    void enter_configuration(int value);
    void end(Urb& urb, int status);
    void end_where(const std::function<bool(const Urb&)>& chosen, int status);
    void show_whether_reapable();

    UsbDeviceModel& model_;
    const std::function<void(int)> configured_;
    std::vector<Setting> settings_;
    std::string terminal_;
    Ref<UMockdevIoctlBase> handler_;

    std::mutex call_mutex_;  // held during a request: the model outlives it, and has only one at a time
    bool unplugged_ = false;
    int configuration_ = 0;
    std::map<unsigned, Interface> interfaces_;

    std::mutex mutex_;  // guards what follows, which the model's threads touch too; taken after call_mutex_
    int master_ = -1, slave_ = -1;
    Urbs pending_, completed_;
};

}  // namespace tovix::mocked_kernel
