// SPDX-License-Identifier: Apache-2.0
// The libusb back end over a mocked kernel: the real library, a device that is not there.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <list>
#include <mutex>
#include <numeric>
#include <thread>

#include "backend.h"
#include "mocked_kernel.h"
#include "platform.h"

namespace tovix::platform {
namespace {

using mocked_kernel::BulkRead;
using mocked_kernel::ControlSetup;
using mocked_kernel::MockedKernel;
using mocked_kernel::Outcome;
using Bytes = std::vector<std::uint8_t>;

constexpr UInt8 kInterface = 0, kIn = 1, kOut = 2;  // pipes of alternate setting 1
constexpr std::uint8_t kInEndpoint = 0x82, kOutEndpoint = 0x06;
constexpr UInt32 kLongMs = 20'000;  // a limit that only a fault reaches

Bytes counting(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    return bytes;
}

/// Sends back on its bulk pipe what it has been sent, and remembers what a control request wrote.
class EchoDevice : public mocked_kernel::UsbDeviceModel {
  public:
    EchoDevice(std::uint16_t product, std::string driver) : product_(product), driver_(std::move(driver)) {}

    std::vector<std::uint8_t> descriptors() const override {
        const auto low = static_cast<std::uint8_t>(product_), high = static_cast<std::uint8_t>(product_ >> 8);
        Bytes all{18, 1, 0, 2, 0xFF, 0x5A, 0, 64, 0x09, 0x12, low, high, 0x34, 0x12, 1, 2, 3, 2};
        for (const std::uint8_t value : Bytes{1, 2}) {
            const Bytes configuration{9, 2, 41,          0, 1, value, 0,    0x80, 50,  // one interface
                                      9, 4, kInterface,  0, 0, 0xFF,  0xFF, 0xFF, 0,   // setting 0: no pipes
                                      9, 4, kInterface,  1, 2, 0xFF,  0xFF, 0xFF, 0,   // setting 1: two
                                      7, 5, kInEndpoint, 2, 0, 2,     0,    7,    5,  kOutEndpoint, 2, 0, 2, 0};
            all.insert(all.end(), configuration.begin(), configuration.end());
        }
        return all;
    }
    std::string kernel_driver() const override { return driver_; }

    Outcome control(const ControlSetup& setup, std::span<std::uint8_t> data, std::size_t& length) override {
        const std::lock_guard lock(mutex_);
        if (setup.request == 0xEE) return Outcome::kStall;
        if ((setup.request_type & 0x80) == 0) {
            written_.assign(data.begin(), data.end());
        } else {
            length = std::min(data.size(), written_.size());
            std::copy_n(written_.begin(), length, data.begin());
        }
        return Outcome::kDone;
    }
    Outcome bulk_out(std::uint8_t, std::span<const std::uint8_t> bytes) override {
        const std::lock_guard lock(mutex_);
        stored_.insert(stored_.end(), bytes.begin(), bytes.end());
        serve();
        return Outcome::kDone;
    }
    void bulk_in(std::uint8_t, std::shared_ptr<BulkRead> read) override {
        const std::lock_guard lock(mutex_);
        reads_.push_back(std::move(read));
        changed_.notify_all();
        serve();
    }
    void bulk_in_cancelled(std::uint8_t, const BulkRead& read) override {
        const std::lock_guard lock(mutex_);
        std::erase_if(reads_, [&](const auto& each) { return each.get() == &read; });
    }
    bool set_configuration(std::uint8_t) override { return true; }
    bool set_alternate(std::uint8_t, std::uint8_t) override { return true; }
    void clear_halt(std::uint8_t) override {
        const std::lock_guard lock(mutex_);
        halted_ = false;
    }

