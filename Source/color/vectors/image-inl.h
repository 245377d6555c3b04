// SPDX-License-Identifier: Apache-2.0
// A row of pixels into the image. Included once for each kind of processor, so without a guard.

HWY_BEFORE_NAMESPACE();
namespace tovix::color::HWY_NAMESPACE {
namespace {

/// Within a block of 16 bytes, sample i of a channel goes to place 3 i of 16 (or 8 words), beginning anew at the end; that
/// is its place in whichever of the three blocks of the image it belongs to.
template <class T>
struct Spread {
    static constexpr int kSamples = 16 / sizeof(T);
    alignas(16) std::uint8_t order[3][16];   // by channel, for TableLookupBytes
    alignas(16) std::uint8_t places[3][16];  // 255 where the place, counted from 0, is n of 3

    constexpr Spread() : order{}, places{} {
        for (int i = 0; i < kSamples; ++i) {
            for (int byte = 0; byte < int{sizeof(T)}; ++byte) {
                const int size = sizeof(T);
                for (int channel = 0; channel < 3; ++channel)
                    order[channel][(3 * i + channel) % kSamples * size + byte] =
                        static_cast<std::uint8_t>(i * size + byte);
                places[i % 3][i * size + byte] = 255;
            }
        }
    }
};

/// Pixels of three channels. Fewer shuffles than hn::StoreInterleaved3.
template <class T, class V>
HWY_INLINE void store3(T* image, V red, V green, V blue) {
    static constexpr Spread<T> kSpread{};
    const Tag<T> d;
    const Tag<std::uint8_t> bytes;
    const auto constant = [&](const std::uint8_t(&values)[16])
                              HWY_ATTR { return hn::BitCast(d, hn::LoadDup128(bytes, values)); };
    const V r = hn::TableLookupBytes(red, constant(kSpread.order[0]));
    const V g = hn::TableLookupBytes(green, constant(kSpread.order[1]));
    const V b = hn::TableLookupBytes(blue, constant(kSpread.order[2]));
    const V place_1 = constant(kSpread.places[1]), place_2 = constant(kSpread.places[2]);
    const auto merged = [&](V at_0, V at_1, V at_2) HWY_ATTR {
        return hn::IfVecThenElse(place_2, at_2, hn::IfVecThenElse(place_1, at_1, at_0));
    };
    // A block ends within a pixel: 16 places are five pixels and one channel, 8 are two pixels and two.
    constexpr int kBegin = Spread<T>::kSamples % 3;
    const V first = merged(r, g, b);
    const V second = kBegin == 1 ? merged(g, b, r) : merged(b, r, g);
    const V third = kBegin == 1 ? merged(b, r, g) : merged(g, b, r);
    constexpr std::size_t kLanes = hn::MaxLanes(d);
    if constexpr (sizeof(T) * kLanes == 32) {
        hn::StoreU(hn::ConcatLowerLower(d, second, first), d, image);
        hn::StoreU(hn::ConcatUpperLower(d, first, third), d, image + kLanes);
        hn::StoreU(hn::ConcatUpperUpper(d, third, second), d, image + 2 * kLanes);
    } else {
        static_assert(sizeof(T) * kLanes == 16);
        hn::StoreU(first, d, image);
        hn::StoreU(second, d, image + kLanes);
        hn::StoreU(third, d, image + 2 * kLanes);
    }
}

/// Correct and store a vector of pixels: red, green, blue, or what the matrix makes these of. The fourth channel stays as
/// it stands there.
template <int kChannels, bool kMatrix, class T, class V>
HWY_INLINE void store(T* image, V red, V green, V blue, const Matrix& matrix) {
    const Tag<T> d;
    V fourth = hn::Zero(d);
    if constexpr (kChannels == 4) {
        V unused[3];
        hn::LoadInterleaved4(d, image, unused[0], unused[1], unused[2], fourth);
    }
    if constexpr (kMatrix) {
        if constexpr (sizeof(T) == 1)
            matrix.bytes(red, green, blue, fourth);
        else
            matrix.words(red, green, blue);
    }
    if constexpr (kChannels == 4)
        hn::StoreInterleaved4(red, green, blue, fourth, d, image);
    else
        store3(image, red, green, blue);
}

template <class T, class Rule, int kChannels, bool kMatrix, bool kRowColourFirst>
HWY_INLINE void make_row(const RowJob<T>& job) {
    static constexpr short kNoWeights[12]{};
    constexpr std::size_t kLanes = hn::MaxLanes(Tag<T>());
    const Matrix matrix(kMatrix ? job.weights : kNoWeights, !job.red_row);
    Around<T> at(job);
    for (std::size_t x = Rule::first_column(job.green_first); x < job.width; x += kLanes) {
        at.go_to(x);
        const Colours<T> c = Rule::colours(at);
        T* const pixels = job.image + x * kChannels;
        T last[kChannels * kLanes];  // stands in for what would reach beyond the row
        const bool whole = x + kLanes <= job.width;
        const std::size_t bytes = (job.width - x) * kChannels * sizeof(T);
        if (HWY_UNLIKELY(!whole)) {
            std::memset(last, 0, sizeof last);
            std::memcpy(last, pixels, bytes);
        }
        store<kChannels, kMatrix>(whole ? pixels : last, kRowColourFirst ? c.row : c.cross, c.green,
                                  kRowColourFirst ? c.cross : c.row, matrix);
        if (HWY_UNLIKELY(!whole)) std::memcpy(pixels, last, bytes);
    }
}

/// The matrix takes colours in any order; without one, they come in that of the pixel.
template <class T, class Rule, int kChannels, bool kMatrix>
void make(const RowJob<T>& job) {
    kMatrix || job.red_row ? make_row<T, Rule, kChannels, kMatrix, true>(job)
                           : make_row<T, Rule, kChannels, kMatrix, kMatrix>(job);
}

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
