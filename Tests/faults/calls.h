// SPDX-License-Identifier: Apache-2.0
// The calls of the public interface with the failures that its header documents for each.
#pragma once

#include <cstdint>

#include "tovixapi/tovixapi.h"

namespace tovix::faults {

/// Failures by which a call may answer, as bits.
enum Failures : unsigned {
    kNever = 0,
    kEfail = 1 << 0,
    kEsearch = 1 << 1,
    kEadjust = 1 << 2,
    kEnomem = 1 << 3,
    kEmodel = 1 << 4,
    kEinval = 1 << 5,
    kElight = 1 << 6,
    kEnofocus = 1 << 7,
    kEnotsup = 1 << 8,
    kEnodata = 1 << 9,
    kStatus = 1 << 10,  // of the host's USB services
    kErrno = 1 << 11    // a negated error number, of a lock or a thread
};

/// Whether a call with those failures may answer so.
bool is_documented(unsigned failures, std::int32_t result);

template <class... Parameters>
struct Call {
    const char* name;
    std::int32_t (*function)(Parameters...);
    unsigned failures;
    std::int32_t most;  // largest result of a success
};

template <class... Parameters>
Call(const char*, std::int32_t (*)(Parameters...), unsigned, std::int32_t) -> Call<Parameters...>;

inline constexpr Call kInit{"tovix_init", &tovix_init, kEfail | kEsearch | kEnomem, 0};
inline constexpr Call kEnumerate{"tovix_enum_cameras", &tovix_enum_cameras, kEfail | kEsearch, 8};
inline constexpr Call kOpen{"tovix_camera_open", &tovix_camera_open, kEfail | kEsearch, 0};
inline constexpr Call kOpenAny{"tovix_camera_open_any", &tovix_camera_open_any, kEfail | kEsearch, 0};
inline constexpr Call kClose{"tovix_camera_close", &tovix_camera_close, kNever, 0};
inline constexpr Call kGetVersion{"tovix_get_version", &tovix_get_version, kNever, 0};
inline constexpr Call kGetModelName{"tovix_get_model_name", &tovix_get_model_name, kNever, 0};

inline constexpr unsigned kTransfer = kEfail | kStatus;
inline constexpr Call kSetFormat{"tovix_set_video_format", &tovix_set_video_format, kTransfer | kEinval, 0};
inline constexpr Call kGetFormat{"tovix_get_video_format", &tovix_get_video_format, kNever, 0};
inline constexpr Call kGetImageFormat{"tovix_get_image_format", &tovix_get_image_format, kEfail, 0};
inline constexpr Call kEnumRates{"tovix_enum_available_data_rates", &tovix_enum_available_data_rates, kNever, 64};
inline constexpr Call kSetRate{"tovix_set_data_rate", &tovix_set_data_rate, kTransfer, 0};
inline constexpr Call kGetRate{"tovix_get_data_rate", &tovix_get_data_rate, kTransfer, 0};

inline constexpr Call kEnable{"tovix_enable_streaming", &tovix_enable_streaming, kEfail | kEinval | kEnomem | kErrno,
                              0};
inline constexpr Call kStart{"tovix_start_streaming", &tovix_start_streaming, kEfail | kEinval | kErrno, 0};
inline constexpr Call kWait{"tovix_wait_for_capture_to_buffer", &tovix_wait_for_capture_to_buffer, kEnodata | kEinval,
                            2};
inline constexpr Call kRelease{"tovix_release_buffer", &tovix_release_buffer, kNever, 0};
inline constexpr Call kStop{"tovix_stop_streaming", &tovix_stop_streaming, kEfail, 0};
inline constexpr Call kDisable{"tovix_disable_streaming", &tovix_disable_streaming, kEfail, 0};

inline constexpr unsigned kConversion = kEmodel | kEnomem;
inline constexpr Call kConvert{"tovix_convert_frame_to_rgb", &tovix_convert_frame_to_rgb, kConversion | kEinval, 0};
inline constexpr Call kPropertySet{"tovix_property_set", &tovix_property_set, kConversion | kEinval | kTransfer, 1};
inline constexpr Call kPropertyGet{"tovix_property_get", &tovix_property_get, kConversion | kEinval | kTransfer, 0};
inline constexpr Call kPropertyRange{"tovix_property_get_range", &tovix_property_get_range,
                                     kConversion | kEinval | kTransfer, 0};

inline constexpr unsigned kMeasured = kEinval | kEnotsup | kEadjust | kEfail;
inline constexpr Call kAutoExposure{"tovix_oneshot_autoexposure", &tovix_oneshot_autoexposure, kMeasured, 0};
inline constexpr Call kAutoGain{"tovix_oneshot_autogain", &tovix_oneshot_autogain, kMeasured, 0};
inline constexpr Call kAutoIris{"tovix_oneshot_autoiris", &tovix_oneshot_autoiris, kMeasured, 0};
inline constexpr Call kWhiteBalance{"tovix_oneshot_autowhitebalance", &tovix_oneshot_autowhitebalance,
                                    kMeasured | kElight, 0};
inline constexpr Call kWhiteBalanceStep{"tovix_whitebalance_step", &tovix_whitebalance_step, kMeasured | kElight, 1};
inline constexpr Call kDigitalWhiteBalance{"tovix_digital_whitebalance", &tovix_digital_whitebalance,
                                           kMeasured | kElight | kConversion, 0};
inline constexpr Call kFocusStart{"tovix_autofocus_start", &tovix_autofocus_start, kMeasured | kConversion, 0};
inline constexpr Call kFocusProcess{"tovix_autofocus_process", &tovix_autofocus_process, kMeasured | kEnofocus, 0};

}  // namespace tovix::faults