    /// Put bytes into the pipe towards the host, whole or, with `end` false, as the beginning of a longer answer.
    void send(const Bytes& bytes, bool end = true) {
        const std::lock_guard lock(mutex_);
        stored_.insert(stored_.end(), bytes.begin(), bytes.end());
        ends_ = end;
        serve();
    }
    void halt() {
        const std::lock_guard lock(mutex_);
        halted_ = true;
        serve();
    }
    void await_read() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !reads_.empty(); });
    }

  private:
    // A read ends when it is full, or when the stored bytes run out and end in a short packet.
    void serve() {
        while (!reads_.empty() && (halted_ || !stored_.empty())) {
            BulkRead& read = *reads_.front();
            if (halted_) {
                read.complete(Outcome::kStall);
            } else {
                std::size_t size = std::min(stored_.size(), read.size());
                if (size == read.size()) size = std::min(stored_.size(), (size + 511) / 512 * 512);  // whole packets
                read.deliver(Bytes(stored_.begin(), stored_.begin() + static_cast<std::ptrdiff_t>(size)));
                stored_.erase(stored_.begin(), stored_.begin() + static_cast<std::ptrdiff_t>(size));
                if (size < read.size() && !ends_) return;
                read.complete(Outcome::kDone);
            }
            reads_.pop_front();
        }
    }

    const std::uint16_t product_;
    const std::string driver_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Bytes written_;
    std::deque<std::uint8_t> stored_;
    std::deque<std::shared_ptr<BulkRead>> reads_;
    bool halted_ = false, ends_ = true;
};

/// A read whose completion a test can wait for.
class Read final : public AsyncRead {
  public:
    explicit Read(std::size_t capacity) : buffer(capacity) {
        data = buffer.data();
        size = static_cast<UInt32>(capacity);
    }
    void complete(IOReturn its_status, UInt32 its_bytes) noexcept override {
        const std::lock_guard lock(mutex_);
        status = its_status;
        bytes = its_bytes;
        thread = std::this_thread::get_id();
        ++completions_;
        done_.notify_all();
    }
    int completions() {
        const std::lock_guard lock(mutex_);
        return completions_;
    }
    [[nodiscard]] bool wait() {
        std::unique_lock lock(mutex_);
        return done_.wait_for(lock, std::chrono::milliseconds(kLongMs), [&] { return completions_ > 0; });
    }

    Bytes buffer;
    IOReturn status = -1;
    UInt32 bytes = 0;
    std::thread::id thread;

  private:
    std::mutex mutex_;
    std::condition_variable done_;
    int completions_ = 0;
};

class LibusbBackendTest : public testing::Test {
  protected:
    std::vector<std::shared_ptr<HostDevice>> devices() {
        std::vector<std::shared_ptr<HostDevice>> found;
        EXPECT_EQ(libusb_backend().devices(found), 0);
        return found;
    }
    /// Opened, with both pipes.
    static std::shared_ptr<HostDevice> open(const std::shared_ptr<HostDevice>& device) {
        EXPECT_EQ(device->open(), 0);
        EXPECT_EQ(device->claim(kInterface), 0);
        EXPECT_EQ(device->set_alternate(kInterface, 1), 0);
        return device;
    }
    /// The only device.
    std::shared_ptr<HostDevice> opened() {
        const auto found = devices();
        if (found.size() != 1) throw std::runtime_error("expected one device");
        return open(found[0]);
    }
    static IOReturn request(HostDevice& device, UInt8 type, UInt8 code, Bytes& data, UInt32& done, UInt16 length) {
        IOUSBDevRequestTO request{};
        request.bmRequestType = type, request.bRequest = code;
        request.wLength = length, request.pData = data.data();
        request.wLenDone = 99;
        request.noDataTimeout = kLongMs;
        const IOReturn status = device.control(request);
        done = request.wLenDone;
        return status;
    }

    EchoDevice& plug(int port, std::uint16_t product = 1, const std::string& driver = {}) {
        kernel.plug(port, models.emplace_back(product, driver));
        return models.back();
    }

    std::list<EchoDevice> models;  // outlive the kernel
    MockedKernel kernel;
};

TEST_F(LibusbBackendTest, DevicesComeInTheOrderOfTheirPorts) {
    EXPECT_TRUE(devices().empty());
    plug(3, 2);
    plug(2, 1);
    const auto found = devices();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[1]->identity().product_id, 2);
    const DeviceIdentity& first = found[0]->identity();
    EXPECT_EQ(first.vendor_id, 0x1209);
    EXPECT_EQ(first.product_id, 1);
    EXPECT_EQ(first.release, 0x1234);
    EXPECT_EQ(first.subclass, 0x5A);
    EXPECT_EQ(first.speed, 2);
    EXPECT_EQ(first.product_string_index, 2);
    EXPECT_EQ(first.serial_string_index, 3);
}

