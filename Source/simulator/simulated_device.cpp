// SPDX-License-Identifier: Apache-2.0
#include "simulated_device.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tovix::simulator {

namespace {

constexpr std::uint8_t kMemoryRequest = 0xA0;
constexpr std::uint8_t kRegisterRequest = 0x12;
constexpr std::size_t kHeadBytes = 16;

bool is_vendor_request(const Setup& setup) {
    return (setup.request_type & usb::kTypeMask) == usb::kVendorType;
}

/// Where in a fault plan a control request belongs, and its address there.
std::pair<Place, std::uint32_t> place_of(const Setup& setup) {
    if (is_vendor_request(setup)) {
        if (setup.request == kMemoryRequest) return {Place::kMemoryWrite, setup.value};
        return {setup.to_host() ? Place::kRegisterRead : Place::kRegisterWrite, setup.index};
    }
    switch (setup.request) {
        case usb::kSetConfiguration: return {Place::kSetConfiguration, setup.value};
        case usb::kSetInterface: return {Place::kSetAlternate, setup.value};
        case usb::kClearFeature: return {Place::kClearHalt, setup.index};
        default: return {Place::kDescriptor, setup.value};
    }
}

/// Whether the device does what it was asked for: what it refuses or never sees has no effect on it.
bool is_seen(FaultKind fault) {
    return fault == FaultKind::kShortAnswer || fault == FaultKind::kEmptyAnswer || fault == FaultKind::kOverrun ||
           fault == FaultKind::kHostileValue;
}

}  // namespace

Device::Device(DeviceOptions options)
    : options_(std::move(options)),
      video_(options_.scene, options_.mark_frames),
      registers_(std::make_unique<Registers>(options_.camera)) {}

Device::~Device() = default;

// ---------------------------------------------------------------------------------------------------------------
// Control requests

Answer Device::get_descriptor(const Setup& setup, std::uint8_t* data) const {
    const std::vector<std::uint8_t> bytes =
        descriptors().find(static_cast<std::uint8_t>(setup.value >> 8), static_cast<std::uint8_t>(setup.value));
    if (bytes.empty()) return {Outcome::kStall};
    const auto length = static_cast<std::uint32_t>(std::min<std::size_t>(bytes.size(), setup.length));
    if (length != 0) std::memcpy(data, bytes.data(), length);
    return {Outcome::kDone, length};
}

Answer Device::standard_request(const Setup& setup, std::uint8_t* data) {
    switch (setup.request) {
        case usb::kGetDescriptor: return get_descriptor(setup, data);
        case usb::kSetConfiguration:
            if (setup.value > Descriptors::kOnlyConfiguration) return {Outcome::kStall};
            configuration_ = static_cast<std::uint8_t>(setup.value);
            setting_ = 0;
            out_halted_ = in_halted_ = false;
            return {Outcome::kDone};
        case usb::kSetInterface:
            if (setup.index != 0 || setup.value >= Descriptors::kSettings) return {Outcome::kStall};
            setting_ = static_cast<std::uint8_t>(setup.value);
            out_halted_ = in_halted_ = false;
            start_or_stop_video();
            return {Outcome::kDone};
        case usb::kClearFeature:  // ENDPOINT_HALT is the only one
            if (setup.index == Descriptors::kOutEndpoint) out_halted_ = false;
            if (setup.index == Descriptors::kInEndpoint) in_halted_ = false;
            return {Outcome::kDone};
        default: return {Outcome::kStall};
    }
}

Answer Device::access_registers(const Setup& setup, std::uint8_t* data) {
    if (Registers::is_message_data(setup.index)) {
        if (setup.to_host()) registers_->read_message(setup.index, data, setup.length);
        if (!setup.to_host()) registers_->write_message(setup.index, data, setup.length);
        return {Outcome::kDone, setup.length};
    }
    if (setup.length % 4 != 0) return {Outcome::kStall};
    for (std::uint32_t at = 0; at < setup.length; at += 4) {
        const auto address = static_cast<std::uint16_t>(setup.index + at);
        if (setup.to_host()) {
            put_u32(data + at, registers_->read(address));
        } else {
            registers_->write(address, get_u32(data + at));
        }
    }
    if (!setup.to_host()) start_or_stop_video();
    return {Outcome::kDone, setup.length};
}

