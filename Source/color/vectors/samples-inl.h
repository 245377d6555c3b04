// SPDX-License-Identifier: Apache-2.0
// Vectors of samples. Included once for each kind of processor, so without a guard.
//
// Two neighbouring samples share a lane of the tag Wide<D>, which is signed: the even one in its lower half.

HWY_BEFORE_NAMESPACE();
namespace tovix::color::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

template <class T>
using Tag = hn::ScalableTag<T>;
template <class D>
using Vec = hn::Vec<D>;
template <class D>
using Wide = hn::Repartition<hwy::MakeSigned<hwy::MakeWide<hn::TFromD<D>>>, D>;

template <class D>
constexpr int kBits = sizeof(hn::TFromD<D>) * 8;
template <class D>
constexpr auto kLargest = static_cast<hn::TFromD<Wide<D>>>((hn::TFromD<Wide<D>>{1} << kBits<D>)-1);

template <class D, class V>
HWY_INLINE auto even(D, V v) {
    const Wide<D> wide;
    return hn::And(hn::BitCast(wide, v), hn::Set(wide, kLargest<D>));
}
template <class D, class V>
HWY_INLINE auto odd(D, V v) {
    const Wide<D> wide;
    return hn::BitCast(wide, hn::ShiftRight<kBits<D>>(hn::BitCast(hn::RebindToUnsigned<Wide<D>>(), v)));
}
/// Signed lanes of twice the width, clamped to samples. The samples of each block of 16 bytes are half of `low`, then half
/// of `high`.
template <class V>
HWY_INLINE auto clamped(V low, V high) {
#if HWY_TARGET == HWY_AVX2
    if constexpr (sizeof(hn::TFromV<V>) == 2)
        return Vec<Tag<std::uint8_t>>{_mm256_packus_epi16(low.raw, high.raw)};
    else
        return Vec<Tag<std::uint16_t>>{_mm256_packus_epi32(low.raw, high.raw)};
#else
    using T = hwy::MakeUnsigned<hwy::MakeNarrow<hn::TFromV<V>>>;
    const hn::Half<Tag<T>> half;
    return hn::Combine(Tag<T>(), hn::DemoteTo(half, high), hn::DemoteTo(half, low));
#endif
}

/// Moves bytes about in each block of 16.
template <class V>
HWY_INLINE V moved(V v, const std::uint8_t (&order)[16]) {
    return hn::TableLookupBytes(v, hn::BitCast(hn::DFromV<V>(), hn::LoadDup128(Tag<std::uint8_t>(), order)));
}

/// Both in one vector again, clamped to samples.
template <class D, class V>
HWY_INLINE auto joined(D, V even_ones, V odd_ones) {
    static constexpr struct Order {
        alignas(16) std::uint8_t bytes[16];
        constexpr Order() : bytes{} {
            constexpr std::size_t kSize = sizeof(hn::TFromD<D>);
            for (std::size_t byte = 0; byte < 16; ++byte)
                bytes[byte] = static_cast<std::uint8_t>(byte / kSize % 2 * 8 + byte / kSize / 2 * kSize + byte % kSize);
        }
    } kOrder{};
    return moved(clamped(even_ones, odd_ones), kOrder.bytes);
}

/// Memory is fetched while vectors are in work: only so are both busy at once. It may lie beyond an object's end, where no
/// pointer may point: nothing is read there.
template <class T>
HWY_INLINE void prefetch(const T* memory, std::size_t ahead, std::size_t count) {
    constexpr std::size_t kLine = 64;
    const std::uintptr_t begin = reinterpret_cast<std::uintptr_t>(memory) + ahead * sizeof(T);
    for (std::size_t i = 0; i < count * sizeof(T); i += kLine)
        hwy::Prefetch(reinterpret_cast<const T*>(begin + i));
}

/// All bits set in the lanes of even columns, or of odd ones.
template <class D>
HWY_INLINE Vec<D> every_other(D d, bool even_ones) {
    const auto low = hn::Set(Wide<D>(), kLargest<D>);
    return hn::BitCast(d, even_ones ? low : hn::Not(low));
}

/// What the average of two loses when it is rounded down; the instruction rounds up.
template <class D, class V>
HWY_INLINE V lost(D d, V a, V b) {
    return hn::And(hn::Xor(a, b), hn::Set(d, 1));
}
template <class D, class V>
HWY_INLINE V average(D d, V a, V b) {
    return hn::Sub(hn::AverageRound(a, b), lost(d, a, b));
}
/// The average of four, rounded down, given those of two pairs and what both of these have lost.
template <class D, class V>
HWY_INLINE V average_of(D d, V average_1, V average_2, V both_lost) {
    return hn::Sub(hn::AverageRound(average_1, average_2), hn::AndNot(both_lost, lost(d, average_1, average_2)));
}
template <class V>
HWY_INLINE V difference(V a, V b) {
    return hn::Or(hn::SaturatedSub(a, b), hn::SaturatedSub(b, a));
}

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
