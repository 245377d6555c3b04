// SPDX-License-Identifier: Apache-2.0
// A serial number and a checksum in the pixels of a frame, row by row, so that a torn or mixed frame is seen.
//
// The first 16 bytes of a marked row are: frame serial (u32), row (u32), checksum (u64) over both and the
// rest of the row; all little-endian. Rows shorter than that are left alone.
#pragma once

#include <cstdint>
#include <span>

namespace tovix::simulator {

inline constexpr std::size_t kMarkBytes = 16;

/// Mark every row of a frame of `row_bytes` bytes a row.
void mark_frame(std::span<std::uint8_t> frame, std::size_t row_bytes, std::uint32_t serial);

/// Whether all rows carry one and the same serial, each in its place and unchanged. The serial goes to *serial.
[[nodiscard]] bool check_frame(std::span<const std::uint8_t> frame, std::size_t row_bytes, std::uint32_t* serial);

}  // namespace tovix::simulator
