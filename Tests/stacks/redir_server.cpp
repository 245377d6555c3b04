// SPDX-License-Identifier: Apache-2.0
// Runs an emulated machine, and serves the cameras of the story to its USB controllers, over usbredir:
//
//   redir_server COMMAND...
//
// COMMAND inherits connected sockets: file descriptor 10 + n speaks usbredir for the n-th camera, from 1, and 10 takes
// orders as camera_orders.h has them. The cameras are bare, and not plugged in at first.
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <usbredirparser.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <list>
#include <memory>
#include <span>
#include <thread>
#include <vector>

#include "bus.h"
#include "camera_orders.h"
#include "models.h"
#include "stack.h"

namespace {

using namespace tovix::simulator;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kInterface = 0;  // the only one
constexpr int kFirstDescriptor = 10;

std::uint8_t status_of(Outcome outcome) {
    switch (outcome) {
        case Outcome::kDone: return usb_redir_success;
        case Outcome::kStall: return usb_redir_stall;
        case Outcome::kOverrun: return usb_redir_babble;
        case Outcome::kSilent:
        case Outcome::kGone: break;
    }
    return usb_redir_ioerror;
}

/// A port of the simulated bus as one end of usbredir. The port's lock guards all of it but the socket. Two threads: one
/// takes packets, the other sends, so that a host that is slow to take does not hold up the port.
class Redirection {
  public:
    Redirection(Port& port, int socket)
        : port_(port), device_(*port.access()), socket_(socket), parser_(usbredirparser_create()) {
        parser_->priv = this;
        parser_->log_func = [](void*, int level, const char* text) {
            if (level <= usbredirparser_warning) std::fprintf(stderr, "%s\n", text);
        };
        parser_->read_func = call<&Redirection::read>;
        parser_->write_func = call<&Redirection::write>;
        parser_->hello_func = call<&Redirection::hello>;
        parser_->reset_func = call<&Redirection::reset>;
        parser_->device_disconnect_ack_func = call<&Redirection::departure_seen>;
        parser_->set_configuration_func = call<&Redirection::set_configuration>;
        parser_->get_configuration_func = call<&Redirection::get_configuration>;
        parser_->set_alt_setting_func = call<&Redirection::set_setting>;
        parser_->get_alt_setting_func = call<&Redirection::get_setting>;
        parser_->control_packet_func = call<&Redirection::control>;
        parser_->bulk_packet_func = call<&Redirection::bulk>;
        parser_->cancel_data_packet_func = call<&Redirection::cancel>;
        std::uint32_t capabilities[USB_REDIR_CAPS_SIZE] = {};
        for (const int capability :
             {usb_redir_cap_connect_device_version, usb_redir_cap_device_disconnect_ack,
              usb_redir_cap_ep_info_max_packet_size, usb_redir_cap_64bits_ids, usb_redir_cap_32bits_bulk_length})
            usbredirparser_caps_set_cap(capabilities, capability);
        usbredirparser_init(parser_, "simulated cameras", capabilities, USB_REDIR_CAPS_SIZE,
                            usbredirparser_fl_usb_host);
    }

    void take_packets() {
        pollfd readable{.fd = socket_, .events = POLLIN, .revents = 0};
        while (poll(&readable, 1, -1) > 0) {
            const auto device = port_.access();
            if (usbredirparser_do_read(parser_) != 0) return;
        }
    }

    void send_packets() {
        for (;;) {
            Bytes ready;
            {
                auto device = port_.access();
                device.wait([this] { return usbredirparser_has_data_to_write(parser_) > 0 || must_follow(); });
                if (must_follow()) follow_device();
                usbredirparser_do_write(parser_);
                ready.swap(unsent_);
            }
            for (std::size_t sent = 0; sent < ready.size();) {
                const ssize_t count = send(socket_, &ready[sent], ready.size() - sent, MSG_NOSIGNAL);
                if (count <= 0) return;
                sent += static_cast<std::size_t>(count);
            }
        }
    }

  private:
    /// What the host has been told: after a departure it is asked to confirm, as packets for the device that has left
    /// may still be on their way.
    enum class Shown { kNotYet, kNothing, kDevice, kDeparture };

    struct Read final : BulkRead {
        Read(Redirection& its_owner, std::uint64_t its_id, const usb_redir_bulk_packet_header& its_head,
             std::uint32_t length)
            : owner(its_owner), id(its_id), head(its_head), bytes(length) {
            data = bytes.data();
            size = length;
        }
        void finished(Outcome outcome, std::uint32_t count) override {
            owner.answer_bulk(id, head, status_of(outcome), {bytes.data(), count});
            owner.reads_.remove_if([this](const Read& each) { return &each == this; });  // `this` ends here
        }
        Redirection& owner;
        const std::uint64_t id;
        const usb_redir_bulk_packet_header head;
        Bytes bytes;
    };

