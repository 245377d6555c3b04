// SPDX-License-Identifier: Apache-2.0
#include "host_device.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "wire.h"

namespace tovix::simulator {

namespace {

constexpr UInt32 kHostTimeoutMs = 5000;  // of requests that the host makes by itself

IOReturn status_of(Outcome outcome) {
    switch (outcome) {
        case Outcome::kDone: return kIOReturnSuccess;
        case Outcome::kStall: return kIOUSBPipeStalled;
        case Outcome::kSilent: return kIOUSBTransactionTimeout;
        case Outcome::kOverrun: return kIOReturnOverrun;
        case Outcome::kGone: return kIOReturnNoDevice;
    }
    return kIOReturnError;
}

/// The endpoint of a pipe in the current setting; 0 when there is no such pipe.
UInt8 endpoint_of(const Device& device, UInt8 pipe) {
    const std::vector<std::uint8_t> endpoints = device.descriptors().endpoints(device.setting());
    return pipe >= 1 && pipe <= endpoints.size() ? endpoints[pipe - 1u] : UInt8{0};
}

/// A read that a thread waits for.
struct WaitedRead final : BulkRead {
    void finished(Outcome outcome, std::uint32_t count) override {
        bytes = count;
        result = outcome;
    }
    std::optional<Outcome> result;
    std::uint32_t bytes = 0;
};

}  // namespace

HostRead::HostRead(std::list<std::unique_ptr<HostRead>>& pending, platform::AsyncRead& target)
    : pending_(pending), target_(target) {
    data = target.data;
    size = target.size;
}

void HostRead::complete(IOReturn status, std::uint32_t bytes) {
    target_.complete(status, bytes);
    std::erase_if(pending_, [this](const auto& read) { return read.get() == this; });  // `this` ends here
}

void HostRead::finished(Outcome outcome, std::uint32_t bytes) {
    complete(status_of(outcome), bytes);
}

void HostRead::abort() {
    complete(kIOReturnAborted, 0);
}

std::shared_ptr<SimulatedHostDevice> SimulatedHostDevice::in(const std::shared_ptr<Port>& port) {
    std::shared_ptr<SimulatedHostDevice> device(new SimulatedHostDevice(port));
    return device->identify() == kIOReturnSuccess ? device : nullptr;
}

/// A host reads the device descriptor once, when something has come to the port, and answers from what it read.
IOReturn SimulatedHostDevice::identify() {
    auto& bytes = port_->descriptor_;
    Answer answer{Outcome::kDone, usb::kDeviceDescriptorBytes};
    {
        const auto device = port_->access();
        if (!device->attached()) return kIOReturnNoDevice;
        generation_ = device->generation();
        if (port_->described_generation_ != generation_) {
            const Setup setup{usb::kToHost, usb::kGetDescriptor, usb::descriptor(usb::kDeviceType), 0,
                              usb::kDeviceDescriptorBytes};
            answer = device->control(setup, bytes.data());
        }
        if (answer.outcome == Outcome::kDone && answer.length == bytes.size()) {
            port_->described_generation_ = generation_;
            identity_ = {
                .vendor_id = get_u16(&bytes[8]),
                .product_id = get_u16(&bytes[10]),
                .release = get_u16(&bytes[12]),
                .subclass = bytes[5],
                .speed = device->high_speed() ? UInt8{2} : UInt8{1},
                .product_string_index = bytes[15],
                .serial_string_index = bytes[16],
            };
            return kIOReturnSuccess;
        }
    }
    if (answer.outcome == Outcome::kSilent) wait_in_vain(kHostTimeoutMs);
    return kIOReturnError;
}

std::optional<IOReturn> SimulatedHostDevice::struck(Place place, const Port::Access& device) {
    const std::optional<Fault> fault = device.host_faults().strike(place, Fault::kAnyAddress, device->now_us());
    if (!fault) return std::nullopt;
    switch (fault->kind) {
        case FaultKind::kRefused: return kIOReturnNotPermitted;
        case FaultKind::kBusy: return place == Place::kOpen ? kIOReturnExclusiveAccess : kIOReturnBusy;
        case FaultKind::kUnplug: device->unplug(); return kIOReturnNoDevice;
        case FaultKind::kReplug: device->replug(); return kIOReturnNoDevice;
        default: return kIOReturnError;  // what goes wrong on the wire does not go wrong here
    }
}

IOReturn SimulatedHostDevice::open() {
    const auto device = port_->access();
    if (gone(*device)) return kIOReturnNoDevice;
    if (const auto status = struck(Place::kOpen, device)) return *status;
    return device.hold(this) ? kIOReturnSuccess : kIOReturnExclusiveAccess;
}

void SimulatedHostDevice::close() {
    const auto device = port_->access();
    abort_reads();
    device.give_back(this);
}

void SimulatedHostDevice::wait_in_vain(UInt32 timeout_ms) {
    port_->clock_.sleep_us(std::int64_t{timeout_ms != 0 ? timeout_ms : kHostTimeoutMs} * 1000);
}

IOReturn SimulatedHostDevice::transfer(const Setup& setup, void* data, UInt32 timeout_ms, UInt32* length_done) {
    Answer answer{Outcome::kGone};
    {
        const auto device = port_->access();
        if (!gone(*device)) answer = device->control(setup, static_cast<std::uint8_t*>(data));
    }
    *length_done = answer.length;
    if (answer.outcome == Outcome::kSilent) wait_in_vain(timeout_ms);
    return status_of(answer.outcome);
}

IOReturn SimulatedHostDevice::configuration_descriptor(UInt8 index, IOUSBConfigurationDescriptor& head) {
    const Setup setup{usb::kToHost, usb::kGetDescriptor, usb::descriptor(usb::kConfigurationType, index), 0,
                      sizeof head};
    UInt32 length = 0;
    head = {};
    return transfer(setup, &head, kHostTimeoutMs, &length);
}

IOReturn SimulatedHostDevice::set_configuration(UInt8 value) {
    const Setup setup{usb::kToDevice, usb::kSetConfiguration, value, 0, 0};
    UInt32 length = 0;
    return transfer(setup, nullptr, kHostTimeoutMs, &length);
}

IOReturn SimulatedHostDevice::interfaces(std::vector<UInt8>& numbers) {
    const auto device = port_->access();
    if (gone(*device)) return kIOReturnNoDevice;
    if (device->configuration() != 0) numbers.push_back(0);
    return kIOReturnSuccess;
}

IOReturn SimulatedHostDevice::control(IOUSBDevRequestTO& request) {
    const Setup setup{request.bmRequestType, request.bRequest, request.wValue, request.wIndex, request.wLength};
    const UInt32 timeout_ms = request.noDataTimeout != 0 ? request.noDataTimeout : request.completionTimeout;
    return transfer(setup, request.pData, timeout_ms, &request.wLenDone);
}

IOReturn SimulatedHostDevice::claim(UInt8) {
    return gone(*port_->access()) ? kIOReturnNoDevice : kIOReturnSuccess;
}

void SimulatedHostDevice::release(UInt8) {
    const auto device = port_->access();
    abort_reads();
}

IOReturn SimulatedHostDevice::set_alternate(UInt8 interface_number, UInt8 setting) {
    release(interface_number);
    const Setup setup{usb::kInterface, usb::kSetInterface, setting, interface_number, 0};
    UInt32 length = 0;
    return transfer(setup, nullptr, kHostTimeoutMs, &length);
}

IOReturn SimulatedHostDevice::pipe_status(UInt8, UInt8 pipe) {
    const auto device = port_->access();
    if (gone(*device)) return kIOReturnNoDevice;
    if (pipe == 0) return kIOReturnSuccess;
    const UInt8 endpoint = endpoint_of(*device, pipe);
    if (endpoint == 0) return kIOUSBUnknownPipeErr;
    return device->halted(endpoint) ? kIOUSBPipeStalled : kIOReturnSuccess;
}

IOReturn SimulatedHostDevice::read_pipe(UInt8, UInt8 pipe, void* data, UInt32& size, UInt32 no_data_ms) {
    WaitedRead read;
    read.data = static_cast<std::uint8_t*>(data);
    read.size = size;
    size = 0;
    {
        const auto device = port_->access();
        if (gone(*device)) return kIOReturnNoDevice;
        const UInt8 endpoint = endpoint_of(*device, pipe);
        if (!usb::is_input(endpoint)) return kIOUSBUnknownPipeErr;
        device->bulk_in(endpoint, read);
    }
    Clock& clock = port_->clock_;
    const std::int64_t deadline_us = no_data_ms != 0 ? clock.now_us() + std::int64_t{no_data_ms} * 1000 : INT64_MAX;
    std::unique_lock lock(port_->mutex_);
    while (!read.result && clock.now_us() < deadline_us) {
        if (clock.pace() == Pace::kStepped) {
            clock.jump(std::min(port_->device_.next_event_us(), deadline_us) - clock.now_us());
            port_->device_.advance(clock.now_us());
        } else {
            port_->changed_.wait_for(lock, std::chrono::milliseconds(1));
        }
    }
    if (!read.result) port_->device_.cancel(read);
    size = read.bytes;
    return status_of(read.result.value_or(Outcome::kSilent));
}

IOReturn SimulatedHostDevice::write_pipe(UInt8, UInt8 pipe, const void* data, UInt32 size, UInt32 no_data_ms) {
    Answer answer{Outcome::kGone};
    {
        const auto device = port_->access();
        if (gone(*device)) return kIOReturnNoDevice;
        const UInt8 endpoint = endpoint_of(*device, pipe);
        if (endpoint == 0 || usb::is_input(endpoint)) return kIOUSBUnknownPipeErr;
        answer = device->bulk_out(endpoint, {static_cast<const std::uint8_t*>(data), size});
    }
    if (answer.outcome == Outcome::kSilent) wait_in_vain(no_data_ms);
    return status_of(answer.outcome);
}

IOReturn SimulatedHostDevice::clear_stall(UInt8 interface_number, UInt8 pipe) {
    if (pipe == 0) return kIOReturnSuccess;
    UInt8 endpoint = 0;
    {
        const auto device = port_->access();
        endpoint = endpoint_of(*device, pipe);
    }
    if (endpoint == 0) return kIOUSBUnknownPipeErr;
    release(interface_number);
    const Setup setup{usb::kEndpoint, usb::kClearFeature, 0, endpoint, 0};
    UInt32 length = 0;
    return transfer(setup, nullptr, kHostTimeoutMs, &length);
}

IOReturn SimulatedHostDevice::abort_pipe(UInt8, UInt8 pipe) {
    const auto device = port_->access();
    if (usb::is_input(endpoint_of(*device, pipe))) abort_reads();
    return kIOReturnSuccess;
}

/// With the port's lock held. The reads of a port are those of its holder.
void SimulatedHostDevice::abort_reads() {
    if (port_->holder_ != this) return;
    while (!port_->pending_.empty()) {
        HostRead& read = *port_->pending_.front();
        port_->device_.cancel(read);
        read.abort();
    }
}

IOReturn SimulatedHostDevice::read_async(UInt8, UInt8 pipe, platform::AsyncRead& read) {
    const auto device = port_->access();
    if (gone(*device)) return kIOReturnNoDevice;
    const UInt8 endpoint = endpoint_of(*device, pipe);
    if (!usb::is_input(endpoint)) return kIOUSBUnknownPipeErr;
    if (const auto status = struck(Place::kQueueRead, device)) return *status;
    HostRead& pending = *port_->pending_.emplace_back(std::make_unique<HostRead>(port_->pending_, read));
    device->bulk_in(endpoint, pending);
    return kIOReturnSuccess;
}

}  // namespace tovix::simulator
