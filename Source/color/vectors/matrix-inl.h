// SPDX-License-Identifier: Apache-2.0
// The colour matrix, for a vector of pixels. Included once for each kind of processor, so without a guard.
//
// It is exact for all weights, but for words where two of a row are -32768.

HWY_BEFORE_NAMESPACE();
namespace tovix::color::HWY_NAMESPACE {
namespace {

using D16 = Tag<std::int16_t>;
using V16 = Vec<D16>;
using D32 = hn::RepartitionToWide<D16>;
using V32 = Vec<D32>;

/// In each 32-bit lane, the sum of the products of its two halves.
HWY_INLINE V32 dot(V16 values, V16 weights) {
    const D32 d32;
#if HWY_ARCH_X86
    V32 unused = hn::Zero(d32);
    return hn::ReorderWidenMulAccumulate(d32, values, weights, hn::Zero(d32), unused);
#else
    const auto low = [&](V16 v) HWY_ATTR { return hn::ShiftRight<16>(hn::ShiftLeft<16>(hn::BitCast(d32, v))); };
    const auto high = [&](V16 v) HWY_ATTR { return hn::ShiftRight<16>(hn::BitCast(d32, v)); };
    return hn::Add(hn::Mul(low(values), low(weights)), hn::Mul(high(values), high(weights)));
#endif
}

HWY_INLINE V16 pair(int low, int high) {
    const auto both = static_cast<std::uint32_t>(high) << 16 | static_cast<std::uint16_t>(low);
    return hn::BitCast(D16(), hn::Set(D32(), static_cast<std::int32_t>(both)));
}

/// The colour matrix for samples T. Values come as red, green, blue (or blue, green, red, if so said) and leave as red,
/// green, blue.
template <class T>
class Matrix;

/// Sums of bytes fit 32 bits whatever the weights are. Bytes are multiplied by 16 on the way, so that what is left after
/// the shift by 12 is the upper half of a lane.
template <>
class Matrix<std::uint8_t> {
  public:
    HWY_INLINE Matrix(const short* weights, bool blue_first) {
        for (int row = 0; row < 3; ++row) {
            const short* const w = weights + 4 * row;
            first_[row] = pair(w[blue_first ? 2 : 0], w[1]);
            second_[row] = pair(w[blue_first ? 0 : 2], w[3]);
        }
    }

    template <class V8>
    HWY_INLINE void apply(V8& first, V8& second, V8& third, V8 fourth) const {
        const D16 d;
        // Two pixels a lane: both values of one channel, then those of the other.
        const auto a = hn::BitCast(d, first), b = hn::BitCast(d, second);
        const auto c = hn::BitCast(d, third), e = hn::BitCast(d, fourth);
        const Pixels halves[] = {{hn::InterleaveLower(d, a, b), hn::InterleaveLower(d, c, e)},
                                 {hn::InterleaveUpper(d, a, b), hn::InterleaveUpper(d, c, e)}};
        const auto row = [&](int index)
                             HWY_ATTR { return clamped(results(index, halves[0]), results(index, halves[1])); };
        first = row(0), second = row(1), third = row(2);
    }

  private:
#if HWY_TARGET == HWY_AVX2  // one instruction instead of two
    static HWY_INLINE V16 even_by_16(V16 v) {
        return V16{_mm256_maddubs_epi16(v.raw, _mm256_set1_epi16(16))};
    }
    static HWY_INLINE V16 odd_by_16(V16 v) {
        return V16{_mm256_maddubs_epi16(v.raw, _mm256_set1_epi16(16 << 8))};
    }
#else
    static HWY_INLINE V16 even_by_16(V16 v) {
        return hn::And(hn::ShiftLeft<4>(v), hn::Set(D16(), 255 << 4));
    }
    static HWY_INLINE V16 odd_by_16(V16 v) {
        return hn::And(hn::ShiftRight<4>(v), hn::Set(D16(), 255 << 4));
    }
#endif

    struct Pixels {
        HWY_INLINE Pixels(V16 pairs_1, V16 pairs_2)
            : even{even_by_16(pairs_1), even_by_16(pairs_2)}, odd{odd_by_16(pairs_1), odd_by_16(pairs_2)} {}
        V16 even[2], odd[2];
    };
    HWY_INLINE V32 sum(int row, const V16 (&values)[2]) const {
        return hn::Add(dot(values[0], first_[row]), dot(values[1], second_[row]));
    }
    HWY_INLINE V16 results(int row, const Pixels& pixels) const {
        const auto of_even = hn::ShiftRight<16>(hn::BitCast(hn::RebindToUnsigned<D32>(), sum(row, pixels.even)));
        return hn::OddEven(hn::BitCast(D16(), sum(row, pixels.odd)), hn::BitCast(D16(), of_even));
    }

    V16 first_[3], second_[3];
};

/// Words less 32768 are signed words, as weights are. The products of a pair fit 32 bits, unless both weights are -32768,
/// but not always their sum with the third one. Where it might not, the lower 12 bits, which are shifted out, go apart.
template <>
class Matrix<std::uint16_t> {
  public:
    HWY_INLINE Matrix(const short* weights, bool blue_first) {
        for (int row = 0; row < 3; ++row) {
            const short* const w = weights + 4 * row;
            first_[row] = pair(w[blue_first ? 2 : 0], w[1]);
            second_[row] = pair(w[blue_first ? 0 : 2], 0);
            missing_[row] = hn::Set(D32(), 8 * (w[0] + w[1] + w[2]));
            wide_ |= std::abs(w[0]) + std::abs(w[1]) + std::abs(w[2]) > 65535;
        }
    }

    template <class VU16>
    HWY_INLINE void apply(VU16& first, VU16& second, VU16& third, VU16 /*fourth*/) const {
        const D16 d;
        const D32 d32;
        const V16 sign = hn::Set(d, std::int16_t{-32768});
        const auto centred = [&](VU16 v) HWY_ATTR { return hn::Xor(hn::BitCast(d, v), sign); };
        const V16 a = centred(first), b = centred(second), c = centred(third), zero = hn::Zero(d);
        const V16 pairs_1[] = {hn::InterleaveLower(d, a, b), hn::InterleaveUpper(d, a, b)};
        const V16 pairs_2[] = {hn::InterleaveLower(d, c, zero), hn::InterleaveUpper(d, c, zero)};
        const auto row = [&](int index) HWY_ATTR {
            V32 sums[2];
            for (int i = 0; i < 2; ++i) {
                const V32 sum_1 = dot(pairs_1[i], first_[index]), sum_2 = dot(pairs_2[i], second_[index]);
                if (HWY_LIKELY(!wide_)) {
                    sums[i] = hn::ShiftRight<12>(hn::Add(sum_1, sum_2));
                } else {
                    const V32 rest = hn::ShiftRight<12>(hn::Add(sum_2, hn::And(sum_1, hn::Set(d32, 4095))));
                    sums[i] = hn::Add(hn::ShiftRight<12>(sum_1), rest);
                }
                sums[i] = hn::Add(sums[i], missing_[index]);
            }
            return clamped(sums[0], sums[1]);
        };
        first = row(0), second = row(1), third = row(2);
    }

  private:
    V16 first_[3], second_[3];
    V32 missing_[3];  // the share of the 32768 that values lack
    bool wide_ = false;
};

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