    template <auto kMember, class Result, class... Arguments>
    static Result call(void* self, Arguments... arguments) {
        return (static_cast<Redirection*>(self)->*kMember)(arguments...);
    }

    int read(std::uint8_t* data, int count) {
        const ssize_t received = recv(socket_, data, static_cast<std::size_t>(count), MSG_DONTWAIT);
        if (received < 0 && errno == EAGAIN) return 0;
        return received <= 0 ? -1 : static_cast<int>(received);
    }
    int write(std::uint8_t* data, int count) {
        unsent_.insert(unsent_.end(), data, data + count);
        return count;
    }

    // ---- coming and going
    void hello(usb_redir_hello_header*) { shown_ = Shown::kNothing; }
    void departure_seen() { shown_ = Shown::kNothing; }

    bool must_follow() const {
        if (shown_ == Shown::kNothing) return device_.attached();
        return shown_ == Shown::kDevice && (!device_.attached() || device_.generation() != generation_);
    }
    void follow_device() {
        if (shown_ == Shown::kDevice) {
            usbredirparser_send_device_disconnect(parser_);
            shown_ = Shown::kDeparture;
            return;
        }
        generation_ = device_.generation();
        shown_ = Shown::kDevice;
        const Bytes descriptor = device_.descriptors().device();
        describe();
        usb_redir_device_connect_header head{
            .speed = static_cast<std::uint8_t>(device_.high_speed() ? usb_redir_speed_high : usb_redir_speed_full),
            .device_class = descriptor[4],
            .device_subclass = descriptor[5],
            .device_protocol = descriptor[6],
            .vendor_id = get_u16(&descriptor[8]),
            .product_id = get_u16(&descriptor[10]),
            .device_version_bcd = get_u16(&descriptor[12]),
        };
        usbredirparser_send_device_connect(parser_, &head);
    }

    /// Interfaces and endpoints as they are now. Without them the host's controller serves no pipe.
    void describe() {
        usb_redir_interface_info_header interfaces{};
        interfaces.interface_count = 1;
        interfaces.interface_class[0] = usb::kVendorSpecific;
        usbredirparser_send_interface_info(parser_, &interfaces);

        usb_redir_ep_info_header endpoints{};
        std::fill(std::begin(endpoints.type), std::end(endpoints.type), std::uint8_t{usb_redir_type_invalid});
        const auto place_of = [](std::uint8_t address) { return (address & 0x80) >> 3 | (address & 0x0F); };
        endpoints.type[place_of(0x00)] = endpoints.type[place_of(0x80)] = usb_redir_type_control;
        for (const std::uint8_t address : device_.descriptors().endpoints(device_.setting())) {
            endpoints.type[place_of(address)] = usb_redir_type_bulk;
            endpoints.max_packet_size[place_of(address)] = device_.high_speed() ? 512 : 64;
        }
        usbredirparser_send_ep_info(parser_, &endpoints);
    }

    bool shown() const { return shown_ == Shown::kDevice && !must_follow(); }

    // ---- requests that a host makes by packets of their own
    std::uint8_t request(const Setup& setup) {
        const std::uint8_t status =
            shown() ? status_of(device_.control(setup, nullptr).outcome) : std::uint8_t{usb_redir_ioerror};
        describe();
        return status;
    }
    // A reset leaves no configuration.
    void reset() {
        if (shown()) request({usb::kToDevice, usb::kSetConfiguration, 0, 0, 0});
    }
    void set_configuration(std::uint64_t id, usb_redir_set_configuration_header* wanted) {
        send_configuration(id, request({usb::kToDevice, usb::kSetConfiguration, wanted->configuration, 0, 0}));
    }
    void get_configuration(std::uint64_t id) { send_configuration(id, usb_redir_success); }
    void send_configuration(std::uint64_t id, std::uint8_t status) {
        usb_redir_configuration_status_header head{.status = status, .configuration = device_.configuration()};
        usbredirparser_send_configuration_status(parser_, id, &head);
    }
    void set_setting(std::uint64_t id, usb_redir_set_alt_setting_header* wanted) {
        send_setting(id, request({usb::kInterface, usb::kSetInterface, wanted->alt, wanted->interface, 0}));
    }
    void get_setting(std::uint64_t id, usb_redir_get_alt_setting_header*) { send_setting(id, usb_redir_success); }
    void send_setting(std::uint64_t id, std::uint8_t status) {
        usb_redir_alt_setting_status_header head{.status = status, .interface = kInterface, .alt = device_.setting()};
        usbredirparser_send_alt_setting_status(parser_, id, &head);
    }

