// SPDX-License-Identifier: Apache-2.0
#include "frame_mark.h"

#include <cstring>

namespace tovix::simulator {

namespace {

/// A checksum of eight bytes a step, in four lanes: it must keep up with frames that come as fast as memory is read.
std::uint64_t checksum(std::span<const std::uint8_t> bytes, std::uint64_t seed) {
    constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15;
    std::uint64_t lanes[4] = {seed, ~seed, seed ^ kMultiplier, seed + kMultiplier};
    std::size_t at = 0;
    for (; at + 32 <= bytes.size(); at += 32) {
        std::uint64_t words[4];
        std::memcpy(words, bytes.data() + at, sizeof words);
        for (int lane = 0; lane < 4; ++lane)
            lanes[lane] = (lanes[lane] ^ words[lane]) * kMultiplier;
    }
    for (; at < bytes.size(); ++at)
        lanes[at % 4] = (lanes[at % 4] ^ bytes[at]) * kMultiplier;
    std::uint64_t sum = 0;
    for (const std::uint64_t lane : lanes)
        sum = (sum ^ lane ^ lane >> 29) * kMultiplier;
    return sum ^ sum >> 32;
}

struct Mark {
    std::uint32_t serial;
    std::uint32_t row;
    std::uint64_t sum;
};
static_assert(sizeof(Mark) == kMarkBytes);

Mark make_mark(std::span<const std::uint8_t> row_bytes, std::uint32_t serial, std::uint32_t row) {
    return {serial, row, checksum(row_bytes.subspan(kMarkBytes), std::uint64_t{serial} << 32 | row)};
}

}  // namespace

void mark_frame(std::span<std::uint8_t> frame, std::size_t row_bytes, std::uint32_t serial) {
    if (row_bytes < kMarkBytes) return;
    std::uint32_t row = 0;
    for (std::size_t at = 0; at + row_bytes <= frame.size(); at += row_bytes, ++row) {
        const Mark mark = make_mark(frame.subspan(at, row_bytes), serial, row);
        std::memcpy(frame.data() + at, &mark, sizeof mark);
    }
}

bool check_frame(std::span<const std::uint8_t> frame, std::size_t row_bytes, std::uint32_t* serial) {
    if (row_bytes < kMarkBytes || frame.size() < row_bytes) return false;
    std::memcpy(serial, frame.data(), sizeof *serial);
    std::uint32_t row = 0;
    for (std::size_t at = 0; at + row_bytes <= frame.size(); at += row_bytes, ++row) {
        const Mark expected = make_mark(frame.subspan(at, row_bytes), *serial, row);
        if (std::memcmp(frame.data() + at, &expected, sizeof expected) != 0) return false;
    }
    return true;
}

}  // namespace tovix::simulator
