// SPDX-License-Identifier: Apache-2.0
// Measures the cases of a group in turn, so that what disturbs the machine for a while disturbs all of them: each runs once a
// round, from memory and in cache. The shortest times are those of the rounds that nothing disturbed.
#pragma once

#include "bench_case.h"

namespace tovix::bench {

struct Times {
    double minimum_ms, median_ms;
};
struct Result {
    std::string name;
    Times memory, cache;
};

/// Frames, and room for their images. From memory pair follows pair, and all together are several times as large as a
/// processor's caches, since a camera's frames come from memory; in cache it is the same pair again, just after a conversion
/// that is not measured.
class Buffers {
  public:
    explicit Buffers(FrameSize size);
    /// Of bytes or of words. Three bytes a pixel can be read from the former.
    const unsigned char* frame(std::size_t pair, unsigned sample_bits) const;
    unsigned char* image(std::size_t pair);
    std::size_t pairs() const { return pairs_; }

  private:
    std::size_t frame_bytes_, pairs_;
    std::vector<unsigned char> frames_, images_;
};

/// Ours first. Throws std::runtime_error when a case fails.
std::vector<Result> measure(const Group& group, Buffers& buffers, unsigned rounds);

}  // namespace tovix::bench