    // ---- transfers. What came for a device that has left needs no answer; nor gets one what a device leaves unanswered.
    void control(std::uint64_t id, usb_redir_control_packet_header* head, std::uint8_t* data, int count) {
        Bytes bytes(data, data + count);
        usbredirparser_free_packet_data(parser_, data);
        if (!shown()) return;
        const Setup setup{head->requesttype, head->request, head->value, head->index, head->length};
        bytes.resize(setup.length);
        const Answer answer = device_.control(setup, bytes.data());
        if (answer.outcome == Outcome::kSilent) return;
        head->status = status_of(answer.outcome);
        head->length = static_cast<std::uint16_t>(answer.length);
        const bool with_data = setup.to_host();
        usbredirparser_send_control_packet(parser_, id, head, with_data ? bytes.data() : nullptr,
                                           with_data ? head->length : 0);
    }

    void bulk(std::uint64_t id, usb_redir_bulk_packet_header* head, std::uint8_t* data, int count) {
        const Bytes bytes(data, data + count);
        usbredirparser_free_packet_data(parser_, data);
        if (!shown()) return;
        if (usb::is_input(head->endpoint)) {
            const std::uint32_t length = head->length | std::uint32_t{head->length_high} << 16;
            device_.bulk_in(head->endpoint, reads_.emplace_back(*this, id, *head, length));
            return;
        }
        const Answer answer = device_.bulk_out(head->endpoint, bytes);
        if (answer.outcome == Outcome::kSilent) return;
        set_length(*head, answer.length);
        head->status = status_of(answer.outcome);
        usbredirparser_send_bulk_packet(parser_, id, head, nullptr, 0);
    }

    void cancel(std::uint64_t id) {
        reads_.remove_if([&](const Read& read) {
            if (read.id != id || !device_.cancel(const_cast<Read&>(read))) return false;
            answer_bulk(id, read.head, usb_redir_cancelled, {});
            return true;
        });
    }

    void answer_bulk(std::uint64_t id, usb_redir_bulk_packet_header head, std::uint8_t status,
                     std::span<std::uint8_t> bytes) {
        set_length(head, static_cast<std::uint32_t>(bytes.size()));
        head.status = status;
        usbredirparser_send_bulk_packet(parser_, id, &head, bytes.data(), static_cast<int>(bytes.size()));
    }
    static void set_length(usb_redir_bulk_packet_header& head, std::uint32_t length) {
        head.length = static_cast<std::uint16_t>(length);
        head.length_high = static_cast<std::uint16_t>(length >> 16);
    }

    Port& port_;
    Device& device_;
    const int socket_;
    usbredirparser* const parser_;
    Shown shown_ = Shown::kNotYet;
    std::uint32_t generation_ = 0;  // of the device that is shown
    std::list<Read> reads_;
    Bytes unsent_;
};

/// The server's end of a connection whose other end is, from here on, file descriptor `number`.
int connect_as(int number) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0 || dup2(ends[1], number) < 0) std::abort();
    close(ends[1]);
    return ends[0];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    Bus bus(Pace::kAsFastAsItGoes);
    std::vector<std::shared_ptr<Port>> ports;
    std::vector<int> sockets;
    for (const tovix::stacks::StoryCamera& camera : tovix::stacks::kCameras) {
        Model model;
        if (!find_model(camera.model, model)) return 1;
        DeviceOptions options;
        options.camera = CameraSetup::of(model);
        options.camera.serial_number = static_cast<std::uint32_t>(ports.size() + 1);
        options.mark_frames = true;
        ports.push_back(bus.plug_in(std::move(options)));
        ports.back()->access()->unplug();
        sockets.push_back(connect_as(kFirstDescriptor + static_cast<int>(ports.size())));
    }
    const int orders = connect_as(kFirstDescriptor);

    const pid_t machine = fork();
    if (machine == 0) {
        execvp(argv[1], argv + 1);
        std::perror(argv[1]);
        _exit(127);
    }
    for (std::size_t i = 0; i < ports.size(); ++i) {
        close(kFirstDescriptor + static_cast<int>(i) + 1);
        auto* const redirection = new Redirection(*ports[i], sockets[i]);  // for as long as the process runs
        std::thread(&Redirection::take_packets, redirection).detach();
        std::thread(&Redirection::send_packets, redirection).detach();
    }
    close(kFirstDescriptor);
    std::thread([&] {
        const auto carry_out = [&](bool plug, std::size_t i) {
            const auto device = ports[i]->access();
            plug ? device->plug_in() : device->unplug();
            return true;
        };
        if (!tovix::stacks::obey(fdopen(orders, "r"), fdopen(dup(orders), "w"), ports.size(), carry_out))
            std::fputs("redir_server: not an order\n", stderr);
    }).detach();
    int status = 0;
    waitpid(machine, &status, 0);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);  // the threads hold what the simulation is made of
}
