// SPDX-License-Identifier: Apache-2.0
// The look-up tables of a conversion object.
//
// lut_size tells what the block at `lut` holds: 0 nothing in force, 256 a table, 280 a table and the curve
// that it is made of. The block stays once it is there.
#include <algorithm>
#include <cstring>
#include <new>

#include "tovixapi/tovixapi.h"
#include "tovixapi/vorm.h"

namespace {

constexpr unsigned kAllChannels = 15;
constexpr unsigned kTableBytes = sizeof(_lut8_struct::table);
constexpr unsigned kBlockBytes = sizeof(_lut8_struct);
constexpr int kSizeOnly = 84;  // GetLUT has answered how large the table is
constexpr unsigned kLut16Entries = 65536;

constexpr _lut8_struct kNeutral{.table = {}, .gamma = 100, .contrast = 100, .brightness = 0};
using CurveField = int64_t _lut8_struct::*;

bool holds_curve(const _vorm_settings& settings) {
    return settings.lut != nullptr && settings.lut_size >= kBlockBytes;
}

int get_curve(const _vorm_settings& settings, CurveField field, int* out) {
    if (out == nullptr) return TOVIX_EINVAL;
    *out = static_cast<int>((holds_curve(settings) ? *settings.lut : kNeutral).*field);
    return TOVIX_OK;
}

[[nodiscard]] bool ensure_block(_vorm_settings& settings) {
    if (settings.lut == nullptr) settings.lut = new (std::nothrow) _lut8_struct(kNeutral);
    return settings.lut != nullptr;
}

int set_curve(_vorm_settings& settings, CurveField field, int value, unsigned channel) {
    if (channel != kAllChannels) return TOVIX_ENOTSUP;
    if (!ensure_block(settings)) return TOVIX_ENOMEM;
    if (!holds_curve(settings)) *settings.lut = kNeutral;
    settings.lut->*field = value;
    settings.lut_size = kBlockBytes;
    MakeLut8(settings.lut);
    return TOVIX_OK;
}

}  // namespace

int CVorm::GetGamma(int* gamma, unsigned int) {
    return get_curve(settings, &_lut8_struct::gamma, gamma);
}

int CVorm::GetContrast(int* contrast, unsigned int) {
    return get_curve(settings, &_lut8_struct::contrast, contrast);
}

int CVorm::GetBrightness(int* brightness, unsigned int) {
    return get_curve(settings, &_lut8_struct::brightness, brightness);
}

int CVorm::SetGamma(int gamma, unsigned int channel) {
    return set_curve(settings, &_lut8_struct::gamma, gamma, channel);
}

int CVorm::SetContrast(int contrast, unsigned int channel) {
    return set_curve(settings, &_lut8_struct::contrast, contrast, channel);
}

int CVorm::SetBrightness(int brightness, unsigned int channel) {
    return set_curve(settings, &_lut8_struct::brightness, brightness, channel);
}

int CVorm::SetupLUT(unsigned char const* data, unsigned int size, unsigned int channel) {
    if (channel != kAllChannels) return TOVIX_ENOTSUP;
    size = std::min(size, kBlockBytes);
    if (size == 0) {
        settings.lut_size = 0;
        return TOVIX_OK;
    }
    if ((size != kTableBytes && size != kBlockBytes) || data == nullptr) return TOVIX_EINVAL;
    if (!ensure_block(settings)) return TOVIX_ENOMEM;
    std::memmove(settings.lut, data, size);  // the data may be the block itself
    settings.lut_size = size;
    return TOVIX_OK;
}

int CVorm::GetLUT(unsigned char* out, unsigned int* size, unsigned int) {
    if (size == nullptr) return TOVIX_EINVAL;
    const auto in_force = static_cast<unsigned>(settings.lut_size);
    const unsigned room = *size;
    if (room != 0 && out == nullptr) return TOVIX_EINVAL;
    *size = in_force;
    if (room == 0) return kSizeOnly;
    if (in_force != 0) std::memcpy(out, settings.lut, std::min(in_force, room));
    return TOVIX_OK;
}

struct CVorm::KeptTable {
    _lut8_struct block;  // what the entries were made of: so many bytes
    unsigned block_bytes;
    bool natural_order;
    unsigned short entries[kLut16Entries];
    unsigned char top_bytes[kLut16Entries];
};

/// Null when memory ran out.
unsigned short* CVorm::table_for(_vorm_settings const& s, int natural_order) {
    const unsigned bytes = static_cast<unsigned>(std::min<uint64_t>(s.lut_size, kBlockBytes));
    const bool natural = natural_order != 0;
    if (kept_table != nullptr && kept_table->block_bytes == bytes && kept_table->natural_order == natural &&
        std::memcmp(&kept_table->block, s.lut, bytes) == 0) {
        return kept_table->entries;
    }
    if (kept_table == nullptr) kept_table = new (std::nothrow) KeptTable;
    if (kept_table == nullptr) return nullptr;
    std::memcpy(&kept_table->block, s.lut, bytes);
    kept_table->block_bytes = bytes;
    kept_table->natural_order = natural;
    MakeLut16(kept_table->entries, s.lut, static_cast<unsigned>(s.lut_size), natural_order);
    std::ranges::transform(kept_table->entries, kept_table->top_bytes,
                           [](unsigned short entry) { return static_cast<unsigned char>(entry >> 8); });
    return kept_table->entries;
}

/// Null when somebody else keeps the table.
unsigned char const* CVorm::top_bytes_of(unsigned short const* table) const {
    return kept_table != nullptr && kept_table->entries == table ? kept_table->top_bytes : nullptr;
}

void CVorm::forget_table() {
    delete kept_table;
}

int CVorm::BuildLut16WhenNotRunning(_vorm_settings* s, int natural_order) {
    if (s->lut == nullptr || s->lut_size < kTableBytes) {
        delete[] s->lut16;
        s->lut16 = nullptr;
        return 1;
    }
    if (s->lut16 == nullptr) s->lut16 = new (std::nothrow) unsigned short[kLut16Entries];
    if (s->lut16 == nullptr) return 0;
    MakeLut16(s->lut16, s->lut, static_cast<unsigned>(s->lut_size), natural_order);
    return 1;
}
