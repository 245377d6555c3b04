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
/// Both in one vector again. Each is a sample.
template <class D, class V>
HWY_INLINE auto joined(D d, V even_ones, V odd_ones) {
    return hn::BitCast(d, hn::Or(even_ones, hn::ShiftLeft<kBits<D>>(odd_ones)));
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
