// SPDX-License-Identifier: Apache-2.0
// The requests of UsbfsNode that submit, discard and reap transfers.
#include <linux/usbdevice_fs.h>
#include <termios.h>

#include <algorithm>
#include <cerrno>

#include "usbfs_urb.h"

namespace tovix::mocked_kernel {
namespace {

// What all requests together may hold: the kernel's usual limit.
constexpr std::size_t kMemoryBytes = 16 << 20;
constexpr std::size_t kSetupBytes = 8;

}  // namespace

long UsbfsNode::submit(const Client& client, UMockdevIoctlData& argument) {
    Data data = resolve(argument, 0, sizeof(usbdevfs_urb));
    const unsigned type = get<usbdevfs_urb>(data).type;
    const auto urb = std::make_shared<Urb>(weak_from_this(), client, std::move(data));
    const bool control = type == USBDEVFS_URB_TYPE_CONTROL;
    if (!control && type != USBDEVFS_URB_TYPE_BULK) return -EINVAL;
    if (control ? urb->length < kSetupBytes : !may_use(client, urb->endpoint)) return control ? -EINVAL : -ENOENT;
    if (!urb->is_bulk_in() && urb->length > 0)
        urb->buffer = resolve(*urb->data, offsetof(usbdevfs_urb, buffer), urb->length);
    {
        const std::lock_guard lock(mutex_);
        std::size_t held = urb->length;
        for (const Urbs* urbs : {&pending_, &completed_})
            for (const auto& each : *urbs)
                held += each->length;
        if (held > kMemoryBytes) return -ENOMEM;
        pending_.push_back(urb);
    }
    start(urb, type);
    return 0;
}

void UsbfsNode::start(const std::shared_ptr<Urb>& urb, unsigned type) {
    const auto endpoint = static_cast<std::uint8_t>(urb->endpoint);
    if (urb->is_bulk_in()) return model_.bulk_in(endpoint, urb);

    const std::uint8_t* const sent = urb->length > 0 ? urb->buffer->data : nullptr;
    if (type == USBDEVFS_URB_TYPE_BULK) {
        urb->actual = urb->length;
        return urb->complete(model_.bulk_out(endpoint, {sent, urb->length}));
    }
    const auto word = [&](std::size_t at) { return static_cast<std::uint16_t>(sent[at] | sent[at + 1] << 8); };
    const ControlSetup setup{sent[0], sent[1], word(2), word(4), word(6)};
    std::vector<std::uint8_t> data(sent + kSetupBytes, sent + urb->length);
    data.resize(setup.length);
    std::size_t length = data.size();
    const Outcome outcome = model_.control(setup, data, length);
    if ((setup.request_type & 0x80) != 0) {
        data.resize(outcome == Outcome::kDone ? length : 0);
        urb->received_at = kSetupBytes;
        urb->deliver(data);
    } else {
        urb->actual = outcome == Outcome::kDone ? data.size() : 0;
    }
    urb->complete(outcome);
}

long UsbfsNode::discard(const Client& client, unsigned long address) {
    bool found = false;
    end_where([&](const Urb& urb) { return urb.client == &client && urb.address == address && (found = true); },
              -ENOENT);
    return found ? 0 : -EINVAL;  // completed already
}

long UsbfsNode::reap(const Client& client, UMockdevIoctlData& argument) {
    const std::lock_guard lock(mutex_);
    const auto found =
        std::find_if(completed_.begin(), completed_.end(), [&](const auto& each) { return each->client == &client; });
    if (found == completed_.end()) return unplugged_ ? -ENODEV : -EAGAIN;
    const std::shared_ptr<Urb> urb = *found;
    completed_.erase(found);
    show_whether_reapable();

    if (!urb->received.empty()) {
        if (urb->buffer == nullptr)
            urb->buffer = resolve(*urb->data, offsetof(usbdevfs_urb, buffer), urb->received.size());
        std::copy(urb->received.begin(), urb->received.end(), urb->buffer->data + urb->received_at);
    }
    get<usbdevfs_urb>(urb->data).status = urb->status;
    get<usbdevfs_urb>(urb->data).actual_length = static_cast<int>(urb->actual + urb->received.size());
    umockdev_ioctl_data_set_ptr(resolve(argument, 0, sizeof(void*)).get(), 0, urb->data.get());
    return 0;
}

void UsbfsNode::end(Urb& urb, int status) {
    if (urb.ended) return;
    urb.ended = true;
    const std::size_t room = urb.length - urb.received_at;
    urb.status = status == 0 && urb.received.size() > room ? -EOVERFLOW : status;
    if (urb.received.size() > room) urb.received.resize(room);
    if (status != 0) urb.actual = 0;
    const auto place =
        std::find_if(pending_.begin(), pending_.end(), [&](const auto& each) { return each.get() == &urb; });
    completed_.splice(completed_.end(), pending_, place);
    show_whether_reapable();
}

void UsbfsNode::end_where(const std::function<bool(const Urb&)>& chosen, int status) {
    Urbs ended;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& urb : pending_)
            if (chosen(*urb)) ended.push_back(urb);
        for (const auto& urb : ended)
            end(*urb, status);
    }
    for (const auto& urb : ended)
        if (urb->is_bulk_in()) model_.bulk_in_cancelled(static_cast<std::uint8_t>(urb->endpoint), *urb);
}

void UsbfsNode::show_whether_reapable() {
    if (slave_ >= 0) tcflow(slave_, completed_.empty() ? TCOOFF : TCOON);
}

}  // namespace tovix::mocked_kernel
