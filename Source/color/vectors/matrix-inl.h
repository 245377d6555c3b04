// SPDX-License-Identifier: Apache-2.0
// The colour matrix, for a vector of pixels. Included once for each kind of processor, so without a guard.
//
// It is exact for all weights of bytes, and of words for all but -32768. Sums of bytes fit 32 bits.

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

class Matrix {
  public:
    /// `blue_first`: values come as blue, green, red. They leave as red, green, blue.
    HWY_INLINE Matrix(const short* weights, bool blue_first) {
        for (int row = 0; row < 3; ++row) {
            const short* const w = weights + 4 * row;
            first_[row] = pair(w[blue_first ? 2 : 0], w[1]);
            second_[row] = pair(w[blue_first ? 0 : 2], w[3]);
            offset_[row] = hn::Set(D32(), 8 * (w[0] + w[1] + w[2]) - 32768);
        }
    }

    template <class V8>
    HWY_INLINE void bytes(V8& first, V8& second, V8& third, V8 fourth) const {
        const Tag<std::uint8_t> d8;
        const V8 pairs_1[] = {hn::InterleaveLower(d8, first, second), hn::InterleaveUpper(d8, first, second)};
        const V8 pairs_2[] = {hn::InterleaveLower(d8, third, fourth), hn::InterleaveUpper(d8, third, fourth)};
        V16 pairs[4][2];
        for (int i = 0; i < 4; ++i) {
            pairs[i][0] = widened(pairs_1[i / 2], i % 2);
            pairs[i][1] = widened(pairs_2[i / 2], i % 2);
        }
        const auto row = [&](int index) HWY_ATTR {
            V32 sums[4];
            for (int i = 0; i < 4; ++i)
                sums[i] = hn::ShiftRight<12>(sum(index, pairs[i][0], pairs[i][1]));
            return clamped(hn::ReorderDemote2To(D16(), sums[0], sums[1]),
                           hn::ReorderDemote2To(D16(), sums[2], sums[3]));
        };
        first = row(0), second = row(1), third = row(2);
    }

    /// Words less 32768 are signed words, as weights are: the products of a pair fit 32 bits, unless both weights are
    /// -32768, but not their sum with the third product. There the lower 12 bits, which are shifted out, go apart.
    template <class VU16>
    HWY_INLINE void words(VU16& first, VU16& second, VU16& third) const {
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
                const V32 rest = hn::ShiftRight<12>(hn::Add(sum_2, hn::And(sum_1, hn::Set(d32, 4095))));
                sums[i] = hn::Add(hn::Add(hn::ShiftRight<12>(sum_1), rest), offset_[index]);
            }
            // Signed words saturate where unsigned ones do once all is moved down by half of their range.
            return hn::BitCast(Tag<std::uint16_t>(), hn::Xor(hn::ReorderDemote2To(d, sums[0], sums[1]), sign));
        };
        first = row(0), second = row(1), third = row(2);
    }

  private:
    static HWY_INLINE V16 pair(short low, short high) {
        const auto both =
            static_cast<std::uint32_t>(static_cast<std::uint16_t>(high)) << 16 | static_cast<std::uint16_t>(low);
        return hn::BitCast(D16(), hn::Set(D32(), static_cast<std::int32_t>(both)));
    }
    template <class V8>
    static HWY_INLINE V16 widened(V8 v, bool upper) {
        const Tag<std::uint8_t> d8;
        const V8 zero = hn::Zero(d8);
        return hn::BitCast(D16(), upper ? hn::InterleaveUpper(d8, v, zero) : hn::InterleaveLower(d8, v, zero));
    }
    HWY_INLINE V32 sum(int row, V16 values_1, V16 values_2) const {
        return hn::Add(dot(values_1, first_[row]), dot(values_2, second_[row]));
    }

    V16 first_[3], second_[3];
    V32 offset_[3];  // for words: the share of the 32768 that they lack, less the 32768 that are put back at the end
};

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
