// SPDX-License-Identifier: Apache-2.0
// Reading a raw frame: depth, byte order and look-up table, decided once a frame and not once a sample.
//
// A reader knows how many bytes a sample has (`step`) and turns a pointer to one into the value to store. It
// is given to the row loops as a type, so that none of them asks what the frame is like.
#pragma once

#include <cstdint>

namespace tovix::color {

/// A frame of one byte a sample, and its table: 256 bytes, or null.
struct ByteFrame {
    const std::uint8_t* samples;
    const std::uint8_t* table;
};

/// A frame of one word a sample, and its table: 65536 words, or null. The table is made for the byte order of
/// the frame: its index is the word as it stands in memory, least significant byte first.
struct WordFrame {
    const std::uint16_t* samples;
    bool msb_first;
    const std::uint16_t* table;
    const std::uint8_t* table_top_bytes = nullptr;  // of the same entries, if kept: half of the memory to look into
};

/// The most significant byte of each sample. The frame pointer is aimed at that of the first one, so that a
/// frame of words is one of bytes with a gap after each.
template <int kStep>
struct TopBytes {
    using Value = std::uint8_t;
    static constexpr int step = kStep;
    const std::uint8_t* frame;
    Value operator()(const std::uint8_t* sample) const { return *sample; }

    /// The frame that it reads. One of words begins with a most significant byte, and may end with one.
    auto whole() const {
        if constexpr (kStep == 1)
            return ByteFrame{frame, nullptr};
        else
            return WordFrame{reinterpret_cast<const std::uint16_t*>(frame), true, nullptr};
    }
};

struct TabledBytes {
    using Value = std::uint8_t;
    static constexpr int step = 1;
    const std::uint8_t* frame;
    const std::uint8_t* table;
    Value operator()(const std::uint8_t* sample) const { return table[*sample]; }
};

/// Whole words, most significant byte at offset kTop.
template <int kTop>
struct Words {
    using Value = std::uint16_t;
    static constexpr int step = 2;
    const std::uint8_t* frame;
    Value operator()(const std::uint8_t* sample) const {
        return static_cast<Value>(sample[kTop] << 8 | sample[1 - kTop]);
    }
};

/// Words through a table, or the most significant byte of what the table says.
template <class Output>
struct TabledWords {
    using Value = Output;
    static constexpr int step = 2;
    const std::uint8_t* frame;
    const std::uint16_t* table;
    Value operator()(const std::uint8_t* sample) const {
        return static_cast<Value>(table[Words<1>{}(sample)] >> (16 - 8 * sizeof(Value)));
    }
};

/// Calls `use` with the reader of the frame's samples as values of the channel type.
template <class Channel>
void with_reader(const ByteFrame& frame, const auto& use) {
    static_assert(sizeof(Channel) == 1, "bytes make no 48-bit image");
    frame.table ? use(TabledBytes{frame.samples, frame.table}) : use(TopBytes<1>{frame.samples});
}

template <class Channel>
void with_reader(const WordFrame& frame, const auto& use) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(frame.samples);
    if (frame.table) {
        use(TabledWords<Channel>{bytes, frame.table});
    } else if constexpr (sizeof(Channel) == 1) {
        use(TopBytes<2>{bytes + (frame.msb_first ? 0 : 1)});
    } else {
        frame.msb_first ? use(Words<0>{bytes}) : use(Words<1>{bytes});
    }
}

}  // namespace tovix::color
