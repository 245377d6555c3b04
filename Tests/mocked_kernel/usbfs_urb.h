// SPDX-License-Identifier: Apache-2.0
// A request for a transfer, and the way to the library's memory. Only for the sources of UsbfsNode.
#pragma once

#include <cerrno>
#include <cstddef>

#include "usbfs_node.h"

namespace tovix::mocked_kernel {

using Data = Ref<UMockdevIoctlData>;

/// A copy of the `size` bytes of the library's memory at which a pointer points; written back when the request under
/// way is answered.
inline Data resolve(UMockdevIoctlData& pointers, std::size_t offset, std::size_t size) {
    return Data(umockdev_ioctl_data_resolve(&pointers, offset, size, nullptr));
}

template <class Argument>
Argument& get(const Data& data) {
    return *reinterpret_cast<Argument*>(data->data);
}

/// A request that the library has submitted.
class UsbfsNode::Urb final : public BulkRead {
  public:
    Urb(std::weak_ptr<UsbfsNode> its_node, const Client& its_client, Data its_data)
        : node(std::move(its_node)), client(&its_client), data(std::move(its_data)), address(data->client_addr) {
        const auto& raw = get<usbdevfs_urb>(data);
        endpoint = raw.endpoint;
        length = static_cast<std::size_t>(raw.buffer_length);
        buffer_address = raw.buffer;
    }

    std::size_t size() const override { return length; }
    const void* destination() const override { return buffer_address; }
    void deliver(std::span<const std::uint8_t> bytes) override {
        const std::shared_ptr<UsbfsNode> owner = node.lock();
        if (owner == nullptr) return;
        const std::lock_guard lock(owner->mutex_);
        if (!ended) received.insert(received.end(), bytes.begin(), bytes.end());
    }
    void complete(Outcome outcome) override {
        const std::shared_ptr<UsbfsNode> owner = node.lock();
        if (owner == nullptr || outcome == Outcome::kNoAnswer) return;
        const std::lock_guard lock(owner->mutex_);
        owner->end(*this, outcome == Outcome::kStall ? -EPIPE : outcome == Outcome::kError ? -EPROTO : 0);
    }
    bool is_bulk_in() const { return (endpoint & 0x80) != 0; }

    const std::weak_ptr<UsbfsNode> node;
    const Client* const client;
    const Data data;              // the library's record of the request
    const unsigned long address;  // by which the library calls it
    unsigned endpoint = 0;
    std::size_t length = 0;
    const void* buffer_address = nullptr;

    // Guarded by the node's mutex.
    Data buffer;                         // the library's buffer, where it has been looked at
    std::vector<std::uint8_t> received;  // for that buffer, from received_at on
    std::size_t received_at = 0;
    std::size_t actual = 0;
    int status = 0;
    bool ended = false;
};

}  // namespace tovix::mocked_kernel
