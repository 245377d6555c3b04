// SPDX-License-Identifier: Apache-2.0
#include "usbfs_node.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "usbfs_urb.h"

namespace tovix::mocked_kernel {
UsbfsNode::UsbfsNode(UsbDeviceModel& model, std::function<void(int)> configured)
    : model_(model), configured_(std::move(configured)), handler_(umockdev_ioctl_base_new()) {
    const std::vector<std::uint8_t> bytes = model.descriptors();
    int configuration = 0;
    for (std::size_t at = 0; at + 5 < bytes.size() && bytes[at] >= 2; at += bytes[at]) {
        const std::uint8_t type = bytes[at + 1];
        if (type == 2) configuration = bytes[at + 5];
        if (type == 4) settings_.push_back({configuration, bytes[at + 2], bytes[at + 3], {}});
        if (type == 5) settings_.back().endpoints.push_back(bytes[at + 2]);
    }
    enter_configuration(first_configuration());

    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) throw std::runtime_error("no pseudo terminal");
    terminal_ = ptsname(master_);
    slave_ = ::open(terminal_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave_ < 0) throw std::runtime_error("cannot open " + terminal_);
    {
        const std::lock_guard lock(mutex_);
        show_whether_reapable();
    }
    g_signal_connect(handler_.get(), "handle-ioctl", G_CALLBACK(&UsbfsNode::on_ioctl), this);
    g_signal_connect(handler_.get(), "client-vanished", G_CALLBACK(&UsbfsNode::on_vanished), this);
}

UsbfsNode::~UsbfsNode() {
    unplug();
    g_signal_handlers_disconnect_by_data(handler_.get(), this);
}

void UsbfsNode::unplug() {
    const std::scoped_lock lock(call_mutex_, mutex_);
    unplugged_ = true;
    while (!pending_.empty())
        end(*pending_.front(), -ESHUTDOWN);
    if (master_ >= 0) ::close(master_);
    if (slave_ >= 0) ::close(slave_);
    master_ = slave_ = -1;
}

gboolean UsbfsNode::on_ioctl(UMockdevIoctlBase*, Client* client, gpointer self) {
    const long answer = static_cast<UsbfsNode*>(self)->handle(*client);
    umockdev_ioctl_client_complete(client, answer < 0 ? -1 : answer, answer < 0 ? static_cast<int>(-answer) : 0);
    return TRUE;
}

void UsbfsNode::on_vanished(UMockdevIoctlBase*, Client* client, gpointer self) {
    auto& node = *static_cast<UsbfsNode*>(self);
    const std::lock_guard call(node.call_mutex_);
    node.end_where([&](const Urb& urb) { return urb.client == client; }, -ENOENT);
    for (auto& [number, interface] : node.interfaces_)
        if (interface.claimed_by == client && !node.unplugged_) node.release(*client, number);
    const std::lock_guard lock(node.mutex_);
    node.completed_.remove_if([&](const auto& urb) { return urb->client == client; });
}

long UsbfsNode::handle(Client& client) {
    const std::lock_guard call(call_mutex_);
    UMockdevIoctlData& argument = *umockdev_ioctl_client_get_arg(&client);
    const unsigned long request = umockdev_ioctl_client_get_request(&client);
    const auto number = [&] { return get<unsigned>(resolve(argument, 0, sizeof(unsigned))); };

    if (request == USBDEVFS_REAPURBNDELAY) return reap(client, argument);  // also when the device has left
    if (unplugged_) return -ENODEV;
    switch (request) {
        case USBDEVFS_GET_CAPABILITIES:
            get<std::uint32_t>(resolve(argument, 0, sizeof(std::uint32_t))) =
                USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
            return 0;
        case USBDEVFS_SUBMITURB: return submit(client, argument);
        case USBDEVFS_DISCARDURB: return discard(client, *reinterpret_cast<unsigned long*>(argument.data));
        case USBDEVFS_CLAIMINTERFACE: return claim(client, number());
        case USBDEVFS_RELEASEINTERFACE: return release(client, number());
        case USBDEVFS_CLEAR_HALT: return clear_halt(client, number());
        case USBDEVFS_SETCONFIGURATION: return set_configuration(static_cast<int>(number()));
        case USBDEVFS_SETINTERFACE: {
            const auto wanted = get<usbdevfs_setinterface>(resolve(argument, 0, sizeof(usbdevfs_setinterface)));
            return set_interface(client, wanted.interface, wanted.altsetting);
        }
        case USBDEVFS_GETDRIVER:
            return get_driver(get<usbdevfs_getdriver>(resolve(argument, 0, sizeof(usbdevfs_getdriver))));
        case USBDEVFS_IOCTL: return driver_request(get<usbdevfs_ioctl>(resolve(argument, 0, sizeof(usbdevfs_ioctl))));
        default: std::fprintf(stderr, "mocked kernel: no answer to request %#lx\n", request); return -ENOTTY;
    }
}

