// SPDX-License-Identifier: Apache-2.0
#include "faulty_bus.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform.h"
#include "waits.h"

namespace tovix::faults {

using platform::Operation;

namespace {

constexpr std::int64_t kStepUs = 5'000;
constexpr std::int64_t kLongestStepUs = 100'000;
constexpr UInt32 kTimeoutUs = 5'000'000;
constexpr std::int64_t kLatenessUs = 1'000'000;

/// What is to become of the transfer that this thread is about to make, as intercept() has decided.
thread_local std::optional<Kind> pending_kind;

IOReturn status_of(Kind kind, Operation operation) {
    const bool opens = operation == Operation::kUSBDeviceOpen || operation == Operation::kUSBInterfaceOpen;
    switch (kind) {
        case Kind::kStall: return kIOUSBPipeStalled;
        case Kind::kTimeout:
        case Kind::kLate: return kIOUSBTransactionTimeout;
        case Kind::kNoDevice: return kIOReturnNoDevice;
        case Kind::kNoMemory: return kIOReturnNoMemory;
        case Kind::kBusy: return opens ? kIOReturnExclusiveAccess : kIOReturnBusy;
        default: return kIOReturnSuccess;
    }
}

/// The status and the length of a transfer of which `length` bytes have moved, after a fault.
void spoil(Kind kind, IOReturn& status, UInt32& length) {
    if (status != kIOReturnSuccess) return;
    switch (kind) {
        case Kind::kShort: length -= length != 0; break;
        case Kind::kEmpty: length = 0; break;
        case Kind::kOverrun: status = kIOReturnOverrun; break;
        case Kind::kStall: status = kIOUSBPipeStalled, length = 0; break;
        case Kind::kTimeout:
        case Kind::kLate: status = kIOUSBTransactionTimeout, length = 0; break;
        default: break;
    }
}

/// Stands between a read and its completion, and changes what comes.
class SpoiltRead final : public platform::AsyncRead {
  public:
    SpoiltRead(platform::AsyncRead& target, Kind kind) : target_(target), kind_(kind) {
        data = target.data;
        size = target.size;
    }
    void complete(IOReturn status, UInt32 bytes) noexcept override {
        spoil(kind_, status, bytes);
        target_.complete(status, bytes);
        delete this;
    }

  private:
    platform::AsyncRead& target_;
    const Kind kind_;
};

}  // namespace

/// A read that the host has accepted and hands to the device only later.
class LateRead {
  public:
    LateRead(std::shared_ptr<platform::HostDevice> device, UInt8 interface_number, UInt8 pipe,
             platform::AsyncRead& read, std::int64_t due_us)
        : due_us_(due_us), device_(std::move(device)), interface_(interface_number), pipe_(pipe), read_(read) {}
    bool is_due(std::int64_t now_us) const { return now_us >= due_us_; }
    bool is_of(const platform::HostDevice* device) const { return device_.get() == device; }
    void issue() {
        if (const IOReturn status = device_->read_async(interface_, pipe_, read_); status != kIOReturnSuccess)
            read_.complete(status, 0);
    }
    void abort() { read_.complete(kIOReturnAborted, 0); }

  private:
    const std::int64_t due_us_;
    const std::shared_ptr<platform::HostDevice> device_;
    const UInt8 interface_, pipe_;
    platform::AsyncRead& read_;
};

/// A device of the simulated bus. What its transfers bring goes through spoil().
class FaultyDevice final : public platform::HostDevice {
  public:
    FaultyDevice(FaultyBus& bus, std::shared_ptr<platform::HostDevice> device)
        : bus_(bus), device_(std::move(device)), identity_(device_->identity()) {
        if (bus_.change_identity_) bus_.change_identity_(identity_);
    }

