// SPDX-License-Identifier: Apache-2.0
#include "rounds.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace tovix::bench {
namespace {

constexpr std::size_t kWorkingBytes = std::size_t{128} << 20;
constexpr std::size_t kFrameSamples = 3, kImageBytes = 6;  // a pixel: one as a byte and one as a word; three words
constexpr double kEnoughMs = 1'000;                        // after so long a case has had its share of rounds

/// Slow waves of light and colour with a sensor's noise over them, so that what depends on samples goes as it does in a
/// real frame: pure noise has edges everywhere, and an even frame has none. First as bytes, then as words.
std::vector<unsigned char> scene(FrameSize size) {
    std::vector<unsigned char> bytes, words;
    std::uint32_t random = 1;
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x) {
            random = random * 1664525U + 1013904223U;
            const int wave = std::abs(static_cast<int>((x + 2 * y + 170 * (x % 2) + 85 * (y % 2)) % 448) - 224);
            bytes.push_back(static_cast<unsigned char>(wave + static_cast<int>(random >> 28)));
            words.push_back(static_cast<unsigned char>(random >> 16));  // the less significant one
            words.push_back(bytes.back());
        }
    }
    bytes.insert(bytes.end(), words.begin(), words.end());
    return bytes;
}

/// Of this thread: what other programs take does not count.
double thread_ms() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

struct Samples {
    std::vector<double> memory, cache;
    double spent_ms = 0;
};

Times times_of(std::vector<double>& samples) {
    std::ranges::sort(samples);
    return {samples.front(), samples[samples.size() / 2]};
}

}  // namespace

Buffers::Buffers(FrameSize size)
    : frame_bytes_(size.pixels() * kFrameSamples),
      pairs_(kWorkingBytes / (size.pixels() * 4) + 1),
      images_(pairs_ * size.pixels() * kImageBytes) {
    const std::vector<unsigned char> frame = scene(size);
    for (std::size_t pair = 0; pair < pairs_; ++pair)
        frames_.insert(frames_.end(), frame.begin(), frame.end());
}

const unsigned char* Buffers::frame(std::size_t pair, unsigned sample_bits) const {
    return frames_.data() + pair * frame_bytes_ + (sample_bits == 16 ? frame_bytes_ / kFrameSamples : 0);
}

unsigned char* Buffers::image(std::size_t pair) {
    return images_.data() + pair * (images_.size() / pairs_);
}

std::vector<Result> measure(const Group& group, Buffers& buffers, unsigned rounds) {
    std::vector<Case> cases = group.ours;
    cases.insert(cases.end(), group.others.begin(), group.others.end());
    std::vector<Samples> samples(cases.size());
    std::size_t next_pair = 0;
    for (unsigned round = 0; round < rounds; ++round) {
        for (std::size_t i = 0; i < cases.size(); ++i) {
            if (samples[i].spent_ms > kEnoughMs) continue;
            const auto convert = [&](std::size_t pair) {
                const double start = thread_ms();
                if (!cases[i].convert(buffers.image(pair), buffers.frame(pair, cases[i].sample_bits)))
                    throw std::runtime_error(cases[i].name + " of " + group.name + " was not converted");
                const double took = thread_ms() - start;
                samples[i].spent_ms += took;
                return took;
            };
            next_pair = next_pair % (buffers.pairs() - 1) + 1;  // never the one that is kept in cache
            samples[i].memory.push_back(convert(next_pair));
            convert(0);
            samples[i].cache.push_back(convert(0));
        }
    }
    std::vector<Result> results;
    for (std::size_t i = 0; i < cases.size(); ++i)
        results.push_back({cases[i].name, times_of(samples[i].memory), times_of(samples[i].cache)});
    return results;
}

}  // namespace tovix::bench
