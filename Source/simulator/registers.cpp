// SPDX-License-Identifier: Apache-2.0
#include "registers.h"

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "wire.h"

namespace tovix::simulator {

namespace {

constexpr std::uint32_t kPresent = 0x80000000;
constexpr std::uint32_t kSwitchedOn = 0x8000;
constexpr std::uint32_t kFpgaConfigured = 0x20;
constexpr std::uint32_t kVideoOn = 0x80;

// Bases of the property blocks.
constexpr std::uint16_t kExposure = 0x04A0;  // microseconds
constexpr std::uint16_t kGain = 0x04F0;      // 4096 = 1.0, like the gains by place in the colour-filter cell
constexpr std::uint16_t kGainRed = 0x0500;
constexpr std::uint16_t kGainGreenRed = 0x0510;
constexpr std::uint16_t kGainGreenBlue = 0x0520;
constexpr std::uint16_t kGainBlue = 0x0530;
constexpr std::uint16_t kBlock640 = 0x0640;
constexpr std::uint16_t kTemperatureNow = 0x0694;  // reads the sensor, writes the set point; degrees Celsius

constexpr std::uint32_t kUnitWidth = 16;  // granularity of sizes
constexpr std::uint32_t kUnitHeight = 2;

constexpr double kAmbient = 25.0;  // degrees Celsius
constexpr double kThermalSeconds = 20.0;

constexpr char kFpgaMagic[8] = {'T', 'V', 'X', 'F', 'P', 'G', 'A', '1'};
constexpr std::size_t kFpgaHeader = 16;  // magic, u32 length of what follows, u32 CRC-32 of it
constexpr std::size_t kLargestFpgaImage = 64 << 20;

bool is_whole_image(const std::vector<std::uint8_t>& image) {
    if (image.size() < kFpgaHeader || std::memcmp(image.data(), kFpgaMagic, sizeof kFpgaMagic) != 0) return false;
    const std::size_t length = image.size() - kFpgaHeader;
    return get_u32(&image[8]) == length &&
           get_u32(&image[12]) == crc32(0, image.data() + kFpgaHeader, static_cast<uInt>(length));
}

}  // namespace

CameraSetup CameraSetup::of(const Model& model) {
    CameraSetup setup;
    setup.model = model;
    setup.color_inquiry = model.color_code;
    // In thousands of pixels a second. A camera starts at its last rate when it has an FPGA, else at its first.
    setup.data_rates = {5000, 10000, 20000, 27000, 40000};
    if (!model.has_fpga()) std::ranges::reverse(setup.data_rates);
    return setup;
}

Registers::Registers(const CameraSetup& setup) : setup_(setup) {
    width_ = setup.model.width;
    height_ = setup.model.height;
    properties_[kExposure] = {kPresent, 10'000, 10, 60'000'000};
    properties_[kGain] = {kPresent, 4096, 4096, 8 * 4096};
    for (const std::uint16_t base : {kGainRed, kGainGreenRed, kGainGreenBlue, kGainBlue})
        properties_[base] = {setup.model.color_code != 0 ? kPresent : 0, 4096, 4096, 4 * 4096};
    properties_[kBlock640] = {kPresent, 0, 0, 255};
    properties_[TOVIX_TEMPERATURE] = {setup.temperature_control ? kPresent : 0, 25, -30, 30};
    fan_ = setup.fan ? kPresent : 0;
    data_rate_ = setup.data_rates.empty() ? 0 : setup.data_rates.front();
    auto& curve = messages_[0];
    for (int level = 0; level < 256; ++level)
        curve.push_back(static_cast<std::uint8_t>(level));
}

void Registers::advance(std::int64_t now_us) {
    const double seconds = static_cast<double>(now_us - temperature_time_us_) / 1e6;
    temperature_time_us_ = now_us;
    const Property& control = properties_[TOVIX_TEMPERATURE];
    const double goal = (control.flags & kSwitchedOn) != 0 ? control.value : kAmbient;
    temperature_ += (goal - temperature_) * (1.0 - std::exp(-seconds / kThermalSeconds));
}

std::uint32_t Registers::read(std::uint16_t address) {
    switch (address) {
        case TOVIX_FPGA_CONTROL:
            if (fpga_image_good_ && !fpga_loading_ && !fpga_configured_) {
                fpga_configured_ = fpga_polls_left_ <= 1;
                if (!fpga_configured_) --fpga_polls_left_;
            }
            return fpga_configured_ ? kFpgaConfigured : 0;
        case TOVIX_FIRMWARE_VERSION: return setup_.firmware_version;
        case TOVIX_VIDEO_SWITCH: return video_on_ ? kVideoOn : 0;
        case kTemperatureNow: return static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(temperature_)));
        case TOVIX_FAN: return fan_;
        case TOVIX_FO_MAX_SIZE: return pair(setup_.model.width, setup_.model.height);
        case TOVIX_FO_UNIT_SIZE: return pair(kUnitWidth, kUnitHeight);
        case TOVIX_FO_POSITION: return pair(x_, y_);
        case TOVIX_FO_SIZE: return pair(width_, height_);
        case TOVIX_FO_COLOR_ID: return color_id_;
        case TOVIX_FO_COLOR_INQ: return setup_.color_inquiry;
        case TOVIX_FO_SUBSAMPLING: return pair(subsample_x_, subsample_y_);
        case TOVIX_FO_SUBSAMPLING_INQ: return 0x0100u | setup_.model.max_subsampling;
        case TOVIX_FO_KPS_MINMAX_INQ: {
            if (setup_.data_rates.empty()) return 0;
            const auto [least, most] = std::ranges::minmax(setup_.data_rates);
            return pair(least, most);
        }
        case TOVIX_FO_KPS: return data_rate_;
        case TOVIX_FO_KPS_ARRAY_CNT: data_rates_read_ = 0; return static_cast<std::uint32_t>(setup_.data_rates.size());
        case TOVIX_FO_KPS_ARRAY: {
            const auto next = [&]() -> std::uint32_t {
                return data_rates_read_ < setup_.data_rates.size() ? setup_.data_rates[data_rates_read_++] : 0u;
            };
            const std::uint32_t low = next();
            return pair(low, next());
        }
        case TOVIX_MSG_MASK: return setup_.message_mask;
        case TOVIX_MSG_SELECT: return message_;
        default: break;
    }
    const auto property = properties_.find(address & 0xFFF0);
    if (property == properties_.end()) return 0;  // a register that this camera does not have
    switch (address & 0xF) {
        case TOVIX_PROPERTY_FLAGVAL: return property->second.flags;
        case TOVIX_PROPERTY_CURVAL: return static_cast<std::uint32_t>(property->second.value);
        case TOVIX_PROPERTY_MINVAL: return static_cast<std::uint32_t>(property->second.min);
        case TOVIX_PROPERTY_MAXVAL: return static_cast<std::uint32_t>(property->second.max);
        default: return 0;
    }
}

