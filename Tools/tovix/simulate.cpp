// SPDX-License-Identifier: Apache-2.0
// tovix simulate: simulated cameras for other programs and machines, over USB/IP.
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "answer.h"
#include "commands.h"
#include "signals.h"
#include "tovixapi/simulation.h"

namespace {

constexpr std::size_t kMostClients = 32;
constexpr int kPassMs = 100;  // between two looks at the signals

class Socket {
  public:
    explicit Socket(int file) : file_(file) {}
    ~Socket() {
        if (file_ >= 0) close(file_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int file() const { return file_; }

  private:
    const int file_;
};

void switch_on(const Socket& socket, int level, int option) {
    const int on = 1;
    setsockopt(socket.file(), level, option, &on, sizeof on);
}

/// Throws Failure.
std::unique_ptr<Socket> listen_on(const SimulateOptions& options) {
    const std::string where = printable(options.address) + ":" + std::to_string(options.port);
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(options.address.c_str(), std::to_string(options.port).c_str(), &hints, &found);
    if (error != 0) throw Failure("cannot listen on " + where + ": " + gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> address(found, &freeaddrinfo);
    auto listener = std::make_unique<Socket>(socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    switch_on(*listener, SOL_SOCKET, SO_REUSEADDR);
    if (bind(listener->file(), address->ai_addr, address->ai_addrlen) != 0 || listen(listener->file(), SOMAXCONN) != 0)
        throw Failure("cannot listen on " + where + ": " + std::strerror(errno));
    return listener;
}

std::uint16_t port_of(const Socket& listener) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    getsockname(listener.file(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                                               : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

/// A client that is served on a thread of its own; destroying it ends that.
class Client {
  public:
    explicit Client(int file) : socket_(file) {
        switch_on(socket_, IPPROTO_TCP, TCP_NODELAY);  // many small messages that somebody waits for
        switch_on(socket_, SOL_SOCKET, SO_KEEPALIVE);  // a machine that was switched off does not say so
        thread_ = std::thread([this] {
            tovix_simulation_serve_usbip(socket_.file());
            shutdown(socket_.file(), SHUT_RDWR);
            served_ = true;
        });
    }
    ~Client() {
        shutdown(socket_.file(), SHUT_RDWR);
        thread_.join();
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    bool served() const { return served_; }

  private:
    const Socket socket_;
    std::atomic<bool> served_ = false;
    std::thread thread_;
};

void serve(const Socket& listener) {
    std::list<Client> clients;
    while (!StopSignals::came()) {
        pollfd waiting{.fd = listener.file(), .events = POLLIN, .revents = 0};
        poll(&waiting, 1, kPassMs);
        clients.remove_if([](const Client& client) { return client.served(); });
        const int file = accept4(listener.file(), nullptr, nullptr, SOCK_CLOEXEC);
        if (file < 0) continue;  // nobody came, or has left already
        if (clients.size() < kMostClients) {
            clients.emplace_back(file);
        } else {
            close(file);
        }
    }
}

void print_answer(const SimulateOptions& options, std::uint16_t port) {
    constexpr std::uint32_t kFirstSerial = 1001;
    auto devices = nlohmann::ordered_json::array();
    for (const SimulatedCamera& camera : options.cameras) {
        const auto index = static_cast<std::uint32_t>(devices.size());
        devices.push_back({{"busid", text("1-%u", index + 1)},
                           {"model", camera.model.empty() ? tovix_simulation_model_name(0) : camera.model},
                           {"serial", camera.serial_number != 0 ? camera.serial_number : kFirstSerial + index}});
    }
    if (options.json) {
        const nlohmann::ordered_json answer = {{"address", options.address}, {"port", port}, {"devices", devices}};
        std::printf("%s\n", answer.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    } else {
        std::printf("serving on %s, port %u, until interrupted\n", printable(options.address).c_str(), port);
        for (const auto& device : devices)
            std::printf("%6s  %s  %u\n", device["busid"].get<std::string>().c_str(),
                        device["model"].get<std::string>().c_str(), device["serial"].get<std::uint32_t>());
    }
    flush_answer();
}

}  // namespace

void run(const SimulateOptions& options, const GlobalOptions& global, QuietStderr& quiet) {
    const SimulatedBus bus(quiet);
    for (const SimulatedCamera& camera : options.cameras)
        bus.attach(camera, global.view, options.ready ? TOVIX_SIMULATED_READY : TOVIX_SIMULATED_BARE);
    const std::unique_ptr<Socket> listener = listen_on(options);
    const StopSignals signals;
    print_answer(options, port_of(*listener));
    serve(*listener);
}
