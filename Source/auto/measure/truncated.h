// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

/// Without its fraction; saturated at the bounds. What is no number becomes 0.
inline std::int64_t truncated(double value) {
    using Limits = std::numeric_limits<std::int64_t>;
    constexpr double kBeyond = 9223372036854775808.0;  // 2^63, the first that does not fit
    if (std::isnan(value)) return 0;
    if (value >= kBeyond) return Limits::max();
    return value < -kBeyond ? Limits::min() : static_cast<std::int64_t>(value);
}
