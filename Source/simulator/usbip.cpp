// SPDX-License-Identifier: Apache-2.0
#include "usbip.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <list>
#include <string>
#include <thread>

#include "usbip_wire.h"

namespace tovix::simulator {
namespace {

using namespace usbip;

constexpr std::size_t kMostHeldBytes = 64 << 20;   // for one client, in reads and in replies that it has not taken
constexpr std::uint32_t kMostOutBytes = 16 << 20;  // of one transfer
constexpr timeval kPatience{.tv_sec = 10, .tv_usec = 0};  // with a client that does not say what it wants

bool send_all(int socket, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
    return true;
}

bool receive_all(int socket, std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t received = recv(socket, bytes.data(), bytes.size(), 0);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) return false;
        bytes = bytes.subspan(static_cast<std::size_t>(received));
    }
    return true;
}

std::int32_t status_of(Outcome outcome) {
    switch (outcome) {
        case Outcome::kDone: return 0;
        case Outcome::kStall: return kStalled;
        case Outcome::kOverrun: return usbip::kOverrun;
        case Outcome::kSilent:
        case Outcome::kGone: break;
    }
    return usbip::kGone;
}

struct Address {
    std::uint32_t bus = 1;
    std::uint32_t number;  // of the port, from 1

    std::string id() const { return std::to_string(bus) + "-" + std::to_string(number); }
    std::uint32_t device() const { return bus << 16 | number; }
};

/// What lists and imports say of a device that is on the bus.
void describe(Writer& message, const Address& address, const Device& device) {
    constexpr std::uint32_t kFullSpeed = 2, kHighSpeed = 3;
    const Bytes descriptor = device.descriptors().device();
    message.text("/sys/devices/simulated/usb1/" + address.id(), kPathBytes).text(address.id(), kBusIdBytes);
    message.u32(address.bus).u32(address.number).u32(device.high_speed() ? kHighSpeed : kFullSpeed);
    message.u16(get_u16(&descriptor[8])).u16(get_u16(&descriptor[10])).u16(get_u16(&descriptor[12]));
    message.u8(descriptor[4]).u8(descriptor[5]).u8(descriptor[6]);
    message.u8(device.configuration()).u8(descriptor[17]).u8(1);  // configurations, interfaces
}

/// A device that a client has imported. Two threads: the one that serves takes commands, another sends what they return
/// - reads end with the port's lock held, and a client may be slow.
class Import {
  public:
    Import(Port& port, const Address& address, int socket) : port_(port), address_(address), socket_(socket) {}

    ~Import() {
        const auto device = port_.access();
        for (Read& read : reads_)
            device->cancel(read);
        device.give_back(this);
    }

    /// Take hold of what is in the port now, and describe it. A status of the protocol.
    std::uint32_t begin(Writer& description) {
        const auto device = port_.access();
        if (!device->attached()) return kNoDevice;
        if (!device.hold(this)) return kBusy;
        generation_ = device->generation();
        describe(description, address_, *device);
        return kOk;
    }

    /// Until client or device leaves. False when the client did not keep to the protocol.
    bool run() {
        std::thread sender(&Import::send_replies, this);
        const bool kept = take_commands();
        end();
        sender.join();
        return kept;
    }

  private:
    struct Reply {
        Bytes head, data;
        std::size_t size() const { return head.size() + data.size(); }
    };

    /// A bulk read. The device fills it and tells with the lock held.
    struct Read final : BulkRead {
        Read(Import& its_owner, const Command& command)
            : owner(its_owner),
              sequence(command.sequence),
              short_is_error((command.flags & kShortNotOk) != 0),
              bytes(command.length) {
            data = bytes.data();
            size = command.length;
        }
        void finished(Outcome outcome, std::uint32_t count) override {
            std::int32_t status = status_of(outcome);
            if (status == 0 && short_is_error && count < size) status = kShort;
            bytes.resize(count);
            owner.reply(sequence, status, std::move(bytes));
            owner.reads_.remove_if([this](const Read& each) { return &each == this; });  // `this` ends here
        }
        Import& owner;
        const std::uint32_t sequence;
        const bool short_is_error;
        Bytes bytes;
    };

    void end() {
        const auto device = port_.access();
        ended_ = true;
    }

    bool gone(const Device& device) const { return !device.attached() || device.generation() != generation_; }

    void reply(std::uint32_t sequence, std::int32_t status, Bytes data) {
        const auto length = static_cast<std::uint32_t>(data.size());
        queue({make_return(kSubmitted, sequence, status, length), std::move(data)});
    }

    void queue(Reply reply) {
        unsent_bytes_ += reply.size();
        replies_.push_back(std::move(reply));
    }

    void send_replies() {
        for (bool last = false; !last;) {
            std::list<Reply> ready;
            {
                auto device = port_.access();
                device.wait([&] { return !replies_.empty() || ended_ || gone(*device); });
                ready.swap(replies_);
                last = ended_ || gone(*device);
            }
            std::size_t sent = 0;
            for (const Reply& each : ready) {
                last = !send_all(socket_, each.head) || !send_all(socket_, each.data) || last;
                sent += each.size();
            }
            auto device = port_.access();
            unsent_bytes_ -= sent;
        }
        end();
        shutdown(socket_, SHUT_RDWR);  // the other thread may be waiting for a command
    }