TEST_F(LibusbBackendTest, ADeviceHasOneOwner) {
    plug(1);
    const auto device = opened();
    const auto other = devices().at(0);
    EXPECT_EQ(other->open(), kIOReturnExclusiveAccess);
    EXPECT_EQ(device->open(), kIOReturnExclusiveAccess);
    device->close();
    EXPECT_EQ(device->claim(kInterface), kIOReturnNotFound);
    EXPECT_EQ(other->open(), 0);
}

TEST_F(LibusbBackendTest, DevicesOfOneSearchDoNotDependOnEachOther) {
    plug(1);
    EchoDevice& second = plug(2);
    const auto found = devices();
    Read reads[2] = {Read(64), Read(64)};
    for (const std::size_t index : {0u, 1u}) {
        EXPECT_EQ(open(found[index])->read_async(kInterface, kIn, reads[index]), 0);
    }
    found[0]->close();
    EXPECT_EQ(reads[0].completions(), 1);
    EXPECT_EQ(reads[1].completions(), 0);
    second.send(counting(64));
    ASSERT_TRUE(reads[1].wait());
    EXPECT_EQ(reads[1].status, 0);
    EXPECT_EQ(found[0]->open(), 0);
}

TEST_F(LibusbBackendTest, DriversOfTheHostMakeWayForANewConfiguration) {
    plug(1, 0x8613, "usbtest");
    const auto device = opened();
    IOUSBConfigurationDescriptor head{};
    EXPECT_EQ(device->configuration_descriptor(1, head), 0);
    EXPECT_EQ(head.bConfigurationValue, 2);
    EXPECT_EQ(head.wTotalLength[0], 41);
    EXPECT_EQ(device->configuration_descriptor(2, head), kIOReturnNotFound);
    EXPECT_EQ(device->set_configuration(7), kIOReturnNotFound);
    EXPECT_EQ(device->set_configuration(2), 0);
    std::vector<UInt8> numbers;
    EXPECT_EQ(device->interfaces(numbers), 0);
    EXPECT_EQ(numbers, std::vector<UInt8>{kInterface});
    EXPECT_EQ(device->pipe_status(kInterface, kIn), kIOReturnNotOpen) << "interfaces of the old configuration are gone";
    EXPECT_EQ(device->claim(kInterface), 0);
    EXPECT_EQ(device->pipe_status(kInterface, kIn), kIOUSBUnknownPipeErr) << "setting 0 has no pipes";
}

TEST_F(LibusbBackendTest, ControlRequestsReportWhatMoved) {
    plug(1);
    const auto device = opened();
    UInt32 done = 0;
    Bytes sent = counting(4097), received(4097);
    EXPECT_EQ(request(*device, 0x40, 1, sent, done, 4096), 0);
    EXPECT_EQ(done, 4096u);
    EXPECT_EQ(request(*device, 0xC0, 1, received, done, 4096), 0);
    EXPECT_EQ(done, 4096u);
    sent.back() = 0;
    EXPECT_EQ(received, sent);
    EXPECT_EQ(request(*device, 0x40, 1, sent, done, 3), 0);
    EXPECT_EQ(request(*device, 0xC0, 1, received, done, 64), 0) << "a short answer is a success";
    EXPECT_EQ(done, 3u);
    EXPECT_EQ(request(*device, 0xC0, 0xEE, received, done, 64), kIOUSBPipeStalled);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(device->pipe_status(kInterface, 0), 0);
    EXPECT_EQ(request(*device, 0x40, 1, sent, done, 4097), kIOReturnBadArgument);
}

