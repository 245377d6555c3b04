// SPDX-License-Identifier: Apache-2.0
// What failure reports of several modules share.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tovixapi/tovixapi.h"

/// Text of the current system error. Ask before anything is given back, which may change errno.
inline const char* error_text() {
    return std::strerror(errno);
}

/// True, with a report, when there is no camera.
inline bool refuse_null(const _tovix* camera) {
    if (camera == nullptr) std::fprintf(stderr, "error: camera reference cannot be NULL\n");
    return camera == nullptr;
}

/// A register as reports name it. Address and name are one, so that they cannot part.
struct Register {
    std::uint32_t address;
    const char* name;
};

constexpr Register kFanRegister{TOVIX_FAN, "TOVIX_FAN"};
constexpr Register kFoMaxSize{TOVIX_FO_MAX_SIZE, "TOVIX_FO_MAX_SIZE"};
constexpr Register kFoUnitSize{TOVIX_FO_UNIT_SIZE, "TOVIX_FO_UNIT_SIZE"};
constexpr Register kFoPosition{TOVIX_FO_POSITION, "TOVIX_FO_POSITION"};
constexpr Register kFoSize{TOVIX_FO_SIZE, "TOVIX_FO_SIZE"};
constexpr Register kFoColorId{TOVIX_FO_COLOR_ID, "TOVIX_FO_COLOR_ID"};
constexpr Register kFoColorInq{TOVIX_FO_COLOR_INQ, "TOVIX_FO_COLOR_INQ"};
constexpr Register kFoSubsampling{TOVIX_FO_SUBSAMPLING, "TOVIX_FO_SUBSAMPLING"};
constexpr Register kFoSubsamplingInq{TOVIX_FO_SUBSAMPLING_INQ, "TOVIX_FO_SUBSAMPLING_INQ"};
constexpr Register kFoKpsMinmaxInq{TOVIX_FO_KPS_MINMAX_INQ, "TOVIX_FO_KPS_MINMAX_INQ"};
constexpr Register kFoKps{TOVIX_FO_KPS, "TOVIX_FO_KPS"};
constexpr Register kFoKpsArrayCnt{TOVIX_FO_KPS_ARRAY_CNT, "TOVIX_FO_KPS_ARRAY_CNT"};
constexpr Register kFoKpsArray{TOVIX_FO_KPS_ARRAY, "TOVIX_FO_KPS_ARRAY"};

/// Report a register that could not be read or written; gives back the result it was given.
inline std::int32_t unreadable(const Register& reg, std::int32_t result) {
    std::fprintf(stderr, "error: unable to read param '%s'\n", reg.name);
    return result;
}
inline std::int32_t unwritable(const Register& reg, std::int32_t result) {
    std::fprintf(stderr, "error: unable to write param '%s'\n", reg.name);
    return result;
}
