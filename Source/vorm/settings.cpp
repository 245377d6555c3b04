// SPDX-License-Identifier: Apache-2.0
// What a conversion object is made of, and its plain settings. Tables and white balance have files of their own.
#include <algorithm>
#include <iterator>

#include "colour_matrix.h"

using tovix::vorm::update_matrix;

namespace {

constexpr short kIdentity[12] = {4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096, 0};

/// The pointer is null where the caller does not want the value.
template <class Value>
void give(Value* out, Value value) {
    if (out != nullptr) *out = value;
}

}  // namespace

CVorm::CVorm() : format{}, settings{}, model_matrices{} {
    settings.correction_matrix = TOVIX_MATRIX_MODEL;
    settings.demosaic_method = TOVIX_DEMOSAIC_NEAREST;
    settings.saturation_u = settings.saturation_v = settings.gain = 1.0;
    settings.matrix_stale = 1;
    settings.matrix = settings.matrix_storage;
    std::copy_n(kIdentity, std::size(kIdentity), settings.custom_matrix);
    std::copy_n(kIdentity, std::size(kIdentity), settings.matrix);
}

CVorm::~CVorm() {
    for (short* const matrix : model_matrices)
        delete[] matrix;
    delete[] settings.lut16;
    delete settings.lut;
    forget_table();
}

int CVorm::GetFlipping(int* x, int* y) {
    give(x, settings.flip_x);
    give(y, settings.flip_y);
    return TOVIX_OK;
}

int CVorm::SetFlipping(int x, int y) {
    settings.flip_x = x;
    settings.flip_y = y;
    return TOVIX_OK;
}

int CVorm::GetSaturation(double* u, double* v) {
    give(u, settings.saturation_u);
    give(v, settings.saturation_v);
    return TOVIX_OK;
}

int CVorm::SetSaturation(double u, double v) {
    settings.saturation_u = u;
    settings.saturation_v = v;
    return update_matrix(*this);
}

int CVorm::GetHue(double* hue) {
    give(hue, settings.hue);
    return TOVIX_OK;
}

int CVorm::SetHue(double hue) {
    settings.hue = hue;
    return update_matrix(*this);
}

int CVorm::GetGain(double* gain) {
    give(gain, settings.gain);
    return TOVIX_OK;
}

int CVorm::SetGain(double gain) {
    settings.gain = gain;
    return update_matrix(*this);
}

int CVorm::GetWhiteBalance(double* u, double* v) {
    give(u, settings.white_balance_u);
    give(v, settings.white_balance_v);
    return TOVIX_OK;
}

int CVorm::SetWhiteBalance(double u, double v) {
    settings.white_balance_u = u;
    settings.white_balance_v = v;
    return update_matrix(*this);
}

int CVorm::GetCustomMatrix(short* out) {
    if (out != nullptr) std::copy_n(settings.custom_matrix, std::size(settings.custom_matrix), out);
    return TOVIX_OK;
}

int CVorm::CustomCorrectionMatrixSetup(short* in) {
    if (in == nullptr) return TOVIX_EINVAL;
    std::copy_n(in, std::size(settings.custom_matrix), settings.custom_matrix);
    const bool in_use =
        settings.correction_matrix == TOVIX_MATRIX_CUSTOM || settings.correction_matrix == TOVIX_MATRIX_CUSTOM_ONLY;
    return in_use ? update_matrix(*this) : TOVIX_OK;
}

int CVorm::DemosaicMethodGet(unsigned int* method) {
    give(method, settings.demosaic_method);
    return TOVIX_OK;
}

int CVorm::DemosaicMethodSet(unsigned int method) {
    if (!ValidateDemosaicingMethod(method)) return 0;
    settings.demosaic_method = method;
    return 1;
}

int CVorm::CorrectionMatrixGet(unsigned int* selector) {
    give(selector, settings.correction_matrix);
    return TOVIX_OK;
}

int CVorm::CorrectionMatrixSet(unsigned int selector) {
    if (!ValidateCorrectionMatrix(selector)) return 0;
    settings.correction_matrix = selector;
    static_cast<void>(update_matrix(*this));  // 1 says that the selector is set; a stale matrix is built when asked for
    return 1;
}