Answer Device::vendor_request(const Setup& setup, std::uint8_t* data) {
    if (!fx2_) return setup.request == kRegisterRequest ? access_registers(setup, data) : Answer{Outcome::kStall};
    if (setup.request != kMemoryRequest || setup.to_host()) return {Outcome::kStall};
    if (fx2_->write(setup.value, {data, setup.length})) {
        const camera_id& row = *options_.camera.model.row;
        const FirmwareIdentity own{row.vendor_id, row.product_id};
        // Other programs run too, but not as a camera: the device stays what it is.
        if (fx2_->program() == own) {
            state_ = DeviceOptions::State::kWithoutFpga;
            leave_bus(now_us_ + options_.reenumeration_us);
        }
    }
    return {Outcome::kDone, setup.length};
}

Answer Device::dispatch(const Setup& setup, std::uint8_t* data) {
    return is_vendor_request(setup) ? vendor_request(setup, data) : standard_request(setup, data);
}

/// What becomes of an answer. `wanted` is where the bytes lie that a host waits for.
Answer Device::apply(const Fault& fault, Answer answer, std::span<std::uint8_t> wanted) {
    switch (fault.kind) {
        case FaultKind::kStall: return {Outcome::kStall};
        case FaultKind::kTimeout: return {Outcome::kSilent};
        case FaultKind::kShortAnswer: return {answer.outcome, answer.length / 2};
        case FaultKind::kEmptyAnswer: return {answer.outcome, 0};
        case FaultKind::kOverrun: return {Outcome::kOverrun, answer.length};
        case FaultKind::kUnplug: unplug(); return {Outcome::kGone};
        case FaultKind::kReplug: replug(); return {Outcome::kGone};
        case FaultKind::kHostileValue:
            if (wanted.empty()) return answer;
            for (std::size_t i = 0; i < wanted.size(); ++i)
                wanted[i] = static_cast<std::uint8_t>(fault.value >> 8 * (i % 4));
            return {Outcome::kDone, static_cast<std::uint32_t>(wanted.size())};
        case FaultKind::kRefused:
        case FaultKind::kBusy: break;  // no device does that
    }
    return answer;
}

Answer Device::control(const Setup& setup, std::uint8_t* data) {
    if (!attached_) return {Outcome::kGone};
    const auto [place, address] = place_of(setup);
    const std::optional<Fault> fault = faults_.strike(place, address, now_us_);
    Answer answer{Outcome::kDone};
    if (!fault || is_seen(fault->kind)) answer = dispatch(setup, data);
    if (fault) answer = apply(*fault, answer, {data, setup.to_host() ? setup.length : std::size_t{0}});
    observe(Transfer::Kind::kControl, setup, answer, data);
    if (!attached_ && answer.outcome == Outcome::kDone) observe(Transfer::Kind::kDetach, {}, {}, nullptr);
    return answer;
}

void Device::observe(Transfer::Kind kind, const Setup& setup, Answer answer, const std::uint8_t* data) {
    if (!observer_) return;
    Transfer transfer{.kind = kind, .setup = setup, .answer = answer, .head = {}};
    if (data != nullptr) transfer.head.assign(data, data + std::min<std::size_t>(answer.length, kHeadBytes));
    observer_(transfer);
}

// ---------------------------------------------------------------------------------------------------------------
// Bulk pipes

Answer Device::bulk_out(std::uint8_t endpoint, std::span<const std::uint8_t> data) {
    if (!attached_) return {Outcome::kGone};
    Answer answer{Outcome::kDone, static_cast<std::uint32_t>(data.size())};
    if (const std::optional<Fault> fault = faults_.strike(Place::kBulkOut, Fault::kAnyAddress, now_us_))
        answer = apply(*fault, answer, {});
    if (out_halted_ || !descriptors().has_endpoint(setting_, endpoint)) answer = {Outcome::kStall};
    out_halted_ = out_halted_ || answer.outcome == Outcome::kStall;
    registers_->take_fpga_bytes(data.data(), answer.length);
    observe(Transfer::Kind::kBulkOut, {}, answer, data.data());
    return answer;
}

