// SPDX-License-Identifier: Apache-2.0
// The conversion object of a camera: made on first use, with the matrices of the camera's model.
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "device.h"
#include "model_data.h"
#include "report.h"
#include "tovixapi/vorm.h"

namespace {

struct MatrixEntry {  // as model data holds it
    std::int16_t matrix_id;
    std::int16_t coefficients[9];
};
static_assert(sizeof(MatrixEntry) == 20);

/// Up to the first entry that is refused. False when memory ran out.
[[nodiscard]] bool specify_matrices(CVorm& vorm, const void* entries, std::uint32_t bytes) {
    const auto* at = static_cast<const std::uint8_t*>(entries);
    for (; bytes >= sizeof(MatrixEntry); at += sizeof(MatrixEntry), bytes -= std::uint32_t{sizeof(MatrixEntry)}) {
        MatrixEntry entry;
        std::memcpy(&entry, at, sizeof entry);
        const int result = vorm.SpecifyMatrix(static_cast<unsigned>(entry.matrix_id), entry.coefficients);
        if (result != TOVIX_OK) return result != TOVIX_ENOMEM;
    }
    return true;
}

std::int32_t refuse_for_memory() {
    std::fprintf(stderr, "error: unable to create conversion object\n");
    return TOVIX_ENOMEM;
}

}  // namespace

std::int32_t tz_usb_create_vorm(_tovix* camera) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (camera->vorm != nullptr) return TOVIX_OK;
    std::unique_ptr<CVorm> vorm(new (std::nothrow) CVorm);
    if (vorm == nullptr) return refuse_for_memory();
    const void* matrices = nullptr;
    std::uint32_t bytes = 0;
    const std::int32_t status = usb_get_model_data(camera, kMatrixTag, &matrices, &bytes);
    if (status != TOVIX_OK) {
        std::fprintf(stderr, "error: unable to get model data matrices\n");
    } else if (!specify_matrices(*vorm, matrices, bytes)) {
        return refuse_for_memory();
    }
    camera->vorm = vorm.release();  // from here on tovix_camera_close() frees it
    return status;
}

std::int32_t tovix_convert_frame_to_rgb(_tovix* camera, std::uint8_t* dst, const std::uint8_t* src,
                                        const tovix_image_format* image_format, const tovix_conversion_params* params) {
    if (refuse_null(camera)) return TOVIX_EFAIL;
    if (!camera->stream.stream_running || camera->stream.stream_stopping) {
        std::fprintf(stderr,
                     "error: stream is already running\n");  // as applications know it, though it is not
        return TOVIX_EINVAL;
    }
    if (camera->vorm == nullptr) {
        if (const std::int32_t result = tz_usb_create_vorm(camera); result != TOVIX_OK) return result;
    }
    return camera->vorm->ConvertToRgb(dst, src, 24, image_format, params);
}
