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
    const V r = moved(red, kSpread.order[0]), g = moved(green, kSpread.order[1]), b = moved(blue, kSpread.order[2]);
    const auto constant = [&](const std::uint8_t(&values)[16])
                              HWY_ATTR { return hn::BitCast(d, hn::LoadDup128(Tag<std::uint8_t>(), values)); };
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

/// Pixels of four bytes, the fourth of which stays as it stands there.
template <class V>
HWY_INLINE void store4(std::uint8_t* image, V red, V green, V blue) {
    const Tag<std::uint8_t> d;
    const hn::Repartition<std::uint16_t, Tag<std::uint8_t>> pairs;
    const auto keep = hn::BitCast(d, hn::Set(hn::Repartition<std::uint32_t, Tag<std::uint8_t>>(), 0xFF000000U));
    constexpr std::size_t kLanes = hn::MaxLanes(d);
    V pixels[4];
    for (int upper = 0; upper < 2; ++upper) {
        const auto interleaved = [&](V a, V b) HWY_ATTR {
            return upper ? hn::InterleaveUpper(d, a, b) : hn::InterleaveLower(d, a, b);
        };
        const auto red_green = hn::BitCast(pairs, interleaved(red, green));
        const auto blue_none = hn::BitCast(pairs, interleaved(blue, hn::Zero(d)));
        pixels[2 * upper] = hn::BitCast(d, hn::InterleaveLower(pairs, red_green, blue_none));
        pixels[2 * upper + 1] = hn::BitCast(d, hn::InterleaveUpper(pairs, red_green, blue_none));
    }
    if constexpr (kLanes == 32) {  // each holds pixels of the first and of the second half
        const V third = hn::ConcatUpperUpper(d, pixels[1], pixels[0]);
        pixels[0] = hn::ConcatLowerLower(d, pixels[1], pixels[0]);
        pixels[1] = hn::ConcatLowerLower(d, pixels[3], pixels[2]);
        pixels[3] = hn::ConcatUpperUpper(d, pixels[3], pixels[2]);
        pixels[2] = third;
    }
    for (std::size_t i = 0; i < 4; ++i)
        hn::StoreU(hn::IfVecThenElse(keep, hn::LoadU(d, image + i * kLanes), pixels[i]), d, image + i * kLanes);
}

/// The last sample becomes the first one.
template <class T, class V>
HWY_INLINE V reversed(V v) {
    const Tag<T> d;
    constexpr std::size_t kBlock = 16 / sizeof(T);
    static constexpr struct Order {
        alignas(16) std::uint8_t bytes[16];
        constexpr Order() : bytes{} {
            for (std::size_t byte = 0; byte < 16; ++byte)
                bytes[byte] = static_cast<std::uint8_t>((kBlock - 1 - byte / sizeof(T)) * sizeof(T) + byte % sizeof(T));
        }
    } kOrder{};
    v = moved(v, kOrder.bytes);
    if constexpr (hn::MaxLanes(d) > kBlock) v = hn::ConcatLowerUpper(d, v, v);
    return v;
}

/// Correct and store a vector of pixels: red, green, blue, or what the matrix makes these of. The fourth channel is
/// weighted, but stays as it stands there.
template <int kChannels, bool kMatrix, class T, class V>
HWY_INLINE void store(T* image, bool mirrored, V red, V green, V blue, const Matrix<T>& matrix) {
    const Tag<T> d;
    if (mirrored) red = reversed<T>(red), green = reversed<T>(green), blue = reversed<T>(blue);
    if constexpr (kMatrix) {
        V fourth = hn::Zero(d);
        if constexpr (kChannels == 4) {
            V unused[3];
            hn::LoadInterleaved4(d, image, unused[0], unused[1], unused[2], fourth);
        }
        matrix.apply(red, green, blue, fourth);
    }
    if constexpr (kChannels == 4)
        store4(image, red, green, blue);
    else
        store3(image, red, green, blue);
}

template <class T, class Rule, int kChannels, bool kMatrix, bool kRowColourFirst>
HWY_INLINE void make_row(const RowJob<T>& job) {
    static constexpr short kNoWeights[12]{};
    constexpr std::size_t kLanes = hn::MaxLanes(Tag<T>());
    static_assert(kRowMargin > 2 * kLanes, "colours are made one vector beyond the last");
    // Whatever the order of columns, the row is stored from its beginning on, and rows follow one another: processors foresee
    // that, but not as far as it takes.
    constexpr std::size_t kAhead = 3072 / sizeof(T);
    const Matrix<T> matrix(kMatrix ? job.weights : kNoWeights, !job.red_row);
    Around<T> at(job);
    const auto colours_at = [&at](std::size_t x) HWY_ATTR {
        at.go_to(x);
        return Rule::colours(at);
    };
    const std::size_t width = job.width;
    const std::size_t first = Rule::first_column(job.green_first);
    const std::size_t last = first + (width - 1 - first) / kLanes * kLanes;
    const bool mirrored = job.mirrored;
    const std::size_t step = mirrored ? std::size_t{0} - kLanes : kLanes;
    const std::size_t end = (mirrored ? first : last) + step;
    std::size_t x = mirrored ? last : first;
    T* pixels = job.image + (mirrored ? 0 : first * kChannels);
    const std::uint8_t* const next_samples = job.next_samples;
    const std::size_t bytes_a_vector = kLanes * job.sample_bytes;  // a line at the most
    std::size_t bytes_fetched = 0;

    // Before a matrix, colours are made one vector ahead: while sums wait for each other, the processor has loads to begin.
    Colours<T> ahead = colours_at(x);
    while (x != end) {
        const Colours<T> c = kMatrix ? ahead : colours_at(x);
        const std::size_t count = HWY_LIKELY(x + kLanes <= width) ? kLanes : width - x;
        x += step;
        if (kMatrix) ahead = colours_at(x);
        prefetch(pixels, kAhead, kChannels * kLanes);
        prefetch(next_samples, bytes_fetched, 1);
        bytes_fetched += bytes_a_vector;
        T whole[kChannels * kLanes];  // of what is not set nothing gets into the image
        T* const part = whole + (mirrored ? kLanes - count : 0) * kChannels;
        const bool cut = HWY_UNLIKELY(count < kLanes);  // not beyond the row
        if (cut) std::memcpy(part, pixels, count * kChannels * sizeof(T));
        store<kChannels, kMatrix>(cut ? whole : pixels, mirrored, kRowColourFirst ? c.row : c.cross, c.green,
                                  kRowColourFirst ? c.cross : c.row, matrix);
        if (cut) std::memcpy(pixels, part, count * kChannels * sizeof(T));
        pixels += count * kChannels;
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
