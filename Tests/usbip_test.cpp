// SPDX-License-Identifier: Apache-2.0
// The USB/IP server as a client sees it, and clients as the server must bear them. Numbers are written out as they go over
// the wire, not taken from the server's own header.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "frame_mark.h"
#include "simulated_bus.h"
#include "usbip.h"

namespace {

using namespace tovix::test;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kDeviceBytes = 312, kHeadBytes = 48;
constexpr std::int32_t kStall = -32, kNoMemory = -12, kCancelled = -104, kShutDown = -108, kShort = -121;
constexpr std::uint32_t kOut = 0, kIn = 1, kFirstDevice = 0x10001;

Bytes words(std::initializer_list<std::uint32_t> values) {
    Bytes bytes;
    for (const std::uint32_t value : values)
        for (const int shift : {24, 16, 8, 0})
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    return bytes;
}

std::uint32_t word(const Bytes& bytes, std::size_t at) {
    return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 | std::uint32_t{bytes[at + 2]} << 8 |
           bytes[at + 3];
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes import_request(const std::string& id) {
    Bytes request = words({0x01118003, 0});
    request.insert(request.end(), id.begin(), id.end());
    request.resize(40);
    return request;
}

const Bytes kListRequest = words({0x01118005, 0});

/// A client that is served on another thread.
class Client {
  public:
    explicit Client(tovix::simulator::Bus& bus) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0);
        served_ = std::async(std::launch::async, [this, &bus] {
            const bool kept_to_protocol = serve_usbip(bus, ends_[0]);
            shutdown(ends_[0], SHUT_RDWR);
            return kept_to_protocol;
        });
    }
    ~Client() {
        leave();
        if (served_.valid()) served_.wait();
        for (const int end : ends_)
            close(end);
    }
    void leave() { shutdown(ends_[1], SHUT_RDWR); }
    void hang_up() { shutdown(ends_[1], SHUT_WR); }
    /// How it ended, see serve_usbip(). Once.
    bool kept_to_protocol() { return served_.get(); }

    void send(const Bytes& bytes) { EXPECT_GE(::send(ends_[1], bytes.data(), bytes.size(), MSG_NOSIGNAL), -1); }
    Bytes receive(std::size_t count) {
        Bytes bytes(count);
        if (count == 0) return bytes;  // for which recv() would wait
        const ssize_t got = recv(ends_[1], bytes.data(), count, MSG_WAITALL);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }

    std::uint32_t import(const std::string& id) {
        send(import_request(id));
        const Bytes head = receive(8);
        if (head.size() != 8) return UINT32_MAX;
        EXPECT_EQ(word(head, 0), 0x01110003u);
        if (word(head, 4) == 0) {
            EXPECT_EQ(receive(kDeviceBytes).size(), kDeviceBytes);
        }
        return word(head, 4);
    }

    void submit(std::uint32_t sequence, std::uint32_t direction, std::uint32_t endpoint, std::uint32_t length,
                const Bytes& setup = Bytes(8), const Bytes& out = {}, std::uint32_t flags = 0) {
        send(words({1, sequence, kFirstDevice, direction, endpoint, flags, length, 0, 0, 0}) + setup + out);
    }
    void unlink(std::uint32_t sequence, std::uint32_t unlinked) {
        send(words({2, sequence, kFirstDevice, 0, 0, unlinked, 0, 0, 0, 0, 0, 0}));
    }

    struct Return {
        std::uint32_t command = 0, sequence = 0;
        std::int32_t status = 0;
        Bytes data;
    };
    /// The next answer; the data of those with sequence numbers below `first_out` come along.
    Return next(std::uint32_t first_out = UINT32_MAX) {
        const Bytes head = receive(kHeadBytes);
        if (head.size() != kHeadBytes) return {};
        Return answer{word(head, 0), word(head, 4), static_cast<std::int32_t>(word(head, 20)), {}};
        if (answer.command == 3 && answer.sequence < first_out) answer.data = receive(word(head, 24));
        return answer;
    }

  private:
    int ends_[2];
    std::future<bool> served_;
};

/// Two cameras, ready, the first of which takes frames of 64 x 32 marked bytes once video is on.
struct Fixture {
    SimulatedBus bus{Pace::kAsFastAsItGoes};
    Port& first =
        bus.attach("mira13c", DeviceOptions::State::kReady, [](auto& options) { options.mark_frames = true; });
    Port& second = bus.attach("atlas13c", DeviceOptions::State::kBare);
};

