// SPDX-License-Identifier: Apache-2.0
#include "model_matrices.h"

#include <span>
#include <string_view>

#include "failure.h"

namespace {

constexpr std::uint32_t kMatrixTag = 1;
constexpr std::size_t kHeadBytes = 8;    // of a record: tag and length
constexpr std::size_t kEntryBytes = 20;  // of a matrix: its number and nine coefficients, two bytes each

using Bytes = std::span<const std::uint8_t>;

std::uint16_t u16_at(Bytes bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

std::uint32_t u32_at(Bytes bytes, std::size_t at) {
    return u16_at(bytes, at) | std::uint32_t{u16_at(bytes, at + 2)} << 16;
}

/// The entries of the model's record of matrices; nothing where it has none.
Bytes matrix_entries(const camera_id& model) {
    Bytes rest(model.model_data, model.model_data_size);
    while (rest.size() >= kHeadBytes) {
        const std::uint32_t tag = u32_at(rest, 0), length = u32_at(rest, 4);
        rest = rest.subspan(kHeadBytes);
        if (tag == 0 || length > rest.size()) break;
        if (tag == kMatrixTag) return rest.first(length);
        rest = rest.subspan(length);
    }
    return {};
}

std::span<const camera_id> models() {
    return {camera_ids, static_cast<std::size_t>(camera_id_count)};
}

/// A model's files stand in a directory of its name.
std::string_view name_of(const camera_id& model) {
    const std::string_view file = model.firmware_file;
    return file.substr(0, file.find('/'));
}

}  // namespace

const camera_id& model_named(const std::string& name) {
    std::string known;
    std::string_view last;
    for (const camera_id& model : models()) {
        const std::string_view other = name_of(model);
        if (other == name) return model;
        if (other != last) known.append(" ").append(other);  // rows of one model stand together
        last = other;
    }
    throw Failure("there is no model '" + printable(name) + "'; choose from:" + known);
}

const camera_id& model_of_product(std::uint16_t product_id) {
    constexpr std::uint16_t kAnyRelease = 0xFFFF;
    const camera_id* const model = tz_camera_find(product_id, kAnyRelease);
    if (model == nullptr)
        throw Failure(text("no camera has product ID 0x%04X; name the model with --model", unsigned{product_id}));
    return *model;
}

void specify_matrices(CVorm& vorm, const camera_id& model) {
    const Bytes entries = matrix_entries(model);
    for (std::size_t at = 0; at + kEntryBytes <= entries.size(); at += kEntryBytes) {
        short coefficients[9];
        for (std::size_t i = 0; i < 9; ++i)
            coefficients[i] = static_cast<short>(u16_at(entries, at + 2 + 2 * i));
        const int result = vorm.SpecifyMatrix(u16_at(entries, at), coefficients);
        if (result == TOVIX_ENOMEM) throw Failure("cannot prepare the colour matrices: " + result_text(result));
        if (result != TOVIX_OK) return;
    }
}
