// SPDX-License-Identifier: Apache-2.0
// What is measured: functions from a frame to an image, in groups that are compared with each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tovix::bench {

struct FrameSize {
    std::uint32_t width, height;
    std::size_t pixels() const { return std::size_t{width} * height; }
};

struct Depths {
    unsigned sample, pixel;  // bits
    std::string name() const { return std::to_string(sample) + "to" + std::to_string(pixel); }
};

/// What happens to the colours besides the demosaic: a look-up table of gamma 2.2 before it, a colour matrix after it.
struct Colours {
    const char* name;
    bool matrix, table;
};
inline constexpr Colours kColours[] = {
    {"plain", false, false}, {"matrix", true, false}, {"table", false, true}, {"both", true, true}};

struct Case {
    std::string name;
    unsigned sample_bits;
    std::function<bool(unsigned char* image, const unsigned char* frame)> convert;
};

/// Cases that are measured in turn. Ours come first.
struct Group {
    std::string name;  // depths and colours, as in 8to24/matrix; or method and depths, as in edge/8to24/variants
    std::vector<Case> ours, others;
    bool variants;  // ours are one conversion with different settings, the plain one first
};

/// Everything that CVorm::ConvertToRgb has a kernel for.
std::vector<Group> groups_of(FrameSize size);

/// Orders of the colour filter: bit 0 when the first site is green, bit 1 when the first row has blue.
inline constexpr unsigned kPhases = 4;

/// What other libraries do with such frames, as their users would write it: the demosaics, and those with all else that
/// takes a similar way through memory. Nothing where the program was built without them.
std::vector<Case> demosaic_peers_of(FrameSize size, Depths depths, const Colours& colours, unsigned phase);
std::vector<Case> peers_of(FrameSize size, Depths depths, const Colours& colours);

}  // namespace tovix::bench
