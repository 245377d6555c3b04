// SPDX-License-Identifier: Apache-2.0
#include "hostile_bus.h"

#include <utility>

#include "platform.h"

namespace tovix::fuzz {

namespace {

constexpr std::int64_t kTimeoutUs = 5'000'000;
constexpr std::uint32_t kFirstLie = 0xA0;  // of the bytes that decide; below it is the truth
constexpr int kMostOperations = 2000;      // a list of 65,535 rates takes 32,768, which say nothing new

constexpr IOReturn kFailures[] = {
    kIOUSBPipeStalled, kIOUSBTransactionTimeout, kIOReturnNoDevice,     kIOReturnOverrun, kIOReturnUnderrun,
    kIOReturnIOError,  kIOReturnExclusiveAccess, kIOReturnNotPermitted, kIOReturnBusy,    kIOReturnNoMemory,
    kIOReturnAborted,  kIOReturnUnsupported,     kIOUSBUnknownPipeErr,
};

IOReturn status_of(simulator::Outcome outcome) {
    switch (outcome) {
        case simulator::Outcome::kDone: return kIOReturnSuccess;
        case simulator::Outcome::kStall: return kIOUSBPipeStalled;
        case simulator::Outcome::kSilent: return kIOUSBTransactionTimeout;
        case simulator::Outcome::kOverrun: return kIOReturnOverrun;
        case simulator::Outcome::kGone: return kIOReturnNoDevice;
    }
    return kIOReturnError;
}

}  // namespace

/// The camera as one search has found it.
class HostileDevice final : public platform::HostDevice {
  public:
    explicit HostileDevice(HostileBus& bus) : bus_(bus) {
        using namespace simulator;
        std::uint8_t bytes[usb::kDeviceDescriptorBytes];
        std::ranges::copy(bus.device_.descriptors().device(), bytes);
        identity_ = {.vendor_id = get_u16(bytes + 8),
                     .product_id = get_u16(bytes + 10),
                     .release = get_u16(bytes + 12),
                     .subclass = bytes[5],
                     .speed = 2,
                     .product_string_index = bytes[15],
                     .serial_string_index = bytes[16]};
        if (!bus.lie().answer) return;
        const camera_id& other = camera_ids[bus.lies_.up_to(static_cast<std::uint32_t>(camera_id_count - 1))];
        identity_ = {.vendor_id = other.vendor_id,
                     .product_id = other.product_id,
                     .release = bus.lies_.number<std::uint16_t>(),
                     .subclass = bus.lies_.number<std::uint8_t>(),
                     .speed = bus.lies_.number<std::uint8_t>(),
                     .product_string_index = bus.lies_.number<std::uint8_t>(),
                     .serial_string_index = bus.lies_.number<std::uint8_t>()};
    }

    const platform::DeviceIdentity& identity() const override { return identity_; }
    IOReturn open() override { return host_operation(); }
    void close() override { release(0); }
    IOReturn set_configuration(UInt8 value) override {
        return transfer({simulator::usb::kToDevice, simulator::usb::kSetConfiguration, value, 0, 0}, nullptr).first;
    }
    IOReturn configuration_descriptor(UInt8 index, IOUSBConfigurationDescriptor& head) override {
        using namespace simulator;
        head = {};
        const Setup setup{usb::kToHost, usb::kGetDescriptor, usb::descriptor(usb::kConfigurationType, index), 0,
                          sizeof head};
        return transfer(setup, &head).first;
    }
    IOReturn interfaces(std::vector<UInt8>& numbers) override {
        const std::lock_guard lock(bus_.mutex_);
        const HostileBus::Lie lie = bus_.lie();
        if (lie.told) return lie.status;
        for (std::uint32_t count = lie.answer ? bus_.lies_.up_to(3) : 1; count > 0; --count)
            numbers.push_back(lie.answer ? bus_.lies_.number<UInt8>() : UInt8{0});
        return kIOReturnSuccess;
    }
    IOReturn control(IOUSBDevRequestTO& request) override {
        const simulator::Setup setup{request.bmRequestType, request.bRequest, request.wValue, request.wIndex,
                                     request.wLength};
        const auto [status, bytes] = transfer(setup, request.pData);
        request.wLenDone = bytes;
        return status;
    }

    IOReturn claim(UInt8) override { return host_operation(); }
    void release(UInt8) override {
        const std::lock_guard lock(bus_.mutex_);
        end_read();
    }
    IOReturn set_alternate(UInt8 interface_number, UInt8 setting) override {
        release(interface_number);
        return transfer({simulator::usb::kInterface, simulator::usb::kSetInterface, setting, 0, 0}, nullptr).first;
    }
    IOReturn pipe_status(UInt8, UInt8) override { return host_operation(); }
    IOReturn clear_stall(UInt8 interface_number, UInt8) override {
        release(interface_number);
        return host_operation();
    }
    IOReturn abort_pipe(UInt8 interface_number, UInt8) override {
        release(interface_number);
        return kIOReturnSuccess;
    }
    IOReturn write_pipe(UInt8, UInt8, const void* data, UInt32 size, UInt32) override {
        const std::lock_guard lock(bus_.mutex_);
        const HostileBus::Lie lie = bus_.lie();
        if (lie.told) return lie.status;
        const std::span bytes(static_cast<const std::uint8_t*>(data), size);
        return status_of(bus_.device_.bulk_out(simulator::Descriptors::kOutEndpoint, bytes).outcome);
    }
    IOReturn read_pipe(UInt8, UInt8, void* data, UInt32& size, UInt32) override {
        const std::lock_guard lock(bus_.mutex_);
        const HostileBus::Lie lie = bus_.lie();
        size = std::min(size, lie.bytes);
        bus_.fill(static_cast<std::uint8_t*>(data), size);
        return lie.status;
    }
    IOReturn read_async(UInt8, UInt8, platform::AsyncRead& read) override {
        const std::lock_guard lock(bus_.mutex_);
        if (bus_.frames_left_ == 0 && bus_.then_silent_) {
            bus_.read_ = &read;
            return kIOReturnSuccess;
        }
        if (bus_.frames_left_ == 0) return kIOReturnNoDevice;
        --bus_.frames_left_;
        const HostileBus::Lie lie = bus_.lie();
        if (lie.told && bus_.lies_.flag()) return lie.status;  // refused at once, or failed later
        const UInt32 bytes = std::min(read.size, lie.bytes);
        bus_.fill(read.data, bytes);
        read.complete(lie.status, bytes);
        return kIOReturnSuccess;
    }