TEST(UsbIp, ListsWhatIsOnTheBus) {
    Fixture fixture;
    for (const std::uint32_t count : {2u, 1u}) {
        Client client(*fixture.bus.operator->());
        client.send(kListRequest);
        const Bytes reply = client.receive(100'000);
        ASSERT_EQ(reply.size(), 12 + count * (kDeviceBytes + 4));
        EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 12), words({0x01110005, 0, count}));
        const Bytes device(reply.begin() + 12, reply.end());
        const char* const id = reinterpret_cast<const char*>(&device[256]);
        EXPECT_STREQ(id, count == 2 ? "1-1" : "1-2");
        EXPECT_EQ(word(device, 288) << 16 | word(device, 292), count == 2 ? 0x10001u : 0x10002u);
        EXPECT_EQ(word(device, 296), 3u) << "high speed";
        EXPECT_EQ(word(device, 300), count == 2 ? 0xE6C10113u : 0x04B48613u);
        EXPECT_TRUE(client.kept_to_protocol());
        fixture.first.access()->unplug();
    }
}

TEST(UsbIp, LendsADeviceToOneClient) {
    Fixture fixture;
    tovix::simulator::Bus& bus = *fixture.bus.operator->();
    for (const char* id : {"1-3", "1-0", "2-1", "", "1-10000000000000000000000000001"})
        EXPECT_EQ(Client(bus).import(id), 4u) << id;
    std::optional<Client> holder(std::in_place, bus);
    EXPECT_EQ(holder->import("1-1"), 0u);
    EXPECT_EQ(Client(bus).import("1-1"), 2u);
    EXPECT_EQ(Client(bus).import("1-2"), 0u);
    _tovix* camera = nullptr;
    tovix_camera_open_any(&camera);
    EXPECT_EQ(camera, nullptr) << "nor to the library";
    holder.reset();
    EXPECT_EQ(Client(bus).import("1-1"), 0u);
}

TEST(UsbIp, CarriesTransfers) {
    Fixture fixture;
    Client client(*fixture.bus.operator->());
    ASSERT_EQ(client.import("1-1"), 0u);
    constexpr std::uint32_t kFirstOut = 100;
    client.submit(1, kIn, 0, 18, {0x80, 6, 0, 1, 0, 0, 18, 0});
    EXPECT_EQ(client.next().data.size(), 18u);
    client.submit(2, kIn, 0, 9, {0x80, 6, 0, 9, 0, 0, 9, 0});
    EXPECT_EQ(client.next().status, kStall) << "no such descriptor";
    client.submit(3, kIn, 0, 9, {0x80, 6, 0, 1, 0, 0, 18, 0});
    EXPECT_EQ(client.next().status, kStall) << "two lengths";

    const auto write = [&](std::uint32_t sequence, const Bytes& setup, const Bytes& out) {
        client.submit(sequence, kOut, 0, static_cast<std::uint32_t>(out.size()), setup, out);
        const auto answer = client.next(kFirstOut);
        EXPECT_EQ(answer.sequence, sequence);
        EXPECT_EQ(answer.status, 0);
    };
    write(100, {0, 9, 1, 0, 0, 0, 0, 0}, {});
    write(101, {1, 11, 2, 0, 0, 0, 0, 0}, {});
    write(102, {0x40, 0x12, 0, 0, 0x0C, 0x10, 4, 0}, {64, 0, 32, 0});
    write(103, {0x40, 0x12, 0, 0, 0x14, 0x02, 4, 0}, {0x80, 0, 0, 0});
    client.submit(10, kIn, 6, 64 * 32);
    const auto frame = client.next();
    EXPECT_EQ(frame.sequence, 10u);
    std::uint32_t serial = 0;
    EXPECT_TRUE(tovix::simulator::check_frame(frame.data, 64, &serial));
    client.submit(11, kIn, 6, 64 * 32 + 512, Bytes(8), {}, 1);
    EXPECT_EQ(client.next().status, kShort);

    write(104, {0x40, 0x12, 0, 0, 0x14, 0x02, 4, 0}, {0, 0, 0, 0});
    client.submit(12, kIn, 6, 512);
    client.unlink(13, 12);
    auto answer = client.next();
    EXPECT_EQ(answer.command, 4u);
    EXPECT_EQ(answer.status, kCancelled);
    client.unlink(14, 11);
    EXPECT_EQ(client.next().status, 0) << "it had ended";
    client.submit(15, kIn, 5, 512);
    EXPECT_EQ(client.next().status, kStall) << "no such endpoint";

    // What is asked for all at once is bounded; what was accepted goes on.
    for (std::uint32_t sequence = 20; sequence < 40; ++sequence)
        client.submit(sequence, kIn, 6, 4 << 20);
    answer = client.next();
    EXPECT_EQ(answer.status, kNoMemory);
    EXPECT_GE(answer.sequence, 30u);
    EXPECT_TRUE(fixture.first.access()->attached());
}

