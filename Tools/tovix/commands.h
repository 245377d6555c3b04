// SPDX-License-Identifier: Apache-2.0
// The commands of the tool and what can be asked of each. A command prints its answer on standard output and throws
// Failure when it cannot.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "adjustment.h"
#include "camera_session.h"
#include "description.h"
#include "file_names.h"
#include "property_names.h"
#include "rendering.h"

struct ListOptions {
    bool json = false;
};

struct InfoOptions {
    std::string camera;  // selector; empty: the first
    bool json = false;
};

struct GetOptions {
    std::string camera;
    std::vector<const tovix_property_info*> properties;  // none: all
    bool json = false;
};

struct SetOptions {
    std::string camera;
    std::vector<PropertySetting> settings;
    bool json = false;
};

struct AutoOptions {
    std::string camera;
    Adjustment what = Adjustment::kExposure;
    AdjustmentOptions adjustment;
    std::vector<PropertySetting> settings;  // made beforehand
    double timeout_s = 10;                  // for one frame
    bool json = false;
};

/// Two numbers of one option: a size, an offset, or subsampling factors.
struct NumberPair {
    std::uint16_t first, second;
};

struct CaptureOptions {
    std::string camera;
    std::uint32_t count = 1;
    std::string output;  // file name or pattern, see frame_name()
    ImageKind kind = ImageKind::kPng;
    std::optional<NumberPair> size;    // sensor pixels, before subsampling
    std::optional<NumberPair> offset;  // sensor pixels
    std::optional<NumberPair> subsampling;
    std::optional<std::uint32_t> data_rate;
    double timeout_s = 10;  // for one frame
    std::vector<PropertySetting> settings;
    std::vector<Adjustment> adjustments;  // after the settings
    AdjustmentOptions adjustment;
    RenderingOptions rendering;
};

struct ConvertOptions {
    std::string raw, output;
    ImageKind kind = ImageKind::kPng;
    RawFacts facts;  // what the command line says of the frame
    RenderingOptions rendering;
};

struct StreamOptions {
    std::string camera;
    std::uint32_t count = 0;  // 0: no limit
    double seconds = 0;       // 0: no limit
    bool stats = false;
    bool json = false;
    bool to_stdout = false;  // the frames, instead of the answer
    double timeout_s = 10;   // for one frame
};

struct SimulateOptions {
    std::vector<SimulatedCamera> cameras;  // at least one
    bool ready = false;                    // they have their firmware and FPGA image, and keep them
    std::string address = "127.0.0.1";     // to listen on
    std::uint16_t port = 3240;             // 0: one that is free
    bool json = false;
};

void run(const ListOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const InfoOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const GetOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const SetOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const AutoOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const CaptureOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const ConvertOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const StreamOptions& options, const GlobalOptions& global, QuietStderr& quiet);
void run(const SimulateOptions& options, const GlobalOptions& global, QuietStderr& quiet);
