// SPDX-License-Identifier: Apache-2.0
// From the samples of a frame to a row in work. Included once for each kind of processor, so without a guard.

HWY_BEFORE_NAMESPACE();
namespace tovix::color::HWY_NAMESPACE {
namespace {

template <class V>
HWY_INLINE V exchanged_bytes(V words) {
    return hn::Or(hn::ShiftLeft<8>(words), hn::ShiftRight<8>(words));
}

/// A table of 256 bytes in parts of 16, as many as a shuffle looks up.
class ByteTable {
    using V8 = Vec<Tag<std::uint8_t>>;
    using Mask8 = hn::Mask<Tag<std::uint8_t>>;

  public:
    explicit HWY_INLINE ByteTable(const std::uint8_t* table) {
        for (int part = 0; part < 16; ++part)
            parts_[part] = hn::LoadDup128(Tag<std::uint8_t>(), table + 16 * part);
    }

    HWY_INLINE V8 operator()(V8 index) const {
        const Tag<std::uint8_t> d;
        const auto sign = hn::Set(d, 128);
        // Bit 4 decides between two parts: where the sign is set, a shuffle gives 0.
        const V8 in_even = hn::Or(hn::And(index, hn::Set(d, 15)), hn::And(to_sign<3>(index), sign));
        const Index at{{in_even, hn::Xor(in_even, sign)},
                       {negative(to_sign<2>(index)), negative(to_sign<1>(index)), negative(index)}};
        return entries<3>(at, 0);
    }

  private:
    struct Index {
        V8 in_part[2];
        Mask8 bits[3];  // 5 to 7
    };

    /// Below the sign, bytes have no meaning.
    template <int kBits>
    static HWY_INLINE V8 to_sign(V8 v) {
        const hn::Repartition<std::uint16_t, Tag<std::uint8_t>> words;
        return hn::BitCast(Tag<std::uint8_t>(), hn::ShiftLeft<kBits>(hn::BitCast(words, v)));
    }
    static HWY_INLINE Mask8 negative(V8 v) {
        const hn::RebindToSigned<Tag<std::uint8_t>> ds;
        return hn::RebindMask(Tag<std::uint8_t>(), hn::Lt(hn::BitCast(ds, v), hn::Zero(ds)));
    }

    /// From the 2^kBits pairs of parts from `pair` on.
    template <int kBits>
    HWY_INLINE V8 entries(const Index& at, int pair) const {
        if constexpr (kBits == 0) {
            return hn::Or(hn::TableLookupBytesOr0(parts_[2 * pair], at.in_part[0]),
                          hn::TableLookupBytesOr0(parts_[2 * pair + 1], at.in_part[1]));
        } else {
            constexpr int kHalf = 1 << (kBits - 1);
            return hn::IfThenElse(at.bits[kBits - 1], entries<kBits - 1>(at, pair + kHalf),
                                  entries<kBits - 1>(at, pair));
        }
    }

    V8 parts_[16];
};

void fetch_by_table(std::uint8_t* row, const std::uint8_t* samples, std::size_t count, const std::uint8_t* table) {
    const Tag<std::uint8_t> d;
    const ByteTable look_up(table);
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= count; x += hn::Lanes(d))
        hn::StoreU(look_up(hn::LoadU(d, samples + x)), d, row + x);
    for (; x < count; ++x)
        row[x] = table[samples[x]];
}

void fetch_top_bytes(std::uint8_t* row, const std::uint8_t* samples, std::size_t count, bool msb_first) {
    const Tag<std::uint8_t> d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t x = 0;
    // The frame may end right after the last top byte: no vector reads that far.
    for (; x + lanes < count; x += lanes) {
        const auto first = hn::LoadU(d, samples + 2 * x), second = hn::LoadU(d, samples + 2 * x + lanes);
        hn::StoreU(msb_first ? hn::ConcatEven(d, second, first) : hn::ConcatOdd(d, second, first), d, row + x);
    }
    for (; x < count; ++x)
        row[x] = samples[2 * x + !msb_first];
}

void fetch_words(std::uint16_t* row, const std::uint8_t* samples, std::size_t count, bool msb_first) {
    std::memcpy(row, samples, 2 * count);
    if (!msb_first) return;
    const Tag<std::uint16_t> d;
    for (std::size_t x = 0; x < count; x += hn::Lanes(d))
        hn::StoreU(exchanged_bytes(hn::LoadU(d, row + x)), d, row + x);
}

}  // namespace
}  // namespace tovix::color::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