TEST(UsbIp, EndsWithTheDeviceWhichComesBack) {
    Fixture fixture;
    tovix::simulator::Bus& bus = *fixture.bus.operator->();
    for (int round = 0; round < 3; ++round) {
        Client client(bus);
        ASSERT_EQ(client.import("1-1"), 0u);
        if (round > 0) {
            client.submit(100, kOut, 0, 0, {0, 9, 1, 0, 0, 0, 0, 0});
            client.submit(101, kOut, 0, 0, {1, 11, 2, 0, 0, 0, 0, 0});
            client.submit(1, kIn, 6, 512);
            client.submit(2, kIn, 0, 18, {0x80, 6, 0, 1, 0, 0, 18, 0});
            for (int answers = 0; answers < 3; ++answers)  // after the last of which the read is under way
                client.next(100);
        }
        fixture.first.access()->unplug();
        if (round > 0) {
            EXPECT_EQ(client.next().status, kShutDown);
        }
        EXPECT_TRUE(client.kept_to_protocol());
        EXPECT_EQ(Client(bus).import("1-1"), 4u);
        fixture.first.access()->plug_in();
    }
}

TEST(UsbIp, BearsEveryClient) {
    Fixture fixture;
    tovix::simulator::Bus& bus = *fixture.bus.operator->();
    const Bytes imported = import_request("1-1");
    const struct {
        const char* what;
        Bytes bytes;
        bool kept;
    } cases[] = {
        {"nothing", {}, true},
        {"half a request", words({0x01118005}), true},
        {"another version", words({0x01108005, 0}), false},
        {"another request", words({0x01118007, 0}), false},
        {"half a bus ID", words({0x01118003, 0, 0x312D3100}), true},
        {"half a command", imported + words({1, 1, kFirstDevice}), true},
        {"another command", imported + words({9, 1, kFirstDevice, 0, 0, 0, 0, 0, 0, 0, 0, 0}), false},
        {"another device", imported + words({1, 1, 0x10002, 0, 0, 0, 0, 0, 0, 0, 0, 0}), false},
        {"endless bytes", imported + words({1, 1, kFirstDevice, 0, 2, 0, 0xFFFFFFFF, 0, 0, 0, 0, 0}), false},
        {"fewer bytes than said", imported + words({1, 1, kFirstDevice, 0, 2, 0, 4096, 0, 0, 0, 0, 0}), true},
        {"an endless read", imported + words({1, 1, kFirstDevice, 1, 6, 0, 0xFFFFFFFF, 0, 0, 0, 0, 0}), true},
    };
    for (const auto& each : cases) {
        Client client(bus);
        client.send(each.bytes);
        client.hang_up();
        EXPECT_EQ(client.kept_to_protocol(), each.kept) << each.what;
    }

    std::mt19937 engine(1);
    const auto random = [&](std::uint32_t end) { return static_cast<std::uint32_t>(engine()) % end; };
    for (int round = 0; round < 500; ++round) {
        Client client(bus);
        client.send(imported);
        for (int i = 0; i < 20; ++i) {
            const std::uint32_t command = 1 + random(2), sequence = random(8), direction = random(2);
            Bytes bytes = words({command, sequence, kFirstDevice, direction, random(8), random(4), random(600), 0, 0, 0,
                                 random(UINT32_MAX), random(UINT32_MAX)});
            if (random(4) == 0) bytes[random(kHeadBytes)] = static_cast<std::uint8_t>(random(256));
            client.send(bytes + Bytes(random(600)));
        }
        client.leave();
    }
    EXPECT_EQ(Client(bus).import("1-2"), 0u) << "and serves the next one";
}

}  // namespace
