// SPDX-License-Identifier: Apache-2.0
// Prints Docs/properties.md: what is said of all properties, and a table of them from the library's own.
#include <cmath>
#include <cstdio>
#include <string>

#include "tovixapi/tovixapi.h"

namespace {

constexpr char kIntroduction[] = R"(# Properties

Everything about a camera and its pictures that can be set by number: exposure and gains, the tone curve, what the
conversion to colour does, and the temperature. This page is printed from the library's own table
(`tovix_properties`), so it is what this version does.

```c
int min, max, value;
uint32_t flags;
tovix_property_get_range(camera, TOVIX_PROP_EXPOSURE, &min, &max, &value, &flags);  /* microseconds */
tovix_property_set(camera, TOVIX_PROP_EXPOSURE, 12500, flags);

float exposure;
TovixGetProperty(camera, TOVIX_PROP_EXPOSURE, &exposure, &flags);                   /* 12.5 milliseconds */
```

Values are integers; older applications know them as floats (`TovixGetProperty` and its like). The column *integer* says
how one becomes the other.

)";

constexpr char kRemarks[] = R"(
**Kept by.** What the *camera* keeps lasts until its power goes, and is found by whoever opens it next; the camera tells
its range. The *library* makes one tone curve of brightness,
contrast and gamma and loads it into the camera; where a camera takes none, the conversion object applies them. What the
*conversion* keeps changes pictures after they have arrived (`tovix_convert_frame_to_rgb`), never raw frames. *Fixed*
values are what the camera said of itself.

**Ranges.** A value beyond the range is not refused: cameras limit it, the temperature is limited to the bounds that the
camera gave when it was opened, and the conversion takes it as it is. Only a demosaicing method and a correction matrix
that do not exist are left out: the call then returns 0 instead of 1.

**Flags.** Bit 31 (`TOVIX_PROPERTY_PRESENT`): the camera has the property. Bit 15 (`TOVIX_PROPERTY_ON`): the temperature
control and the fan run. Whoever sets a property that the camera keeps sets its flags too, so pass on those that were read.
The float interface carries bits 0 to 15 as bits 16 to 31.

**Monochrome cameras** report the neutral value of the digital white balance and gains as value and range.

**Temperature.** The integer is in the camera's own unit. The float is in degrees Celsius for cameras that count
thousandths of a kelvin; for one that counts whole degrees, as the simulated cameras do, use the integer.

**Rounding.** Numbers of the conversion are doubles inside. Read as an integer, a negative one that was set as -30 comes
back as -29, and the three digital colour gains may come back one hundredth too low. These three are
refused while the digital saturation is 0.05 or less, and they change `digital_gain` and the white balance, of which they
are made.
)";

const char* keeper_name(std::uint32_t keeper) {
    switch (keeper) {
        case TOVIX_KEPT_BY_CAMERA: return "camera";
        case TOVIX_KEPT_BY_LIBRARY: return "library";
        case TOVIX_KEPT_BY_CONVERSION: return "conversion";
        default: return "fixed";
    }
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

/// How the float becomes the integer. No property of the table has a conversion that is not a straight line.
std::string conversion(std::uint32_t property) {
    constexpr int kSpan = 1 << 20;  // large enough that the slope comes out whole
    const double offset = ConvertPropToFloat(property, 0);
    const double steps = std::round(kSpan / (ConvertPropToFloat(property, kSpan) - offset));
    const std::string shifted = offset != 0 ? "(float + " + number(-offset) + ")" : "float";
    return steps != 1 ? shifted + " x " + number(steps) : shifted;
}

std::string range(const tovix_property_info& row) {
    if (row.kept_by == TOVIX_FIXED) return "";
    if (row.kept_by == TOVIX_KEPT_BY_CAMERA) return "the camera's";
    const auto bound = [&](int value) {
        return number(std::round(ConvertPropToFloat(row.property, value) * 1e4) / 1e4);
    };
    return bound(row.min) + " to " + bound(row.max);
}

std::string register_of(const tovix_property_info& row) {
    char text[16] = "";
    if (row.address != 0) std::snprintf(text, sizeof text, "0x%04X", row.address);
    return text;
}

}  // namespace

int main() {
    std::fputs(kIntroduction, stdout);
    std::puts(
        "| Property | No. | Unit of the float | Range as a float | Integer | Kept by | Register | Can be set | |");
    std::puts("|---|---|---|---|---|---|---|---|---|");
    for (std::int32_t i = 0; i < tovix_property_count; ++i) {
        const tovix_property_info& row = tovix_properties[i];
        std::printf("| `%s` | %u | %s | %s | %s | %s | %s | %s | %s |\n", row.name, row.property, row.unit,
                    range(row).c_str(), conversion(row.property).c_str(), keeper_name(row.kept_by),
                    register_of(row).c_str(), row.kept_by == TOVIX_FIXED ? "no" : "yes", row.description);
    }
    std::fputs(kRemarks, stdout);
    return std::ferror(stdout) != 0;
}
