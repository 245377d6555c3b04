// SPDX-License-Identifier: Apache-2.0
#include "device.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "frame_mark.h"
#include "scene.h"
#include "wire.h"

namespace tovix::simulator {

namespace {

constexpr std::uint8_t kMemoryRequest = 0xA0;
constexpr std::uint8_t kRegisterRequest = 0x12;

// Standard requests (USB 2.0, 9.4).
constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kSetConfiguration = 9;
constexpr std::uint8_t kSetInterface = 11;
constexpr std::uint8_t kTypeMask = 0x60;  // of bmRequestType: standard, class, vendor
constexpr std::uint8_t kVendorType = 0x40;

constexpr std::uint8_t kDeviceDescriptor = 1, kConfigurationDescriptor = 2, kStringDescriptor = 3;
constexpr std::uint8_t kProductString = 2, kSerialString = 3;
constexpr std::uint8_t kVendorSpecific = 0xFF;
constexpr std::uint8_t kOnlyConfiguration = 1;
constexpr std::uint8_t kSettings = 3;  // alternate settings of the one interface

constexpr std::uint16_t kBareVendor = 0x04B4,
                        kBareProduct = 0x8613;  // an FX2 that knows nothing of its maker
constexpr std::uint16_t kBareBit = 0x8000;      // in the product ID of one that does

constexpr std::size_t kHeadBytes = 16;

std::vector<std::uint8_t> string_descriptor(const std::string& text) {
    std::vector<std::uint8_t> bytes{0, kStringDescriptor};
    for (const char c : text) {
        bytes.push_back(static_cast<std::uint8_t>(c));
        bytes.push_back(0);
    }
    bytes[0] = static_cast<std::uint8_t>(bytes.size());
    return bytes;
}

}  // namespace

std::string Transfer::text() const {
    static constexpr const char* kKinds[] = {"control", "bulk out", "bulk in", "attach", "detach"};
    static constexpr const char* kOutcomes[] = {"done", "stall", "silent", "overrun", "gone"};
    std::string line = kKinds[static_cast<int>(kind)];
    char part[96];
    if (kind == Kind::kControl) {
        std::snprintf(part, sizeof part, " %02X %02X value=%04X index=%04X length=%u", setup.request_type,
                      setup.request, setup.value, setup.index, setup.length);
        line += part;
    }
    if (kind == Kind::kControl || kind == Kind::kBulkOut || kind == Kind::kBulkIn) {
        std::snprintf(part, sizeof part, " %s %u:", kOutcomes[static_cast<int>(answer.outcome)], answer.length);
        line += part;
        for (const std::uint8_t byte : head) {
            std::snprintf(part, sizeof part, " %02X", byte);
            line += part;
        }
    }
    return line;
}

Device::Device(DeviceOptions options)
    : options_(std::move(options)),
      sensor_(options_.scene != nullptr ? options_.scene : test_chart()),
      registers_(std::make_unique<Registers>(options_.camera)) {}

Device::~Device() = default;

// ---------------------------------------------------------------------------------------------------------------
// Descriptors

std::vector<std::uint8_t> Device::device_descriptor() const {
    const camera_id& row = *options_.camera.model.row;
    std::vector<std::uint8_t> bytes{18, kDeviceDescriptor, 0x00, 0x02, 0, 0, 0, 64, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    std::uint16_t product = row.product_id;
    if (fx2_) {
        product = row.vendor_id == kBareVendor ? kBareProduct : static_cast<std::uint16_t>(product | kBareBit);
        std::fill_n(&bytes[4], 3, kVendorSpecific);  // class, subclass, protocol
    } else {
        bytes[4] = kVendorSpecific;
        bytes[15] = kProductString;
        bytes[16] = kSerialString;
    }
    put_u16(&bytes[8], row.vendor_id);
    put_u16(&bytes[10], product);
    put_u16(&bytes[12], options_.camera.model.release);
    return bytes;
}

std::vector<std::uint8_t> Device::endpoints(std::uint8_t setting) const {
    if (fx2_ || setting == 0) return {};
    const bool has_fpga = options_.camera.model.has_fpga();
    if (setting == 1) return {has_fpga ? kOutEndpoint : kInEndpoint};
    if (setting == 2 && has_fpga) return {kInEndpoint};
    return {};
}

std::vector<std::uint8_t> Device::configuration_descriptor() const {
    std::vector<std::uint8_t> bytes{9, kConfigurationDescriptor, 0, 0, 1, kOnlyConfiguration, 0, 0x80, 250};
    for (std::uint8_t setting = 0; setting < kSettings; ++setting) {
        const std::vector<std::uint8_t> addresses = endpoints(setting);
        const auto count = static_cast<std::uint8_t>(addresses.size());
        const std::uint8_t interface[] = {9, 4, 0, setting, count, kVendorSpecific, 0, 0, 0};
        bytes.insert(bytes.end(), std::begin(interface), std::end(interface));
        for (const std::uint8_t address : addresses) {
            const std::uint8_t bulk = 2;
            std::uint8_t endpoint[] = {7, 5, address, bulk, 0, 0, 0};
            put_u16(&endpoint[4], options_.high_speed ? 512 : 64);
            bytes.insert(bytes.end(), std::begin(endpoint), std::end(endpoint));
        }
    }
    put_u16(&bytes[2], static_cast<std::uint16_t>(bytes.size()));
    return bytes;
}

Answer Device::answer_bytes(const Setup& setup, std::uint8_t* data, std::span<const std::uint8_t> bytes) const {
    const auto length = static_cast<std::uint32_t>(std::min<std::size_t>(bytes.size(), setup.length));
    if (length != 0) std::memcpy(data, bytes.data(), length);
    return {Outcome::kDone, length};
}

Answer Device::get_descriptor(const Setup& setup, std::uint8_t* data) {
    const int type = setup.value >> 8, index = setup.value & 0xFF;
    if (type == kDeviceDescriptor) return answer_bytes(setup, data, device_descriptor());
    if (type == kConfigurationDescriptor && index == 0) return answer_bytes(setup, data, configuration_descriptor());
    if (type == kStringDescriptor && !fx2_) {
        const CameraSetup& camera = options_.camera;
        if (index == 0) return answer_bytes(setup, data, std::vector<std::uint8_t>{4, kStringDescriptor, 0x09, 0x04});
        if (index == kProductString)
            return answer_bytes(setup, data, string_descriptor(camera.product_text.value_or(camera.model.name)));
        if (index == kSerialString)
            return answer_bytes(setup, data,
                                string_descriptor(camera.serial_text.value_or(std::to_string(camera.serial_number))));
    }
    return {Outcome::kStall};
}

// ---------------------------------------------------------------------------------------------------------------
// Control requests

Answer Device::standard_request(const Setup& setup, std::uint8_t* data) {
    switch (setup.request) {
        case kGetDescriptor: return get_descriptor(setup, data);
        case kSetConfiguration:
            if (setup.value > kOnlyConfiguration) return {Outcome::kStall};
            configuration_ = static_cast<std::uint8_t>(setup.value);
            setting_ = 0;
            out_halted_ = in_halted_ = false;
            return {Outcome::kDone};
        case kSetInterface:
            if (setup.index != 0 || setup.value >= kSettings) return {Outcome::kStall};
            setting_ = static_cast<std::uint8_t>(setup.value);
            out_halted_ = in_halted_ = false;
            start_or_stop_video();
            return {Outcome::kDone};
        case kClearFeature:  // ENDPOINT_HALT is the only one
            if (setup.index == kOutEndpoint) out_halted_ = false;
            if (setup.index == kInEndpoint) in_halted_ = false;
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
    return (setup.request_type & kTypeMask) == kVendorType ? vendor_request(setup, data)
                                                           : standard_request(setup, data);
}

namespace {

/// Where in a fault plan a control request belongs, and its address there.
std::pair<Place, std::uint32_t> place_of(const Setup& setup) {
    if ((setup.request_type & kTypeMask) == kVendorType) {
        if (setup.request == kMemoryRequest) return {Place::kMemoryWrite, setup.value};
        return {setup.to_host() ? Place::kRegisterRead : Place::kRegisterWrite, setup.index};
    }
    switch (setup.request) {
        case kSetConfiguration: return {Place::kSetConfiguration, setup.value};
        case kSetInterface: return {Place::kSetAlternate, setup.value};
        case kClearFeature: return {Place::kClearHalt, setup.index};
        default: return {Place::kDescriptor, setup.value};
    }
}

}  // namespace

Answer Device::apply(const Fault& fault, Answer answer, const Setup& setup, std::uint8_t* data) {
    switch (fault.kind) {
        case FaultKind::kStall:
        case FaultKind::kRefused:
        case FaultKind::kBusy: return {Outcome::kStall};
        case FaultKind::kTimeout: return {Outcome::kSilent};
        case FaultKind::kShortAnswer: return {answer.outcome, answer.length / 2};
        case FaultKind::kEmptyAnswer: return {answer.outcome, 0};
        case FaultKind::kOverrun: return {Outcome::kOverrun, answer.length};
        case FaultKind::kUnplug: unplug(); return {Outcome::kGone};
        case FaultKind::kReplug:
            unplug();
            return_us_ = now_us_ + options_.reenumeration_us;
            return {Outcome::kGone};
        case FaultKind::kHostileValue:
            if (!setup.to_host()) return answer;
            for (std::uint32_t i = 0; i < setup.length; ++i)
                data[i] = static_cast<std::uint8_t>(fault.value >> 8 * (i % 4));
            return {Outcome::kDone, setup.length};
    }
    return answer;
}

Answer Device::control(const Setup& setup, std::uint8_t* data) {
    if (!attached_) return {Outcome::kGone};
    const auto [place, address] = place_of(setup);
    const std::optional<Fault> fault = faults_.strike(place, address, now_us_);
    // What the device refuses, or never sees, has no effect on it.
    const bool unseen = fault && fault->kind != FaultKind::kShortAnswer && fault->kind != FaultKind::kEmptyAnswer &&
                        fault->kind != FaultKind::kOverrun && fault->kind != FaultKind::kHostileValue;
    Answer answer{Outcome::kDone};
    if (!unseen) answer = dispatch(setup, data);
    if (fault) answer = apply(*fault, answer, setup, data);
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

std::optional<FaultKind> Device::host_operation(Place place) {
    const std::optional<Fault> fault = faults_.strike(place, Fault::kAnyAddress, now_us_);
    if (!fault) return std::nullopt;
    apply(*fault, {Outcome::kDone}, Setup{}, nullptr);
    return fault->kind;
}

// --------------------------------------------------------------------------------------------------------------- Bulk
// pipes

Answer Device::bulk_out(std::uint8_t endpoint, std::span<const std::uint8_t> data) {
    if (!attached_) return {Outcome::kGone};
    Answer answer{Outcome::kDone, static_cast<std::uint32_t>(data.size())};
    const std::optional<Fault> fault = faults_.strike(Place::kBulkOut, endpoint, now_us_);
    if (fault) answer = apply(*fault, answer, Setup{}, nullptr);
    const std::vector<std::uint8_t> existing = endpoints(setting_);
    if (out_halted_ || std::ranges::find(existing, endpoint) == existing.end()) answer = {Outcome::kStall};
    out_halted_ = out_halted_ || answer.outcome == Outcome::kStall;
    registers_->take_fpga_bytes(data.data(), answer.length);
    observe(Transfer::Kind::kBulkOut, {}, answer, data.data());
    return answer;
}

void Device::bulk_in(std::uint8_t endpoint, BulkRead& read) {
    const std::vector<std::uint8_t> existing = endpoints(setting_);
    const bool refused = endpoint != kInEndpoint || std::ranges::find(existing, endpoint) == existing.end();
    if (!attached_ || refused || in_halted_) {
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
    while (!reads_.empty() && !in_halted_) {
        const std::size_t left = frame_.size() - frame_sent_;
        if (left == 0) return;
        BulkRead& read = *reads_.front();
        Answer answer{Outcome::kDone, static_cast<std::uint32_t>(std::min<std::size_t>(left, read.size))};
        if (const std::optional<Fault> fault = faults_.strike(Place::kBulkIn, kInEndpoint, now_us_)) {
            answer = apply(*fault, answer, Setup{}, nullptr);
            if (answer.outcome == Outcome::kGone) return;  // the reads have ended with the device
            if (answer.outcome == Outcome::kSilent) {      // this frame is lost on its way
                frame_.clear();
                frame_sent_ = 0;
                return;
            }
            if (fault->kind == FaultKind::kShortAnswer || fault->kind == FaultKind::kEmptyAnswer)
                frame_sent_ = frame_.size() - answer.length;  // the rest is lost
        }
        in_halted_ = answer.outcome == Outcome::kStall;
        if (in_halted_) frame_sent_ = frame_.size();  // what a halted endpoint holds is lost
        if (answer.length != 0) std::memcpy(read.data, frame_.data() + frame_sent_, answer.length);
        frame_sent_ += answer.length;
        if (frame_sent_ >= frame_.size()) {
            frame_.clear();
            frame_sent_ = 0;
        }
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

// --------------------------------------------------------------------------------------------------------------- Video

bool Device::video_runs() const {
    const std::vector<std::uint8_t> existing = endpoints(setting_);
    return attached_ && !fx2_ && registers_->video_on() &&
           (registers_->fpga_configured() || !options_.camera.model.has_fpga()) &&
           std::ranges::find(existing, kInEndpoint) != existing.end();
}

void Device::start_or_stop_video() {
    if (video_runs()) {
        if (frame_end_us_ != kNever || video_starts_) return;
        // Drawing the first frame takes a while. It is drawn before the first frame's time begins to run.
        sensor_.render(registers_->sensor_settings(), frames_produced_, frame_);
        frame_.clear();
        video_starts_ = true;
    } else {
        video_starts_ = false;
        frame_end_us_ = kNever;
        frame_.clear();
        frame_sent_ = 0;
    }
}

void Device::produce_frame() {
    const SensorSettings settings = registers_->sensor_settings();
    const bool being_read = frame_sent_ != 0;
    if (!being_read) {  // else the host is so slow that this frame finds no room in the camera
        sensor_.render(settings, frames_produced_, frame_);
        if (options_.mark_frames)
            mark_frame(frame_, settings.width / settings.subsample_x * settings.bytes_per_sample, frames_produced_);
    }
    ++frames_produced_;
}

// ---------------------------------------------------------------------------------------------------------------
// Time, and coming and going

std::int64_t Device::next_event_us() const {
    if (!attached_) return return_us_;
    if (video_starts_) return now_us_;
    return std::min(faults_.next_moment_us(), reads_.empty() ? kNever : frame_end_us_);
}

void Device::advance(std::int64_t now_us) {
    now_us_ = std::max(now_us_, now_us);
    if (!attached_) {
        if (now_us_ >= return_us_) come_to_bus(state_);
        return;
    }
    if (faults_.next_moment_us() <= now_us_) host_operation(Place::kMoment);
    if (!attached_) return;
    registers_->advance(now_us_);
    if (std::exchange(video_starts_, false)) frame_end_us_ = now_us_ + registers_->frame_period_us();
    if (frame_end_us_ > now_us_) return;
    // Frames that nobody waited for were taken and overwritten: only the newest is worth drawing.
    const std::int64_t period_us = registers_->frame_period_us();
    const std::int64_t missed = (now_us_ - frame_end_us_) / period_us;
    frames_produced_ += static_cast<std::uint32_t>(missed);
    produce_frame();
    frame_end_us_ += (missed + 1) * period_us;
    deliver();
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

void Device::plug_in() {
    if (!attached_) come_to_bus(options_.state);
}

}  // namespace tovix::simulator
