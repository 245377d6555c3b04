// SPDX-License-Identifier: Apache-2.0
// Look-up tables from gamma, contrast and brightness, and the stretching of 8-bit tables to 16 bits.
//
// Entries are truncated, so the order of operations is part of the result: at some gammas the last entry is
// one below full scale, and stays so.
#include <cmath>
#include <cstdint>

#include "tovixapi/vorm.h"

namespace {

constexpr int kLinearGamma = 100;

/// The curve over levels 0 to `top`, which is 255 or 65535.
class Curve {
  public:
    Curve(const _lut8_struct& block, double top)
        : top_(top),
          middle_((top + 1.0) / 2.0),
          exponent_(1.0 / (usable_gamma(block) / 100.0)),
          scale_(std::pow(top, 1.0 - exponent_)),
          contrast_(static_cast<std::int32_t>(block.contrast)),
          shift_(static_cast<std::int32_t>(block.brightness) * (top + 1.0) / 10000.0) {}

    double operator()(int level) const {
        double t = shift_ + level - middle_;
        t = middle_ + std::trunc(contrast_ * t / 100.0);
        if (t > top_) return top_;
        if (t < 0.0) return 0.0;
        // At gamma 0.01 and 16 bits the scale underflows while the power overflows.
        return scale_ > 0.0 ? std::pow(t, exponent_) * scale_ : std::pow(t / top_, exponent_) * top_;
    }

  private:
    /// Hundredths. No power law has an exponent of 0 or less: such gammas count as linear.
    static double usable_gamma(const _lut8_struct& block) {
        const auto gamma = static_cast<std::int32_t>(block.gamma);
        return gamma > 0 ? gamma : kLinearGamma;
    }

    double top_, middle_, exponent_, scale_, contrast_, shift_;
};

/// Where the entry of a sample stands.
unsigned index_of(unsigned sample, bool natural_order) {
    return natural_order ? sample : (sample & 0xFF) << 8 | sample >> 8;
}

/// The level that follows the last one of a table, in line with the two before it: 0 to 256.
unsigned beyond_the_end(const unsigned char (&table)[256]) {
    const unsigned last = table[255], before = table[254];
    const unsigned next = 2 * last - before;  // wraps when the table falls steeply
    if (next <= 256) return next;
    return before < last ? 256 : 0;
}

void stretch(unsigned short* out, const unsigned char (&table)[256], bool natural_order) {
    for (unsigned high = 0; high < 256; ++high) {
        const unsigned a = table[high];
        const unsigned b = high < 255 ? table[high + 1] : beyond_the_end(table);
        for (unsigned low = 0; low < 256; ++low) {
            out[index_of(high << 8 | low, natural_order)] =
                static_cast<unsigned short>(((256 - low) * (a * 256) + low * (b * 256)) / 256);
        }
    }
}

}  // namespace

void MakeLut8(_lut8_struct* block) {
    const Curve curve(*block, 255.0);
    for (int level = 0; level < 256; ++level)
        block->table[level] = static_cast<unsigned char>(curve(level));
}

void MakeLut16(unsigned short* out, _lut8_struct const* in, unsigned int size, int natural_order) {
    if (size != sizeof(_lut8_struct)) {
        stretch(out, in->table, natural_order != 0);
        return;
    }
    const Curve curve(*in, 65535.0);
    for (unsigned level = 0; level < 65536; ++level) {
        out[index_of(level, natural_order != 0)] = static_cast<unsigned short>(curve(static_cast<int>(level)));
    }
}