// --------------------------------------------------------------------------------------------------- Requests about
// interfaces

UsbfsNode::Interface* UsbfsNode::claimed(const Client& client, unsigned number) {
    const auto found = interfaces_.find(number);
    return found != interfaces_.end() && found->second.claimed_by == &client ? &found->second : nullptr;
}

const UsbfsNode::Setting* UsbfsNode::setting(unsigned interface_number, unsigned number) const {
    for (const Setting& each : settings_)
        if (each.configuration == configuration_ && each.interface_number == interface_number && each.number == number)
            return &each;
    return nullptr;
}

// Linux claims an interface for a program that forgot to; here that would hide a fault.
bool UsbfsNode::may_use(const Client& client, unsigned endpoint) {
    for (const auto& [number, interface] : interfaces_) {
        const Setting* const current = setting(number, interface.setting);
        if (current != nullptr && std::count(current->endpoints.begin(), current->endpoints.end(), endpoint) > 0)
            return interface.claimed_by == &client;
    }
    return false;
}

long UsbfsNode::claim(const Client& client, unsigned number) {
    const auto found = interfaces_.find(number);
    if (found == interfaces_.end()) return -ENOENT;
    Interface& interface = found->second;
    if (interface.claimed_by == &client) return 0;
    if (interface.claimed_by != nullptr || !interface.driver.empty()) return -EBUSY;
    interface.claimed_by = &client;
    return 0;
}

// The interface goes back to its first setting, and to a driver that knows it.
long UsbfsNode::release(const Client& client, unsigned number) {
    Interface* const interface = claimed(client, number);
    if (interface == nullptr) return -EINVAL;
    const std::vector<unsigned> endpoints = setting(number, interface->setting)->endpoints;
    end_where([&](const Urb& urb) { return std::count(endpoints.begin(), endpoints.end(), urb.endpoint) > 0; },
              -ESHUTDOWN);
    if (interface->setting != 0) model_.set_alternate(static_cast<std::uint8_t>(number), 0);
    *interface = {.setting = 0, .claimed_by = nullptr, .driver = model_.kernel_driver()};
    return 0;
}

long UsbfsNode::set_interface(const Client& client, unsigned number, unsigned wanted) {
    Interface* const interface = claimed(client, number);
    if (interface == nullptr || setting(number, wanted) == nullptr) return -EINVAL;
    const std::vector<unsigned> endpoints = setting(number, interface->setting)->endpoints;
    end_where([&](const Urb& urb) { return std::count(endpoints.begin(), endpoints.end(), urb.endpoint) > 0; },
              -ENOENT);
    if (!model_.set_alternate(static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(wanted))) return -EPIPE;
    interface->setting = wanted;
    return 0;
}

long UsbfsNode::set_configuration(int value) {
    for (const auto& [number, interface] : interfaces_)
        if (interface.claimed_by != nullptr || !interface.driver.empty()) return -EBUSY;
    const auto has_value = [&](const Setting& each) { return each.configuration == value; };
    if (std::none_of(settings_.begin(), settings_.end(), has_value)) return -EINVAL;
    if (!model_.set_configuration(static_cast<std::uint8_t>(value))) return -EPIPE;
    enter_configuration(value);
    configured_(value);
    return 0;
}

void UsbfsNode::enter_configuration(int value) {
    configuration_ = value;
    interfaces_.clear();
    for (const Setting& each : settings_)
        if (each.configuration == value) interfaces_[each.interface_number].driver = model_.kernel_driver();
}

long UsbfsNode::clear_halt(const Client& client, unsigned endpoint) {
    if (!may_use(client, endpoint)) return -ENOENT;
    model_.clear_halt(static_cast<std::uint8_t>(endpoint));
    return 0;
}

long UsbfsNode::get_driver(usbdevfs_getdriver& answer) {
    const auto found = interfaces_.find(answer.interface);
    if (found == interfaces_.end()) return -EINVAL;
    const std::string name = found->second.claimed_by != nullptr ? "usbfs" : found->second.driver;
    if (name.empty()) return -ENODATA;
    std::snprintf(answer.driver, sizeof answer.driver, "%s", name.c_str());
    return 0;
}

long UsbfsNode::driver_request(const usbdevfs_ioctl& request) {
    if (static_cast<unsigned>(request.ioctl_code) != USBDEVFS_DISCONNECT) return -ENOTTY;
    const auto found = interfaces_.find(static_cast<unsigned>(request.ifno));
    if (found == interfaces_.end()) return -EINVAL;
    if (found->second.driver.empty()) return -ENODATA;
    found->second.driver.clear();
    return 0;
}

}  // namespace tovix::mocked_kernel