    bool take_commands() {
        std::array<std::uint8_t, kCommandBytes> head;
        while (receive_all(socket_, head)) {
            const Command command(head);
            const bool submit = command.command == kSubmit;
            if ((!submit && command.command != kUnlink) || command.device != address_.device()) return false;
            Bytes out;
            if (submit && command.direction == kOut) {
                if (command.length > kMostOutBytes) return false;
                out.resize(command.length);
                if (!receive_all(socket_, out)) return true;
            }
            auto device = port_.access();
            device.wait([&] { return unsent_bytes_ < kMostHeldBytes || ended_ || gone(*device); });
            if (ended_ || gone(*device)) return true;
            if (!submit) {
                unlink(*device, command);
            } else if (command.endpoint == 0) {
                control(*device, command, std::move(out));
            } else if (command.direction == kOut) {
                finish(command, device->bulk_out(static_cast<std::uint8_t>(command.endpoint & 0x0F), out), {});
            } else {
                bulk_in(*device, command);
            }
        }
        return true;
    }

    void control(Device& device, const Command& command, Bytes data) {
        const Setup setup{command.setup[0], command.setup[1], get_u16(&command.setup[2]), get_u16(&command.setup[4]),
                          get_u16(&command.setup[6])};
        const bool fits = setup.to_host() == (command.direction == kIn) && setup.length == command.length;
        data.resize(setup.length);
        const Answer answer = fits ? device.control(setup, data.data()) : Answer{Outcome::kStall};
        data.resize(setup.to_host() ? std::min<std::size_t>(answer.length, data.size()) : 0);
        finish(command, answer, std::move(data));
    }

    void bulk_in(Device& device, const Command& command) {
        std::size_t held = unsent_bytes_ + command.length;
        for (const Read& read : reads_)
            held += read.size + sizeof read;
        if (held > kMostHeldBytes) return reply(command.sequence, kNoMemory, {});
        device.bulk_in(static_cast<std::uint8_t>((command.endpoint & 0x0F) | usb::kToHost),
                       reads_.emplace_back(*this, command));
    }

    /// The end of a transfer that ends at once. A client waits in vain for what the device does not answer.
    void finish(const Command& command, Answer answer, Bytes data) {
        if (answer.outcome == Outcome::kSilent) {
            silent_.push_back(command.sequence);
            if (silent_.size() > kMostSilent) silent_.pop_front();
            return;
        }
        const auto length = data.empty() ? answer.length : static_cast<std::uint32_t>(data.size());
        queue({make_return(kSubmitted, command.sequence, status_of(answer.outcome), length), std::move(data)});
    }

    void unlink(Device& device, const Command& command) {
        const std::uint32_t sequence = command.flags;
        const auto cancelled =
            reads_.remove_if([&](Read& read) { return read.sequence == sequence && device.cancel(read); });
        const bool found = cancelled + silent_.remove(sequence) > 0;
        queue({make_return(kUnlinked, command.sequence, found ? kCancelled : 0, 0), {}});
    }

    static constexpr std::size_t kMostSilent = 256;

    Port& port_;
    const Address address_;
    const int socket_;

    // Guarded by the port's lock.
    std::uint32_t generation_ = 0;  // of the device that was imported
    std::list<Read> reads_;
    std::list<std::uint32_t> silent_;  // sequence numbers of transfers that wait for ever
    std::list<Reply> replies_;
    std::size_t unsent_bytes_ = 0;
    bool ended_ = false;
};

Bytes list_of(const std::vector<std::shared_ptr<Port>>& ports, std::uint32_t& count) {
    Bytes list;
    Writer message(list);
    for (std::uint32_t number = 1; number <= ports.size(); ++number) {
        const auto device = ports[number - 1]->access();
        if (!device->attached()) continue;
        ++count;
        describe(message, {.number = number}, *device);
        message.u8(usb::kVendorSpecific).zeros(3);  // class, subclass, protocol of its interface, and a filler
    }
    return list;
}

bool send_reply(int socket, std::uint16_t operation, std::uint32_t status, const Bytes& content) {
    Bytes head;
    Writer(head).u16(kVersion).u16(operation).u32(status);
    return send_all(socket, head) && send_all(socket, content);
}

bool serve_import(const std::vector<std::shared_ptr<Port>>& ports, int socket) {
    std::array<std::uint8_t, kBusIdBytes> wanted;
    if (!receive_all(socket, wanted)) return true;
    const std::string id(wanted.begin(), std::ranges::find(wanted, 0));
    for (std::uint32_t number = 1; number <= ports.size(); ++number) {
        const Address address{.number = number};
        if (id != address.id()) continue;
        Import imported(*ports[number - 1], address, socket);
        Bytes content;
        Writer description(content);
        const std::uint32_t status = imported.begin(description);
        if (!send_reply(socket, kImport, status, content) || status != kOk) return true;
        constexpr timeval kForEver{};
        setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &kForEver, sizeof kForEver);
        return imported.run();
    }
    send_reply(socket, kImport, kNoDevice, {});
    return true;
}

}  // namespace

bool serve_usbip(Bus& bus, int socket) {
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    std::array<std::uint8_t, kOperationBytes> request;
    if (!receive_all(socket, request)) return true;
    if (u16_at(request, 0) != kVersion) return false;
    switch (u16_at(request, 2)) {
        case kRequest | kDeviceList: {
            Bytes content;
            std::uint32_t count = 0;
            const Bytes list = list_of(bus.ports(), count);
            Writer(content).u32(count);
            content.insert(content.end(), list.begin(), list.end());
            send_reply(socket, kDeviceList, kOk, content);
            return true;
        }
        case kRequest | kImport: return serve_import(bus.ports(), socket);
        default: return false;
    }
}

}  // namespace tovix::simulator
