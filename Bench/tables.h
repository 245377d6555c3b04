// SPDX-License-Identifier: Apache-2.0
// What was measured, as Markdown.
#pragma once

#include "rounds.h"

namespace tovix::bench {

struct MeasuredGroup {
    FrameSize size;
    Group group;
    std::vector<Result> results;  // of `ours`, then of `others`
};

/// Whether somebody would use that case of another library, or the floor, in place of our conversion.
bool is_peer(const std::string& conversion, const std::string& other);

/// Our times by those of peers, and what they were meant to be.
void print_goals(const std::vector<MeasuredGroup>& measured);
/// All times, by groups.
void print_times(const std::vector<MeasuredGroup>& measured, FrameSize size);
/// Flips and the like by the plain conversion.
void print_variants(const std::vector<MeasuredGroup>& measured, FrameSize size);

}  // namespace tovix::bench