bool Registers::write_property(std::uint16_t address, std::uint32_t value) {
    const auto found = properties_.find(address & 0xFFF0);
    if (found == properties_.end()) return false;
    Property& property = found->second;
    const bool exists = (property.flags & kPresent) != 0;
    if ((address & 0xF) == TOVIX_PROPERTY_FLAGVAL && exists) property.flags = value | kPresent;
    if ((address & 0xF) == TOVIX_PROPERTY_CURVAL && exists)
        property.value = std::clamp(static_cast<std::int32_t>(value), property.min, property.max);
    return true;  // its other words, and all of one that does not exist, are read-only
}

void Registers::write(std::uint16_t address, std::uint32_t value) {
    if (write_property(address, value)) return;
    switch (address) {
        case TOVIX_FPGA_CONTROL:
            fpga_loading_ = value != 0;
            if (fpga_loading_) {
                fpga_configured_ = fpga_image_good_ = false;
                fpga_image_.clear();
            } else {
                fpga_image_good_ = is_whole_image(fpga_image_);
                fpga_polls_left_ = setup_.fpga_polls;
            }
            break;
        case TOVIX_VIDEO_SWITCH: video_on_ = (value & kVideoOn) != 0; break;
        case TOVIX_FAN:
            if (setup_.fan) fan_ = value | kPresent;
            break;
        case TOVIX_FO_POSITION:
            x_ = value & 0xFFFF;
            y_ = value >> 16;
            fit_geometry();
            break;
        case TOVIX_FO_SIZE:
            width_ = value & 0xFFFF;
            height_ = value >> 16;
            fit_geometry();
            break;
        case TOVIX_FO_SUBSAMPLING:
            subsample_x_ = std::clamp<std::uint32_t>(value & 0xFFFF, 1, setup_.model.max_subsampling);
            subsample_y_ = std::clamp<std::uint32_t>(value >> 16, 1, setup_.model.max_subsampling);
            break;
        case TOVIX_FO_COLOR_ID: color_id_ = value; break;
        case TOVIX_FO_KPS:
            if (std::ranges::find(setup_.data_rates, value) != setup_.data_rates.end()) data_rate_ = value;
            break;
        case TOVIX_MSG_SELECT: message_ = value; break;
        default: break;  // read-only, or not there
    }
}

