// SPDX-License-Identifier: Apache-2.0
#include "bus.h"

#include <algorithm>
#include <chrono>

#include "host_device.h"

namespace tovix::simulator {

Port::Port(DeviceOptions options, Clock& clock) : clock_(clock), device_(std::move(options)) {
    access()->plug_in();
    if (clock_.pace() != Pace::kStepped) thread_ = std::thread([this] { run(); });
}

Port::~Port() {
    {
        const std::lock_guard lock(mutex_);
        quit_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
}

Port::Access::Access(Port& port) : port_(port), lock_(port.mutex_, std::defer_lock) {
    ++port_.wanted_;
    lock_.lock();
    --port_.wanted_;
    port_.device_.advance(port_.clock_.now_us());
}

Port::Access::~Access() {
    port_.changed_.notify_all();
}

void Port::Access::plant(const Fault& fault) const {
    (is_of_host(fault.place) ? port_.host_faults_ : port_.device_.faults()).plant(fault);
}

void Port::Access::clear_faults() const {
    port_.host_faults_.clear();
    port_.device_.faults().clear();
}

// Whoever held what was in the port before it was unplugged holds nothing now.
bool Port::Access::hold(const void* holder) const {
    const std::uint32_t generation = port_.device_.generation();
    if (port_.holder_ != nullptr && port_.held_generation_ == generation) return false;
    port_.holder_ = holder;
    port_.held_generation_ = generation;
    return true;
}

void Port::Access::give_back(const void* holder) const {
    if (port_.holder_ == holder) port_.holder_ = nullptr;
}

void Port::run() {
    std::unique_lock lock(mutex_);
    while (!quit_) {
        device_.advance(clock_.now_us());
        changed_.notify_all();
        const std::int64_t next_us = device_.next_event_us();
        const std::int64_t wait_us = next_us - clock_.now_us();
        if (wanted_ != 0) {
            changed_.wait_for(lock, std::chrono::milliseconds(1));
        } else if (next_us == kNever) {
            changed_.wait(lock);
        } else if (clock_.jumps()) {
            clock_.jump(wait_us);
        } else if (wait_us > 0) {
            changed_.wait_for(lock, std::chrono::microseconds(wait_us));
        }
    }
}

std::shared_ptr<Port> Bus::plug_in(DeviceOptions options) {
    auto port = std::make_shared<Port>(std::move(options), clock_);
    const std::lock_guard lock(mutex_);
    ports_.push_back(port);
    return port;
}

std::vector<std::shared_ptr<Port>> Bus::ports() {
    const std::lock_guard lock(mutex_);
    return ports_;
}

void Bus::step(std::int64_t microseconds) {
    const std::int64_t end_us = clock_.now_us() + microseconds;
    for (;;) {
        std::int64_t next_us = end_us;
        for (const auto& port : ports())
            next_us = std::min(next_us, port->access()->next_event_us());
        clock_.jump(next_us - clock_.now_us());
        for (const auto& port : ports())
            port->access();  // tells the device its time
        if (next_us == end_us) return;
    }
}

void Bus::sleep_us(UInt32 microseconds) {
    if (clock_.pace() == Pace::kStepped) {
        step(microseconds);
    } else {
        clock_.sleep_us(microseconds);
    }
}

void Bus::wait_until(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, std::int64_t deadline_us) {
    // Where time jumps nobody says when it has come to the deadline, so the waiter looks every now and then.
    const std::int64_t longest_us = clock_.jumps() ? 1'000 : INT64_MAX;
    const std::int64_t wait_us = std::min(deadline_us - clock_.now_us(), longest_us);
    condition.wait_for(lock, std::chrono::microseconds(std::max<std::int64_t>(wait_us, 0)));
}

void Bus::plant(const OperationFault& fault) {
    const std::lock_guard lock(mutex_);
    faults_.push_back(fault);
}

void Bus::clear_faults() {
    const std::lock_guard lock(mutex_);
    faults_.clear();
}

std::uint64_t Bus::operations() const {
    const std::lock_guard lock(mutex_);
    return operations_;
}

IOReturn Bus::intercept(platform::Operation operation) {
    const std::lock_guard lock(mutex_);
    ++operations_;
    IOReturn status = kIOReturnSuccess;
    for (OperationFault& fault : faults_) {
        if (fault.operation != platform::Operation::kCount && fault.operation != operation) continue;
        if (fault.skip > 0) {
            --fault.skip;
        } else if (fault.times > 0) {
            if (fault.times != Fault::kForEver) --fault.times;
            status = fault.status;
        }
    }
    return status;
}

IOReturn Bus::devices(std::vector<std::shared_ptr<platform::HostDevice>>& found) {
    for (const auto& port : ports()) {
        if (auto device = SimulatedHostDevice::in(port)) found.push_back(std::move(device));
    }
    return kIOReturnSuccess;
}

}  // namespace tovix::simulator
