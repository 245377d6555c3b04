// SPDX-License-Identifier: Apache-2.0
// What is done to one row of a picture at a time, with vectors.
//
// Rows in work hold one sample a column. They are readable kRowMargin samples before their first and after their last
// column, and writable so far after the last one: functions work in whole vectors and do not ask where a row ends. What
// stands there has no meaning, but for the columns right beside the row, which rules look at.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tovix::color {

constexpr std::size_t kRowMargin = 128;

enum class RowRule { kGrey, kNearest, kQuelt, kEdgeDirected, kEdgeDirectedRim, kZurno };
constexpr int kRowRules = 6;

/// Rows at the same column. Only those that a rule reads need to be there.
template <class T>
struct RowWindow {
    const T* rows[5];  // from two above to two below

    const T* operator[](int dy) const { return rows[dy + 2]; }
};

/// What is to be made of one row. The first and the last pixel come out as if the row went on: who knows better puts them
/// right afterwards.
template <class T>
struct RowJob {
    RowWindow<T> raw;
    RowWindow<T> green{};  // for Zurno: with the greens that were missing
    std::size_t width;
    bool red_row;
    bool green_first;          // column 0 is a green site
    std::ptrdiff_t left = -1;  // 1 where rules are to take the right neighbour for the left one

    // From samples to pixels: which colours are missing is known of every site, so every pixel comes out whole.
    T* image = nullptr;     // exactly `width` pixels are written. Zurno begins at the first site that lacks green
    bool mirrored = false;  // column 0 is stored last
    const short* weights = nullptr;  // of the colour matrix, 3 rows of 4, 4096 = 1.0; for functions with a matrix

    // The frame's row that will be wanted next: it is fetched meanwhile.
    const std::uint8_t* next_samples;
    std::size_t sample_bytes = 1;
};

template <class T>
struct RowFunctions {
    using Make = void (*)(const RowJob<T>& job);
    /// By rule, fourth channel (which is weighted but not written), and matrix.
    Make make[kRowRules][2][2];
    /// Fill in the missing greens of the row in the middle.
    using FillGreens = void (*)(T* out, const RowJob<T>& job);
    FillGreens zurno_green, edge_green, edge_green_rim;
};

/// From the samples of a frame to a row.
struct FetchFunctions {
    /// Through a table of 256 bytes.
    void (*bytes_by_table)(std::uint8_t* row, const std::uint8_t* samples, std::size_t count,
                           const std::uint8_t* table);
    /// The most significant byte of each word.
    void (*top_bytes)(std::uint8_t* row, const std::uint8_t* samples, std::size_t count, bool msb_first);
    void (*words)(std::uint16_t* row, const std::uint8_t* samples, std::size_t count, bool msb_first);
};

/// All of them, made for one kind of processor.
struct RowFunctionSet {
    RowFunctions<std::uint8_t> bytes;
    RowFunctions<std::uint16_t> words;
    FetchFunctions fetch;
};

/// The fastest for this processor; null where only the plain form is of use.
const RowFunctionSet* row_functions();

}  // namespace tovix::color