TEST_F(LibusbBackendTest, BulkReadsEndWithShortPacketFullBufferOrTooMuch) {
    plug(1);
    const auto device = opened();
    constexpr UInt32 kLong = 600'000;  // several chunks and a last packet that is not full
    struct Case {
        UInt32 sent, capacity, received;
        IOReturn status;
    };
    for (const Case& each : {Case{kLong, kLong, kLong, 0}, Case{1024, 1024, 1024, 0}, Case{700, 2000, 700, 0},
                             Case{262'144, 262'144, 262'144, 0}, Case{1, 1, 1, 0}, Case{262'200, 400'000, 262'200, 0},
                             Case{1024, 1000, 1000, kIOReturnOverrun}, Case{30, 7, 7, kIOReturnOverrun}}) {
        SCOPED_TRACE(testing::Message() << each.sent << " bytes into " << each.capacity);
        const Bytes sent = counting(each.sent);
        EXPECT_EQ(device->write_pipe(kInterface, kOut, sent.data(), each.sent, kLongMs), 0);
        Bytes received(each.capacity + 16, 0xA5);
        UInt32 size = each.capacity;
        EXPECT_EQ(device->read_pipe(kInterface, kIn, received.data(), size, kLongMs), each.status);
        EXPECT_EQ(size, each.received);
        EXPECT_TRUE(std::equal(sent.begin(), sent.begin() + each.received, received.begin()));
        EXPECT_TRUE(
            std::all_of(received.begin() + each.capacity, received.end(), [](int byte) { return byte == 0xA5; }));
    }
}

TEST_F(LibusbBackendTest, PipesThatDoNotFitAreRefused) {
    plug(1);
    const auto device = opened();
    UInt32 size = 8;
    UInt8 byte[8] = {};
    EXPECT_EQ(device->read_pipe(kInterface, kOut, byte, size, 10), kIOReturnBadArgument);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(device->write_pipe(kInterface, kIn, byte, 8, 10), kIOReturnBadArgument);
    for (const UInt8 pipe : Bytes{3, 255})
        EXPECT_EQ(device->abort_pipe(kInterface, pipe), kIOUSBUnknownPipeErr);
    Read read(512);
    EXPECT_EQ(device->read_async(kInterface, 0, read), kIOUSBUnknownPipeErr);
    EXPECT_EQ(device->read_async(7, kIn, read), kIOReturnNotOpen);
    Read enormous(17 << 20);
    EXPECT_EQ(device->read_async(kInterface, kIn, enormous), kIOReturnNoMemory);
    device->close();
    EXPECT_EQ(read.completions() + enormous.completions(), 0);
}

TEST_F(LibusbBackendTest, ATimeOutKeepsWhatArrived) {
    EchoDevice& echo = plug(1);
    const auto device = opened();
    echo.send(counting(1536), false);
    Bytes received(4096);
    UInt32 size = 4096;
    EXPECT_EQ(device->read_pipe(kInterface, kIn, received.data(), size, 50), kIOUSBTransactionTimeout);
    EXPECT_EQ(size, 1536u);
    EXPECT_TRUE(std::equal(received.begin(), received.begin() + 1536, counting(1536).begin()));
}