    const platform::DeviceIdentity& identity() const override { return identity_; }
    IOReturn open() override {
        return plain([&] { return device_->open(); });
    }
    void close() override {
        const Uncounted simulated;
        bus_.finish_late(device_.get());
        device_->close();
    }
    IOReturn configuration_descriptor(UInt8 index, IOUSBConfigurationDescriptor& head) override {
        UInt32 length = sizeof head;
        const IOReturn status =
            transfer(length, &head, sizeof head, [&] { return device_->configuration_descriptor(index, head); });
        bus_.answered({0x80, 6, static_cast<UInt16>(0x200 | index), 0, length}, &head);
        return status;
    }
    IOReturn set_configuration(UInt8 value) override {
        return plain([&] { return device_->set_configuration(value); });
    }
    IOReturn interfaces(std::vector<UInt8>& numbers) override {
        return plain([&] { return device_->interfaces(numbers); });
    }
    IOReturn control(IOUSBDevRequestTO& request) override {
        const bool to_host = (request.bmRequestType & 0x80) != 0;
        const IOReturn status = transfer(request.wLenDone, request.pData, to_host ? request.wLength : 0,
                                         [&] { return device_->control(request); });
        if (to_host)
            bus_.answered({request.bmRequestType, request.bRequest, request.wValue, request.wIndex, request.wLenDone},
                          request.pData);
        return status;
    }
    IOReturn claim(UInt8 interface_number) override {
        return plain([&] { return device_->claim(interface_number); });
    }
    void release(UInt8 interface_number) override {
        const Uncounted simulated;
        bus_.finish_late(device_.get());
        device_->release(interface_number);
    }
    IOReturn set_alternate(UInt8 interface_number, UInt8 setting) override {
        bus_.finish_late(device_.get());
        return plain([&] { return device_->set_alternate(interface_number, setting); });
    }
    IOReturn pipe_status(UInt8 interface_number, UInt8 pipe) override {
        return plain([&] { return device_->pipe_status(interface_number, pipe); });
    }
    IOReturn read_pipe(UInt8 interface_number, UInt8 pipe, void* data, UInt32& size, UInt32 no_data_ms) override {
        return transfer(size, data, size,
                        [&] { return device_->read_pipe(interface_number, pipe, data, size, no_data_ms); });
    }
    IOReturn write_pipe(UInt8 interface_number, UInt8 pipe, const void* data, UInt32 size, UInt32 no_data_ms) override {
        UInt32 length = size;
        return transfer(length, nullptr, 0,
                        [&] { return device_->write_pipe(interface_number, pipe, data, size, no_data_ms); });
    }
    IOReturn clear_stall(UInt8 interface_number, UInt8 pipe) override {
        bus_.finish_late(device_.get());
        return plain([&] { return device_->clear_stall(interface_number, pipe); });
    }
    IOReturn abort_pipe(UInt8 interface_number, UInt8 pipe) override {
        bus_.finish_late(device_.get());
        return plain([&] { return device_->abort_pipe(interface_number, pipe); });
    }
    IOReturn read_async(UInt8 interface_number, UInt8 pipe, platform::AsyncRead& read) override {
        const Uncounted simulated;
        const std::optional<Kind> kind = std::exchange(pending_kind, std::nullopt);
        if (!kind) return device_->read_async(interface_number, pipe, read);
        if (*kind == Kind::kLate) {
            bus_.queue_late(
                std::make_unique<LateRead>(device_, interface_number, pipe, read, bus_.now_us() + kLatenessUs));
            return kIOReturnSuccess;
        }
        auto* const spoilt = new SpoiltRead(read, *kind);  // deletes itself, perhaps before the next line
        const IOReturn status = device_->read_async(interface_number, pipe, *spoilt);
        if (status != kIOReturnSuccess) delete spoilt;
        return status;
    }

  private:
    /// An operation that moves no data.
    IOReturn plain(const auto& operation) {
        const Uncounted simulated;
        UInt32 none = 0;
        return transfer(none, nullptr, 0, operation);
    }

    /// A transfer of `length` bytes once it is done; those that the host receives, at most `room`, lie at `data`.
    IOReturn transfer(UInt32& length, void* data, UInt32 room, const auto& operation) {
        const Uncounted simulated;
        const std::optional<Kind> kind = std::exchange(pending_kind, std::nullopt);
        auto* const bytes = static_cast<UInt8*>(data);
        const std::vector<UInt8> before(bytes, bytes + room);
        IOReturn status = operation();
        if (kind) {
            const UInt32 moved = std::min(length, room);
            spoil(*kind, status, length);
            if (length < moved) std::memcpy(bytes + length, before.data() + length, moved - length);
            if (*kind == Kind::kLate) bus_.pass(kTimeoutUs);
        }
        return status;
    }

