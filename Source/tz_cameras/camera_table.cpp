// SPDX-License-Identifier: Apache-2.0
#include "camera_table.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

const char* RESOURCE_FILE_ROOT = nullptr;

namespace {

constexpr char kDefaultResourceRoot[] = "/Library/Frameworks/TovixSDK.framework/Resources/files";
constexpr std::size_t kMaxNameLength = 127;

/// Bare devices carry bit 15 in their product ID; the table's rows do not.
constexpr std::uint16_t kProductMask = 0x7FFF;

std::uint32_t read_u32(const std::uint8_t* bytes) {
    return bytes[0] | std::uint32_t{bytes[1]} << 8 | std::uint32_t{bytes[2]} << 16 | std::uint32_t{bytes[3]} << 24;
}

}  // namespace

const camera_id* tz_camera_find(std::uint16_t product_id, std::uint16_t release) {
    for (const camera_id& row : std::span(camera_ids, static_cast<std::size_t>(camera_id_count))) {
        if (row.product_id == (product_id & kProductMask) &&
            (release == kAnyRelease || row.release == kAnyRelease || row.release == release)) {
            return &row;
        }
    }
    return nullptr;
}

std::int32_t find_model_data(const camera_id* row, std::uint32_t tag, const void** value, std::uint32_t* length) {
    if (row == nullptr) {
        std::fprintf(stderr, "error: device info cannot be NULL\n");
        return TOVIX_EINVAL;
    }
    std::span<const std::uint8_t> rest(row->model_data, row->model_data_size);
    while (rest.size() >= 8) {
        const std::uint32_t record_tag = read_u32(rest.data());
        const std::uint32_t record_length = read_u32(rest.data() + 4);
        if (record_tag == 0 || record_length > rest.size() - 8) break;
        if (record_tag == tag) {
            *value = rest.data() + 8;
            *length = record_length;
            return TOVIX_OK;
        }
        rest = rest.subspan(8 + std::size_t{record_length});
    }
    return TOVIX_EMODEL;
}

ResourcePath resource_path(const char* file_template, std::uint16_t release) {
    // The template comes from the table, but it is not handed to printf: one stray conversion there would be a crash.
    char name[kMaxNameLength + 1];
    if (const char* const place = std::strstr(file_template, "%X"); place != nullptr) {
        const int before = static_cast<int>(place - file_template);
        std::snprintf(name, sizeof name, "%.*s%X%s", before, file_template, unsigned{release}, place + 2);
    } else {
        std::snprintf(name, sizeof name, "%s", file_template);
    }
    ResourcePath path;
    std::snprintf(path.text, sizeof path.text, "%s/%s", RESOURCE_FILE_ROOT != nullptr ? RESOURCE_FILE_ROOT : "", name);
    return path;
}

bool set_resource_root(const char* directory) noexcept {
    char* const copy = ::strdup(directory != nullptr ? directory : kDefaultResourceRoot);
    if (copy == nullptr) return false;
    std::free(const_cast<char*>(RESOURCE_FILE_ROOT));
    RESOURCE_FILE_ROOT = copy;
    return true;
}
