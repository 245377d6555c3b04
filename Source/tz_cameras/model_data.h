// SPDX-License-Identifier: Apache-2.0
// Builds model-data blocks at compile time: records of tag, length and value, ended by a zero tag.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

constexpr std::uint32_t kMatrixTag = 1;

struct ModelMatrix {
    std::int16_t id;
    std::int16_t coefficients[9];  // 4096 = 1.0
};

namespace model_data_detail {

struct Writer {
    std::uint8_t* at;
    constexpr void put(std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            *at++ = static_cast<std::uint8_t>(value >> (8 * i));
    }
    constexpr void put_i16(std::int16_t value) { put(static_cast<std::uint16_t>(value), 2); }
};

}  // namespace model_data_detail

/// A block with one record of matrices. All numbers are little-endian.
template <std::size_t N>
constexpr auto model_data(const ModelMatrix (&matrices)[N]) {
    constexpr std::uint32_t kEntryBytes = 20;
    std::array<std::uint8_t, 8 + N * kEntryBytes + 4> block{};
    model_data_detail::Writer writer{block.data()};
    writer.put(kMatrixTag, 4);
    writer.put(N * kEntryBytes, 4);
    for (const ModelMatrix& matrix : matrices) {
        writer.put_i16(matrix.id);
        for (const std::int16_t coefficient : matrix.coefficients)
            writer.put_i16(coefficient);
    }
    return block;  // the last four bytes are the end mark
}

/// A block that holds only the end mark.
constexpr std::array<std::uint8_t, 4> model_data() {
    return {};
}