    FaultyBus& bus_;
    const std::shared_ptr<platform::HostDevice> device_;
    platform::DeviceIdentity identity_;
};

FaultyBus::FaultyBus() = default;
FaultyBus::~FaultyBus() = default;

std::shared_ptr<simulator::Port> FaultyBus::plug_in(simulator::DeviceOptions options) {
    return ports_.emplace_back(bus_.plug_in(std::move(options)));
}

void FaultyBus::pass_until(std::int64_t end_us) {
    const Uncounted simulated;
    const std::lock_guard lock(time_mutex_);
    while (now_us() < end_us) {
        bus_.step(std::min(end_us - now_us(), after_step_ ? kStepUs : kLongestStepUs));
        issue_due();
        if (after_step_) after_step_();
    }
}

void FaultyBus::queue_late(std::unique_ptr<LateRead> read) {
    const std::lock_guard lock(late_mutex_);
    late_.push_back(std::move(read));
}

void FaultyBus::finish_late(const platform::HostDevice* device) {
    const Uncounted simulated;
    std::list<std::unique_ptr<LateRead>> finished;
    {
        const std::lock_guard lock(late_mutex_);
        for (auto read = late_.begin(); read != late_.end();) {
            const auto next = std::next(read);
            if ((*read)->is_of(device)) finished.splice(finished.end(), late_, read);
            read = next;
        }
    }
    for (const auto& read : finished)
        read->abort();
}

void FaultyBus::issue_due() {
    const std::lock_guard lock(late_mutex_);  // so that nobody closes the device meanwhile
    std::erase_if(late_, [&](const auto& read) {
        const bool due = read->is_due(now_us());
        if (due) read->issue();
        return due;
    });
}

void FaultyBus::answered(const Answered& answer, void* data) {
    const Uncounted own;
    if (answers_ != nullptr) answers_->insert(answer);
    if (!forgery_ || forgery_->answer != answer) return;
    for (UInt32 i = 0; i < forgery_->bytes; ++i)
        static_cast<UInt8*>(data)[forgery_->offset + i] = static_cast<UInt8>(forgery_->value >> 8 * i);
}

IOReturn FaultyBus::devices(std::vector<std::shared_ptr<platform::HostDevice>>& found) {
    const Uncounted simulated;
    std::vector<std::shared_ptr<platform::HostDevice>> devices;
    const IOReturn status = bus_.devices(devices);
    for (auto& device : devices)
        found.push_back(std::make_shared<FaultyDevice>(*this, std::move(device)));
    return status;
}

void FaultyBus::sleep_us(UInt32 microseconds) {
    pass(microseconds);
}

void FaultyBus::wait_until(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, std::int64_t) {
    // Nobody tells when time has come to the deadline, so the waiter looks every now and then.
    condition.wait_for(lock, std::chrono::microseconds(50));
}

IOReturn FaultyBus::intercept(Operation operation) {
    pending_kind.reset();
    const std::optional<Kind> kind = injector().strike(static_cast<Site>(operation));
    const Uncounted simulated;
    if (!kind) return kIOReturnSuccess;
    switch (*kind) {
        case Kind::kUnplug: target().access()->unplug(); return kIOReturnSuccess;
        case Kind::kReplug: target().access()->replug(); return kIOReturnSuccess;
        case Kind::kShort:
        case Kind::kEmpty:
        case Kind::kOverrun:
        case Kind::kLate: pending_kind = kind; return kIOReturnSuccess;
        case Kind::kStall:
        case Kind::kTimeout:
            // A read of a frame is accepted first; everything else has been waited for.
            if (operation == Operation::kReadPipeAsync) {
                pending_kind = kind;
                return kIOReturnSuccess;
            }
            if (*kind == Kind::kTimeout) pass(kTimeoutUs);
            break;
        default: break;
    }
    return status_of(*kind, operation);
}

Passage::Passage(FaultyBus& bus, Speed speed) {
    const Uncounted own;
    thread_ = std::jthread([&bus, speed](const std::stop_token& over) {
        const bool real = speed == Speed::kReal;
        for (std::int64_t step_us = kStepUs; !over.stop_requested();) {
            std::this_thread::sleep_for(std::chrono::microseconds(real ? step_us : 20));
            if (!real && !waits().wait_for_one(over)) return;
            bus.pass(step_us);
            if (!real) step_us = std::min(step_us + step_us / 8, kLongestStepUs);
        }
    });
}

}  // namespace tovix::faults
