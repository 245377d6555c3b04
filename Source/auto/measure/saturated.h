// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <limits>

/// The integer that truncation gives, or the bound beyond which it lies. What is not a number becomes 0.
template <std::signed_integral Integer>
constexpr Integer saturated(double value) {
    using Limits = std::numeric_limits<Integer>;
    constexpr double kLowest = Limits::min();  // and its opposite is the first that is too large; both are doubles
    if (value != value) return 0;
    if (value <= kLowest) return Limits::min();
    return value >= -kLowest ? Limits::max() : static_cast<Integer>(value);
}
