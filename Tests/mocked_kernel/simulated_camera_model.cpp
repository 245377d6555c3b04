// SPDX-License-Identifier: Apache-2.0
#include "simulated_camera_model.h"

#include <algorithm>
#include <utility>

#include "wire.h"

namespace tovix::mocked_kernel {
namespace {

using simulator::Answer;
using simulator::Descriptors;
using simulator::Setup;
namespace usb = simulator::usb;

// What has left the bus is silent: the kernel ends its transfers when it notices.
Outcome outcome_of(simulator::Outcome outcome) {
    switch (outcome) {
        case simulator::Outcome::kDone:
        case simulator::Outcome::kOverrun:
            return Outcome::kDone;  // more bytes than fit tell the kernel that it is an overrun
        case simulator::Outcome::kStall: return Outcome::kStall;
        case simulator::Outcome::kSilent:
        case simulator::Outcome::kGone: return Outcome::kNoAnswer;
    }
    return Outcome::kError;
}

}  // namespace

/// A read that the device fills on its own and then passes on to the kernel.
class SimulatedCameraModel::PassedOnRead final : public simulator::BulkRead {
  public:
    PassedOnRead(SimulatedCameraModel& camera, std::shared_ptr<mocked_kernel::BulkRead> target)
        : camera_(camera), target_(std::move(target)), bytes_(target_->size() + 1) {
        data = bytes_.data();
        size = static_cast<std::uint32_t>(target_->size());
    }
    bool is_for(const mocked_kernel::BulkRead& target) const { return target_.get() == &target; }

    void finished(simulator::Outcome outcome, std::uint32_t count) override {
        const std::size_t sent = outcome == simulator::Outcome::kOverrun ? bytes_.size() : count;
        target_->deliver({bytes_.data(), sent});
        target_->complete(outcome_of(outcome));
        camera_.reads_.remove_if([this](const auto& each) { return &each == this; });  // `this` ends here
    }

  private:
    SimulatedCameraModel& camera_;
    const std::shared_ptr<mocked_kernel::BulkRead> target_;
    std::vector<std::uint8_t> bytes_;  // with one more than fits, for an overrun
};

SimulatedCameraModel::SimulatedCameraModel(MockedKernel& kernel, int port, simulator::Clock& clock,
                                           simulator::DeviceOptions options)
    : kernel_(kernel), port_(port), clock_(clock), device_(std::move(options)) {
    thread_ = std::thread(&SimulatedCameraModel::run, this);
    plug_in();
}

SimulatedCameraModel::~SimulatedCameraModel() {
    access()->set_observer({});  // whoever observed may be gone already
    unplug();
    {
        const std::lock_guard lock(mutex_);
        quit_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

SimulatedCameraModel::Access::Access(SimulatedCameraModel& camera) : camera_(camera), lock_(camera.mutex_) {
    camera_.device_.advance(camera_.clock_.now_us());
}

void SimulatedCameraModel::observe_reads(std::function<void(const BulkRead&)> observer) {
    const std::lock_guard lock(mutex_);
    read_observer_ = std::move(observer);
}

void SimulatedCameraModel::unplug() {
    access()->unplug();
    wait_for_kernel();
}

void SimulatedCameraModel::plug_in() {
    access()->plug_in();
    wait_for_kernel();
}

void SimulatedCameraModel::wait_for_kernel() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return reachable() && !node_moves_; });
}

void SimulatedCameraModel::run() {
    std::unique_lock lock(mutex_);
    while (!quit_) {
        device_.advance(clock_.now_us());
        follow_device(lock);
        const std::int64_t next_us = device_.next_event_us();
        if (next_us == simulator::kNever) {
            changed_.wait(lock, [&] { return quit_ || !reachable() || device_.next_event_us() != next_us; });
            continue;
        }
        clock_.jump(next_us - clock_.now_us());
        changed_.wait_for(lock, std::chrono::microseconds(1));  // others have a right to the lock, too
    }
}

/// Show the kernel the device that is on the bus now. The lock is open while the kernel is busy with that.
void SimulatedCameraModel::follow_device(std::unique_lock<std::mutex>& lock) {
    while (!reachable()) {
        node_moves_ = true;
        if (node_generation_ != 0) {
            lock.unlock();
            kernel_.unplug(port_);
            lock.lock();
            node_generation_ = 0;
        } else {
            // A kernel chooses the first configuration of every device that comes.
            device_.control({usb::kToDevice, usb::kSetConfiguration, Descriptors::kOnlyConfiguration, 0, 0}, nullptr);
            node_generation_ = device_generation();
            lock.unlock();
            kernel_.plug(port_, *this);
            lock.lock();
        }
        node_moves_ = false;
        changed_.notify_all();
    }
}

std::vector<std::uint8_t> SimulatedCameraModel::descriptors() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::uint8_t> all = device_.descriptors().device();
    const std::vector<std::uint8_t> configuration = device_.descriptors().configuration();
    all.insert(all.end(), configuration.begin(), configuration.end());
    return all;
}

// A test driver of Linux takes every FX2 that does not know its maker.
std::string SimulatedCameraModel::kernel_driver() const {
    const std::lock_guard lock(mutex_);
    const std::vector<std::uint8_t> descriptor = device_.descriptors().device();
    const bool nameless = simulator::get_u16(&descriptor[8]) == Descriptors::kBareVendor &&
                          simulator::get_u16(&descriptor[10]) == Descriptors::kBareProduct;
    return nameless ? "usbtest" : "";
}

Outcome SimulatedCameraModel::control(const ControlSetup& setup, std::span<std::uint8_t> data, std::size_t& length) {
    const Access device = access();
    if (!reachable()) return Outcome::kNoAnswer;
    const Answer answer =
        device->control({setup.request_type, setup.request, setup.value, setup.index, setup.length}, data.data());
    length = answer.outcome == simulator::Outcome::kOverrun ? data.size() + 1 : answer.length;
    return outcome_of(answer.outcome);
}

Outcome SimulatedCameraModel::bulk_out(std::uint8_t endpoint, std::span<const std::uint8_t> bytes) {
    const Access device = access();
    return reachable() ? outcome_of(device->bulk_out(endpoint, bytes).outcome) : Outcome::kNoAnswer;
}

void SimulatedCameraModel::bulk_in(std::uint8_t endpoint, std::shared_ptr<BulkRead> read) {
    const Access device = access();
    if (read_observer_) read_observer_(*read);
    if (reachable()) device->bulk_in(endpoint, reads_.emplace_back(*this, std::move(read)));
}

void SimulatedCameraModel::bulk_in_cancelled(std::uint8_t, const BulkRead& read) {
    const Access device = access();
    reads_.remove_if([&](PassedOnRead& each) { return each.is_for(read) && device->cancel(each); });
}

bool SimulatedCameraModel::set_configuration(std::uint8_t value) {
    return host_request({usb::kToDevice, usb::kSetConfiguration, value, 0, 0});
}

bool SimulatedCameraModel::set_alternate(std::uint8_t interface_number, std::uint8_t setting) {
    return host_request({usb::kInterface, usb::kSetInterface, setting, interface_number, 0});
}

void SimulatedCameraModel::clear_halt(std::uint8_t endpoint) {
    host_request({usb::kEndpoint, usb::kClearFeature, 0, endpoint, 0});
}

bool SimulatedCameraModel::host_request(const Setup& setup) {
    const Access device = access();
    return reachable() && device->control(setup, nullptr).outcome == simulator::Outcome::kDone;
}

}  // namespace tovix::mocked_kernel
