// SPDX-License-Identifier: Apache-2.0
#include "mocked_kernel.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace tovix::mocked_kernel {
namespace {

// A file that Linux lets nobody write, so that opening it as a device ends with EACCES for root, too.
constexpr char kRefusing[] = "/proc/sys/kernel/ostype";

std::string taken(char* text) {
    std::string copy(text);
    g_free(text);
    return copy;
}

std::string hexadecimal(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

void check(GError* error) {
    if (error == nullptr) return;
    const std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error(message);
}

}  // namespace

MockedKernel::MockedKernel() : testbed_(umockdev_testbed_new()) {
    if (!umockdev_in_mock_environment()) throw std::runtime_error("libumockdev-preload.so.0 is not preloaded");
    // The library may open a node, which is a terminal, as the controlling terminal of this process.
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGTTOU, SIG_IGN);
}

MockedKernel::~MockedKernel() {
    for (const Plugged& device : devices_)
        if (!device.system_path.empty()) unplug(device.port);
    for (const Plugged& device : devices_)
        umockdev_testbed_detach_ioctl(testbed_.get(), device.node_path.c_str(), nullptr);
}

void MockedKernel::plug(int port, UsbDeviceModel& model) {
    const std::lock_guard lock(mutex_);
    const std::string number = std::to_string(devices_.size() + 2);  // 1 would be the root hub; never used again
    const std::string address = std::string(3 - number.size(), '0') + number;
    Plugged device{.port = port,
                   .system_path = "/sys/devices/usb1/1-" + std::to_string(port),
                   .node_path = "/dev/bus/usb/001/" + address,
                   .node = nullptr};
    device.node = std::make_shared<UsbfsNode>(model, [this, path = device.system_path](int value) {
        umockdev_testbed_set_attribute(testbed_.get(), path.c_str(), "bConfigurationValue",
                                       (std::to_string(value) + "\n").c_str());
    });

    GError* error = nullptr;
    umockdev_testbed_attach_ioctl(testbed_.get(), device.node_path.c_str(), device.node->handler(), &error);
    check(error);
    const std::string description =
        "P: " + device.system_path.substr(4) + "\nN: " + device.node_path.substr(5) +
        "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DRIVER=usb\nE: BUSNUM=001\nE: DEVNUM=" + address +
        "\nE: DEVNAME=" + device.node_path + "\nA: busnum=1\\n\nA: speed=480\\n\nA: devnum=" + number +
        "\\n\nA: bConfigurationValue=" + std::to_string(device.node->first_configuration()) +
        "\\n\nH: descriptors=" + hexadecimal(model.descriptors()) + "\n";
    umockdev_testbed_add_from_string(testbed_.get(), description.c_str(), &error);
    check(error);

    const std::filesystem::path node = taken(umockdev_testbed_get_root_dir(testbed_.get())) + device.node_path;
    std::filesystem::remove(node);
    std::filesystem::create_symlink(refuses_users_ ? kRefusing : device.node->terminal(), node);
    umockdev_testbed_uevent(testbed_.get(), device.system_path.c_str(), "add");
    devices_.push_back(std::move(device));
}

void MockedKernel::refuse_users() {
    const std::lock_guard lock(mutex_);
    refuses_users_ = true;
}

void MockedKernel::disconnect(int port) {
    const std::lock_guard lock(mutex_);
    at(port).node->unplug();
}

void MockedKernel::unplug(int port) {
    disconnect(port);
    const std::lock_guard lock(mutex_);
    std::string& path = at(port).system_path;
    umockdev_testbed_uevent(testbed_.get(), path.c_str(), "remove");
    umockdev_testbed_remove_device(testbed_.get(), path.c_str());
    path.clear();
}

MockedKernel::Plugged& MockedKernel::at(int port) {
    for (Plugged& each : devices_)
        if (each.port == port && !each.system_path.empty()) return each;
    throw std::logic_error("nothing in this port");
}

}  // namespace tovix::mocked_kernel