TEST_F(LibusbBackendTest, AsynchronousReadsCompleteOnceOnTheEventThread) {
    EchoDevice& echo = plug(1);
    const auto device = opened();
    for (const std::size_t size : {std::size_t{3} << 20, std::size_t{100'001}}) {
        Read frame(size), next(512);
        EXPECT_EQ(device->read_async(kInterface, kIn, frame), 0);
        UInt32 done = 0;
        Bytes data(4);
        EXPECT_EQ(request(*device, 0x40, 1, data, done, 4), 0) << "beside the read";
        EXPECT_EQ(frame.completions(), 0);
        echo.send(counting(size));
        ASSERT_TRUE(frame.wait());
        EXPECT_EQ(frame.status, 0);
        EXPECT_EQ(frame.bytes, size);
        EXPECT_EQ(frame.buffer, counting(size));
        EXPECT_NE(frame.thread, std::this_thread::get_id());
        EXPECT_EQ(frame.completions(), 1);
    }
    Read small(100);
    EXPECT_EQ(device->read_async(kInterface, kIn, small), 0);
    echo.send(counting(300));
    ASSERT_TRUE(small.wait());
    EXPECT_EQ(small.status, kIOReturnOverrun);
    EXPECT_EQ(small.bytes, 100u);
}

TEST_F(LibusbBackendTest, AStalledPipeStaysHaltedUntilItIsCleared) {
    EchoDevice& echo = plug(1);
    const auto device = opened();
    Read read(512);
    EXPECT_EQ(device->read_async(kInterface, kIn, read), 0);
    echo.halt();
    ASSERT_TRUE(read.wait());
    EXPECT_EQ(read.status, kIOUSBPipeStalled);
    EXPECT_EQ(device->pipe_status(kInterface, kIn), kIOUSBPipeStalled);
    EXPECT_EQ(device->pipe_status(kInterface, kOut), 0);
    EXPECT_EQ(device->read_async(kInterface, kIn, read), kIOUSBPipeStalled);
    EXPECT_EQ(device->clear_stall(kInterface, 0), 0);
    EXPECT_EQ(device->pipe_status(kInterface, kIn), kIOUSBPipeStalled);
    EXPECT_EQ(device->clear_stall(kInterface, kIn), 0);
    EXPECT_EQ(device->pipe_status(kInterface, kIn), 0);
    echo.send(counting(20));
    Bytes received(20);
    UInt32 size = 20;
    EXPECT_EQ(device->read_pipe(kInterface, kIn, received.data(), size, kLongMs), 0);
    EXPECT_EQ(received, counting(20));
    echo.halt();
    EXPECT_EQ(device->read_pipe(kInterface, kIn, received.data(), size, kLongMs), kIOUSBPipeStalled);
    EXPECT_EQ(device->set_alternate(kInterface, 1), 0);
    EXPECT_EQ(device->pipe_status(kInterface, kIn), 0) << "a new setting has no halted pipes";
}

TEST_F(LibusbBackendTest, WhateverEndsAPipeEndsItsReadsFirst) {
    const struct {
        const char* name;
        void (*end)(HostDevice&);
    } cases[] = {{"setting", [](HostDevice& on) { EXPECT_EQ(on.set_alternate(kInterface, 1), 0); }},
                 {"clear", [](HostDevice& on) { EXPECT_EQ(on.clear_stall(kInterface, kIn), 0); }},
                 {"release", [](HostDevice& on) { on.release(kInterface); }},
                 {"configuration", [](HostDevice& on) { EXPECT_EQ(on.set_configuration(2), 0); }},
                 {"close", [](HostDevice& on) { on.close(); }}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        plug(1);
        const auto device = opened();
        Read read(1024);
        EXPECT_EQ(device->read_async(kInterface, kIn, read), 0);
        each.end(*device);
        EXPECT_EQ(read.completions(), 1);
        EXPECT_EQ(read.status, kIOReturnAborted);
        device->close();
        kernel.unplug(1);
    }
}

TEST_F(LibusbBackendTest, AnAbortReachesAReadInAnotherThread) {
    EchoDevice& echo = plug(1);
    const auto device = opened();
    IOReturn status = 0;
    UInt32 size = 600'000;
    Bytes received(size);
    std::thread reader([&] { status = device->read_pipe(kInterface, kIn, received.data(), size, 0); });
    echo.await_read();
    EXPECT_EQ(device->abort_pipe(kInterface, kIn), 0);
    reader.join();
    EXPECT_EQ(status, kIOReturnAborted);
    EXPECT_EQ(size, 0u);
}

TEST_F(LibusbBackendTest, UnpluggingEndsAPendingReadAndAnotherDeviceCanFollow) {
    plug(1);
    const auto device = opened();
    Read read(1 << 20);
    EXPECT_EQ(device->read_async(kInterface, kIn, read), 0);
    kernel.disconnect(1);
    ASSERT_TRUE(read.wait());
    EXPECT_EQ(read.status, kIOReturnNoDevice);
    UInt32 done = 0, size = 4;
    Bytes data(4);
    EXPECT_EQ(request(*device, 0xC0, 1, data, done, 4), kIOReturnNoDevice);
    EXPECT_EQ(device->read_pipe(kInterface, kIn, data.data(), size, 10), kIOReturnNoDevice);
    EXPECT_EQ(device->read_async(kInterface, kIn, read), kIOReturnNoDevice);
    EXPECT_EQ(device->pipe_status(kInterface, kIn), kIOReturnNoDevice);
    EXPECT_EQ(device->clear_stall(kInterface, kIn), kIOReturnNoDevice);
    EXPECT_EQ(device->set_alternate(kInterface, 0), kIOReturnNoDevice);
    kernel.unplug(1);

    plug(1, 0x0042);
    const auto next = opened();  // while the handle of the first is still open
    EXPECT_EQ(next->identity().product_id, 0x0042);
    device->close();
    EXPECT_EQ(read.completions(), 1);
    Bytes sent = counting(16);
    EXPECT_EQ(next->write_pipe(kInterface, kOut, sent.data(), 16, kLongMs), 0);
}

}  // namespace
}  // namespace tovix::platform
