// SPDX-License-Identifier: Apache-2.0
// Properties as floats. Rounding adds a half and truncates, of negative numbers too, as applications know it.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>

#include "saturated.h"
#include "tovixapi/tovixapi.h"

namespace {

int rounded(double number) {
    return saturated<int>(number + 0.5);
}

/// So many integer steps are 1.0.
template <int kSteps>
float from_steps(int value) {
    return static_cast<float>(value) / kSteps;
}
template <int kSteps>
int to_steps(float value) {
    return rounded(kSteps * value);
}

/// Milliseconds; the integer counts microseconds and is unsigned, which the narrowing keeps.
float from_microseconds(int value) {
    return static_cast<float>(static_cast<std::uint32_t>(value)) / 1000.0f;
}
int to_microseconds(float value) {
    return static_cast<int>(static_cast<std::uint32_t>(saturated<std::int64_t>(1000.0f * value + 0.5)));
}

/// Area of the iris; the integer is in proportion to one over its width.
float from_iris(int value) {
    if (value <= 0) return 10000.0f;
    const float t = static_cast<float>(value) / 10.0f;
    return 100.0f / (t * t);
}
int to_iris(float value) {
    if (value <= 0.0f) value = 0.01f;
    const auto ratio = static_cast<float>(std::sqrt(100.0 / value));
    return rounded(ratio * 10.0);
}

/// Degrees Celsius; the integer counts thousandths of a kelvin.
float from_millikelvin(int value) {
    return static_cast<float>(value) / 1000.0f - 273.0f;
}
int to_millikelvin(float value) {
    return rounded((value + 273.0) * 1000.0);
}

float from_property_256(int value) {
    const auto v = static_cast<float>(value);
    return value <= 256 ? 100.0f * ((512.0f - v) / 512.0f) : 12800.0f / v;
}
int to_property_256(float value) {
    if (value < 50.0f) return std::min(saturated<int>(256.0f * (50.0f / value)), 65535);
    return std::max(saturated<int>(512.0f + value / 100.0f * -512.0f), 1);
}

constexpr std::uint32_t kOfHundredths[] = {0, 1, 5, 67, 68, 71, 72, 73, 74};
constexpr std::uint32_t kOfMicroseconds[] = {20, 50, 56, 96, 97, 98, 100, 116};
constexpr std::uint32_t kOfGains[] = {40, 41, 42, 43, 44, 51, 52, 53, 54, 55};
constexpr std::uint32_t kOfIris[] = {21};
constexpr std::uint32_t kOfTemperature[] = {108};
constexpr std::uint32_t kOf256[] = {256};

struct Conversion {
    std::span<const std::uint32_t> properties;
    float (*to_float)(int);
    int (*to_long)(float);
    bool falls = false;  // the float falls as the integer rises
};
constexpr Conversion kConversions[] = {
    {kOfHundredths, &from_steps<100>, &to_steps<100>},    {kOfMicroseconds, &from_microseconds, &to_microseconds},
    {kOfGains, &from_steps<4096>, &to_steps<4096>},       {kOfIris, &from_iris, &to_iris, true},
    {kOfTemperature, &from_millikelvin, &to_millikelvin}, {kOf256, &from_property_256, &to_property_256, true},
};
constexpr Conversion kPlain{{}, &from_steps<1>, &to_steps<1>};

const Conversion& conversion_of(std::uint32_t property) {
    for (const Conversion& each : kConversions) {
        if (std::ranges::find(each.properties, property) != each.properties.end()) return each;
    }
    return kPlain;
}

}  // namespace

float ConvertPropToFloat(std::uint32_t property, int value) {
    return conversion_of(property).to_float(value);
}

int ConvertPropToLong(std::uint32_t property, float value) {
    return std::isnan(value) ? 0 : conversion_of(property).to_long(value);
}

bool PropMinMaxSwap(std::uint32_t property) {
    return conversion_of(property).falls;
}
