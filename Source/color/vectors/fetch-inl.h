// SPDX-License-Identifier: Apache-2.0
// From the samples of a frame to a row in work. Included once for each kind of processor, so without a guard.

HWY_BEFORE_NAMESPACE();
namespace tovix::color::HWY_NAMESPACE {
namespace {

template <class V>
HWY_INLINE V exchanged_bytes(V words) {
    return hn::Or(hn::ShiftLeft<8>(words), hn::ShiftRight<8>(words));
}

/// The lower four bits, and the sign: all that a shuffle looks at. (Where it looks at more, it has to be taken away.)
template <class V>
HWY_INLINE V index_in_part(V v) {
#if HWY_ARCH_X86
    return v;
#else
    return hn::And(v, hn::Set(Tag<std::uint8_t>(), 0x8F));
#endif
}

/// A shuffle looks up 16 entries. Each part of the table holds the difference to the part before; an index that is below
/// a part adds 0 there, so that all parts up to the right one add up to its entry.
void fetch_by_table(std::uint8_t* row, const std::uint8_t* samples, std::size_t count, const std::uint8_t* table) {
    const Tag<std::uint8_t> d;
    const hn::RebindToSigned<Tag<std::uint8_t>> ds;
    constexpr int kPart = 16, kParts = 8;  // of either half
    Vec<Tag<std::uint8_t>> parts[2][kParts];
    for (int half = 0; half < 2; ++half) {
        for (int part = 0; part < kParts; ++part) {
            const std::uint8_t* const entries = table + 128 * half + kPart * part;
            const auto own = hn::LoadDup128(d, entries);
            parts[half][part] = part == 0 ? own : hn::Xor(own, hn::LoadDup128(d, entries - kPart));
        }
    }
    const auto look_up = [&](std::size_t x) HWY_ATTR {
        const auto index = hn::LoadU(d, samples + x);
        auto result = hn::Zero(d);
        for (int half = 0; half < 2; ++half) {
            // In the wrong half an index is negative, and stays so: it adds 0.
            auto at = hn::BitCast(ds, half == 0 ? index : hn::Xor(index, hn::Set(d, 128)));
            for (int part = 0; part < kParts; ++part) {
                result = hn::Xor(result, hn::TableLookupBytesOr0(parts[half][part], index_in_part(hn::BitCast(d, at))));
                at = hn::SaturatedSub(at, hn::Set(ds, kPart));
            }
        }
        hn::StoreU(result, d, row + x);
    };
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= count; x += hn::Lanes(d))
        look_up(x);
    for (; x < count; ++x)
        row[x] = table[samples[x]];
}

/// Words of the frame, which may stand at an odd address, as the machine reads them.
HWY_INLINE auto load_words(const std::uint8_t* samples) {
    const Tag<std::uint16_t> d;
    return hn::BitCast(d, hn::LoadU(hn::Repartition<std::uint8_t, Tag<std::uint16_t>>(), samples));
}

void fetch_top_bytes(std::uint8_t* row, const std::uint8_t* samples, std::size_t count, bool msb_first) {
    const Tag<std::uint16_t> d;
    const hn::Rebind<std::uint8_t, Tag<std::uint16_t>> half;
    std::size_t x = 0;
    // The frame may end right after the last top byte: no vector reads that far.
    for (; x + hn::Lanes(d) < count; x += hn::Lanes(d)) {
        const auto words = load_words(samples + 2 * x);
        const auto top = msb_first ? hn::And(words, hn::Set(d, 255)) : hn::ShiftRight<8>(words);
        hn::StoreU(hn::DemoteTo(half, hn::BitCast(D16(), top)), half, row + x);
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