  private:
    /// Status and bytes of a control request.
    std::pair<IOReturn, UInt32> transfer(const simulator::Setup& setup, void* data) {
        const std::lock_guard lock(bus_.mutex_);
        const bool to_host = setup.to_host() && data != nullptr;
        const HostileBus::Lie lie = bus_.lie();
        if (lie.told) return {lie.status, 0};
        // The simulated sensor would make frames that nobody asks for.
        if (!to_host && setup.index == TOVIX_VIDEO_SWITCH) return {kIOReturnSuccess, setup.length};
        const simulator::Answer answer = bus_.device_.control(setup, static_cast<std::uint8_t*>(data));
        if (!lie.answer || !to_host) return {status_of(answer.outcome), answer.length};
        bus_.fill(static_cast<std::uint8_t*>(data), setup.length);
        return {lie.status, std::min(lie.bytes, UInt32{setup.length})};
    }
    /// What is the host's alone.
    IOReturn host_operation() {
        const std::lock_guard lock(bus_.mutex_);
        return bus_.lie().status;
    }
    void end_read() {
        if (platform::AsyncRead* const read = std::exchange(bus_.read_, nullptr)) read->complete(kIOReturnAborted, 0);
    }

    HostileBus& bus_;
    platform::DeviceIdentity identity_;
};

HostileBus::HostileBus(Input& lies, simulator::DeviceOptions options)
    : lies_(lies), device_(std::move(options)), objects_before_(tz_platform_objects_alive()) {
    device_.plug_in();
    tz_platform_select(this);
}

HostileBus::~HostileBus() {
    tz_platform_select(nullptr);
    require(tz_platform_objects_alive() == objects_before_, "no platform object is left over");
}

void HostileBus::set_frames(std::uint32_t count, bool then_silent) {
    const std::lock_guard lock(mutex_);
    frames_left_ = count;
    then_silent_ = then_silent;
}

HostileBus::Lie HostileBus::lie() {
    if (++operations_ > kMostOperations) return {.status = kIOReturnNoDevice, .told = true};
    const std::uint32_t decision = lies_.empty() ? 0 : lies_.number<std::uint8_t>();
    if (decision < kFirstLie) return {};
    Lie lie;
    if (decision < 0xC0) {
        lie.told = true;
        lie.status = kFailures[decision % std::size(kFailures)];
        if (lie.status == kIOUSBTransactionTimeout) pass_time(kTimeoutUs);
        return lie;
    }
    lie.answer = true;
    if (decision < 0xC8) lie.status = kIOReturnOverrun;
    if (decision >= 0xC8 && decision < 0xD0) lie.bytes = lies_.number<std::uint8_t>();
    return lie;
}

/// One of the values that are most often not thought of, or the input's own.
void HostileBus::fill(std::uint8_t* data, std::size_t size) {
    constexpr std::uint32_t kValues[] = {0, 1, UINT32_MAX, UINT32_MAX - 1, INT32_MAX, 0x8000'0000, 0xFFFF, 0x8000};
    const std::uint32_t kind = lies_.up_to(15);
    if (kind >= std::size(kValues)) return lies_.fill({data, size});
    for (std::size_t i = 0; i < size; ++i)
        data[i] = static_cast<std::uint8_t>(kValues[kind] >> 8 * (i % 4));
}

void HostileBus::pass_time(std::int64_t microseconds) {
    now_us_ += microseconds;
    device_.advance(now_us_);
}

IOReturn HostileBus::devices(std::vector<std::shared_ptr<platform::HostDevice>>& found) {
    const std::lock_guard lock(mutex_);
    if (device_.attached()) found.push_back(std::make_shared<HostileDevice>(*this));
    return kIOReturnSuccess;
}

void HostileBus::sleep_us(UInt32 microseconds) {
    const std::lock_guard lock(mutex_);
    pass_time(microseconds);
}

std::int64_t HostileBus::now_us() {
    const std::lock_guard lock(mutex_);
    return now_us_;
}

void HostileBus::wait_until(std::condition_variable&, std::unique_lock<std::mutex>&, std::int64_t deadline_us) {
    const std::lock_guard lock(mutex_);
    pass_time(std::max<std::int64_t>(deadline_us - now_us_, 0));
}

}  // namespace tovix::fuzz