void Device::bulk_in(std::uint8_t endpoint, BulkRead& read) {
    const bool accepted = endpoint == Descriptors::kInEndpoint && descriptors().has_endpoint(setting_, endpoint);
    if (!attached_ || !accepted || in_halted_) {
        read.finished(attached_ ? Outcome::kStall : Outcome::kGone, 0);
        return;
    }
    reads_.push_back(&read);
    deliver();
}

bool Device::cancel(BulkRead& read) {
    return std::erase(reads_, &read) != 0;
}

/// Hand the newest frame to the reads that wait. A read ends when it is full, or with the frame.
void Device::deliver() {
    while (!reads_.empty() && !in_halted_ && !video_.left().empty()) {
        BulkRead& read = *reads_.front();
        const std::size_t length = std::min<std::size_t>(video_.left().size(), read.size);
        if (length != 0) std::memcpy(read.data, video_.left().data(), length);
        Answer answer{Outcome::kDone, static_cast<std::uint32_t>(length)};
        bool rest_is_lost = false;
        if (const std::optional<Fault> fault = faults_.strike(Place::kBulkIn, Fault::kAnyAddress, now_us_)) {
            answer = apply(*fault, answer, {read.data, length});
            if (answer.outcome == Outcome::kGone) return;  // the reads have ended with the device
            rest_is_lost = answer.outcome != Outcome::kDone || answer.length < length;
        }
        video_.discard(length);
        if (rest_is_lost) video_.discard_frame();
        if (answer.outcome == Outcome::kSilent) return;  // the read waits for the next frame
        in_halted_ = answer.outcome == Outcome::kStall;
        reads_.pop_front();
        observe(Transfer::Kind::kBulkIn, {}, answer, read.data);
        read.finished(answer.outcome, answer.length);
    }
}

void Device::finish_reads(Outcome outcome) {
    while (!reads_.empty()) {
        BulkRead& read = *reads_.front();
        reads_.pop_front();
        read.finished(outcome, 0);
    }
}

bool Device::video_runs() const {
    return attached_ && !fx2_ && registers_->video_on() &&
           (registers_->fpga_configured() || !options_.camera.model.has_fpga()) &&
           descriptors().has_endpoint(setting_, Descriptors::kInEndpoint);
}

void Device::start_or_stop_video() {
    if (video_runs()) {
        video_.start(registers_->sensor_settings());
    } else {
        video_.stop();
    }
}

// ---------------------------------------------------------------------------------------------------------------
// Time, and coming and going

std::int64_t Device::next_event_us() const {
    if (!attached_) return return_us_;
    if (video_.waits_for_time()) return now_us_;
    return std::min(faults_.next_moment_us(), reads_.empty() ? kNever : video_.frame_end_us());
}

void Device::advance(std::int64_t now_us) {
    now_us_ = std::max(now_us_, now_us);
    if (!attached_) {
        if (now_us_ >= return_us_) come_to_bus(state_);
        return;
    }
    if (const std::optional<Fault> fault = faults_.strike(Place::kMoment, Fault::kAnyAddress, now_us_))
        apply(*fault, {Outcome::kDone}, {});
    if (!attached_) return;
    registers_->advance(now_us_);
    if (video_.advance(now_us_, *registers_)) deliver();
}

void Device::come_to_bus(DeviceOptions::State state) {
    state_ = state;
    attached_ = true;
    ++generation_;
    return_us_ = kNever;
    configuration_ = 0;
    setting_ = 0;
    out_halted_ = in_halted_ = false;
    fx2_ = state == DeviceOptions::State::kBare ? std::make_unique<Fx2>() : nullptr;
    registers_ = std::make_unique<Registers>(options_.camera);
    registers_->set_fpga_configured(state == DeviceOptions::State::kReady);
    observe(Transfer::Kind::kAttach, {}, {}, nullptr);
}

void Device::leave_bus(std::int64_t return_us) {
    attached_ = false;
    return_us_ = return_us;
    registers_->write(TOVIX_VIDEO_SWITCH, 0);
    start_or_stop_video();
    finish_reads(Outcome::kGone);
}

void Device::unplug() {
    state_ = options_.state;
    if (attached_) observe(Transfer::Kind::kDetach, {}, {}, nullptr);
    leave_bus(kNever);
}

void Device::replug() {
    unplug();
    return_us_ = now_us_ + options_.reenumeration_us;
}

void Device::plug_in() {
    if (!attached_) come_to_bus(options_.state);
}

}  // namespace tovix::simulator
