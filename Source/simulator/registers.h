// SPDX-License-Identifier: Apache-2.0
// The register space of a simulated camera: what reads answer, and what writes change, clamp or ignore.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "models.h"
#include "sensor.h"

namespace tovix::simulator {

/// Everything that a person would set up about a camera before it is plugged in.
struct CameraSetup {
    Model model;
    std::uint32_t serial_number = 1;
    std::optional<std::string> serial_text;  ///< in place of the number
    std::uint32_t firmware_version = 0x00010203;
    std::uint32_t color_inquiry = 0;        ///< what TOVIX_FO_COLOR_INQ answers
    std::vector<std::uint16_t> data_rates;  ///< in the order in which the camera lists them
    bool temperature_control = true;
    bool fan = true;
    std::uint32_t message_mask = 3;  ///< messages that the camera supports
    std::uint32_t fpga_polls = 3;    ///< reads of the control register until it says configured
    std::array<double, 3> light{1.0, 1.0, 1.0};
    double blur = 0.0;
    double noise = 1.0;

    /// A setup with all that the model decides.
    static CameraSetup of(const Model& model);
};

class Registers {
  public:
    explicit Registers(const CameraSetup& setup);

    /// Time has come to this; temperature follows.
    void advance(std::int64_t now_us);

    std::uint32_t read(std::uint16_t address);
    void write(std::uint16_t address, std::uint32_t value);

    // The message channel's data area is bytes, not words.
    static bool is_message_data(std::uint16_t address) { return address >= TOVIX_MSG_DATA && address < kMessageEnd; }
    void read_message(std::uint16_t address, std::uint8_t* data, std::size_t size) const;
    void write_message(std::uint16_t address, const std::uint8_t* data, std::size_t size);

    bool video_on() const { return video_on_; }
    bool fpga_configured() const { return fpga_configured_; }
    bool fpga_loading() const { return fpga_loading_; }
    void set_fpga_configured(bool configured) { fpga_configured_ = configured; }
    void take_fpga_bytes(const std::uint8_t* data, std::size_t size);

    /// What the sensor has to do for the next frame.
    SensorSettings sensor_settings() const;
    /// From the start of one frame to the start of the next.
    std::int64_t frame_period_us() const;

  private:
    struct Property {
        std::uint32_t flags;
        std::int32_t value, min, max;
    };
    static constexpr std::uint16_t kMessageEnd = 0x6000;
    static constexpr std::size_t kMessageBytes = kMessageEnd - TOVIX_MSG_DATA;

    double factor(std::uint16_t base) const;  // a gain of 4096 as 1.0
    void fit_geometry();
    bool write_property(std::uint16_t address, std::uint32_t value);

    CameraSetup setup_;
    std::map<std::uint16_t, Property> properties_;  // by base address
    std::uint32_t x_ = 0, y_ = 0, width_ = 0, height_ = 0, subsample_x_ = 1, subsample_y_ = 1;
    std::uint32_t color_id_ = 0;
    std::uint32_t data_rate_ = 0;
    std::size_t data_rates_read_ = 0;
    bool video_on_ = false;
    std::uint32_t fan_ = 0;
    double temperature_ = 25.0;
    std::int64_t temperature_time_us_ = 0;
    std::uint32_t message_ = 0;
    std::map<std::uint32_t, std::vector<std::uint8_t>> messages_;  // by number

    bool fpga_configured_ = false;
    bool fpga_loading_ = false;
    bool fpga_image_good_ = false;
    std::uint32_t fpga_polls_left_ = 0;
    std::vector<std::uint8_t> fpga_image_;
};

}  // namespace tovix::simulator