/// A camera reads only what its sensor has: sizes down to its granularity, the area within the sensor.
void Registers::fit_geometry() {
    const auto fit = [](std::uint32_t size, std::uint32_t unit, std::uint32_t largest) {
        return std::clamp(size / unit * unit, unit, largest);
    };
    width_ = fit(width_, kUnitWidth, setup_.model.width);
    height_ = fit(height_, kUnitHeight, setup_.model.height);
    x_ = std::min(x_, setup_.model.width - width_);
    y_ = std::min(y_, setup_.model.height - height_);
}

void Registers::read_message(std::uint16_t address, std::uint8_t* data, std::size_t size) const {
    std::memset(data, 0, size);
    const auto message = messages_.find(message_);
    const std::size_t from = address - std::size_t{TOVIX_MSG_DATA};
    if (message == messages_.end() || from >= message->second.size()) return;
    std::memcpy(data, message->second.data() + from, std::min(size, message->second.size() - from));
}

void Registers::write_message(std::uint16_t address, const std::uint8_t* data, std::size_t size) {
    if (message_ > 31 || (setup_.message_mask >> message_ & 1) == 0) return;
    const std::size_t from = address - std::size_t{TOVIX_MSG_DATA};
    const std::size_t taken = std::min(size, kMessageBytes - from);
    auto& message = messages_[message_];
    if (message.size() < from + taken) message.resize(from + taken);
    std::memcpy(message.data() + from, data, taken);
}

void Registers::take_fpga_bytes(const std::uint8_t* data, std::size_t size) {
    if (fpga_loading_ && fpga_image_.size() + size <= kLargestFpgaImage)
        fpga_image_.insert(fpga_image_.end(), data, data + size);
}

double Registers::factor(std::uint16_t base) const {
    return properties_.at(base).value / 4096.0;
}

SensorSettings Registers::sensor_settings() const {
    SensorSettings settings;
    settings.sensor_width = setup_.model.width;
    settings.sensor_height = setup_.model.height;
    settings.x_offset = x_;
    settings.y_offset = y_;
    settings.width = width_;
    settings.height = height_;
    settings.subsample_x = subsample_x_;
    settings.subsample_y = subsample_y_;
    settings.color_id = setup_.model.color_code;
    settings.exposure_us = properties_.at(kExposure).value;
    settings.gain = factor(kGain);
    if (setup_.model.color_code != 0) {
        settings.gain_red = factor(kGainRed);
        settings.gain_blue = factor(kGainBlue);
        settings.gain_green_red = factor(kGainGreenRed);
        settings.gain_green_blue = factor(kGainGreenBlue);
    }
    settings.light = setup_.light;
    settings.blur = setup_.blur;
    settings.noise = setup_.noise;
    settings.temperature = std::round(temperature_);  // whole degrees, so that prepared frames stay of use
    const auto& curve = messages_.at(0);
    for (std::size_t level = 0; level < 256; ++level)
        settings.tone_curve[level] = level < curve.size() ? curve[level] : static_cast<std::uint8_t>(level);
    return settings;
}

std::int64_t Registers::frame_period_us() const {
    const std::int64_t pixels = std::int64_t{width_ / subsample_x_} * (height_ / subsample_y_);
    const std::int64_t readout_us = data_rate_ != 0 ? pixels * 1000 / data_rate_ : pixels;
    return std::max<std::int64_t>({readout_us, properties_.at(kExposure).value, 1});
}

}  // namespace tovix::simulator
