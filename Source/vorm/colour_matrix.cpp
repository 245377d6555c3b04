// SPDX-License-Identifier: Apache-2.0
#include "colour_matrix.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace tovix::vorm {
namespace {

constexpr double kOne4096 = 4096.0;
constexpr int kWeights = 12;

/// A weight in 4096ths. What is not a number has no weight.
short to_4096(double weight) {
    if (std::isnan(weight)) return 0;
    return static_cast<short>(std::clamp(weight, -8.0, 7.999) * kOne4096);
}

CMatrix from_4096(short const* weights) {
    double values[kWeights];
    std::transform(weights, weights + kWeights, values, [](short weight) { return weight / kOne4096; });
    return {3, 4, values};
}

}  // namespace

Adjustment adjustment_of(const _vorm_settings& settings) {
    return {settings.white_balance_u, settings.white_balance_v, settings.gain, settings.saturation_u,
            settings.saturation_v};
}

const CMatrix3x3& rgb_to_yuv() {
    static constexpr double kValues[9] = {0.299, 0.587, 0.114, -0.169, -0.331, 0.5, 0.5, -0.419, -0.081};
    static const CMatrix3x3 matrix(kValues);
    return matrix;
}

const CMatrix3x3& yuv_to_rgb() {
    static const CMatrix3x3 matrix = [] {
        CMatrix3x3 inverse;
        rgb_to_yuv().GetInverse(inverse);
        return inverse;
    }();
    return matrix;
}

CMatrix3x3 stretch(const Adjustment& adjustment) {
    CMatrix3x3 matrix;
    matrix.MakeStretchXYZ(adjustment.gain, adjustment.saturation_u, adjustment.saturation_v);
    return matrix;
}

CMatrix base_matrix(const CVorm& vorm, const _vorm_settings& settings) {
    const unsigned selector = settings.correction_matrix;
    if (selector == TOVIX_MATRIX_CUSTOM || selector == TOVIX_MATRIX_CUSTOM_ONLY)
        return from_4096(settings.custom_matrix);
    if (selector == TOVIX_MATRIX_IDENTITY) {
        CMatrix identity;
        MakeIdentity3x4(identity);
        return identity;
    }
    if (selector < std::size(vorm.model_matrices) && vorm.model_matrices[selector] != nullptr)
        return from_4096(vorm.model_matrices[selector]);
    return {3, 3, RgbAllButNoneValues};
}

CMatrix to_turned_yuv(const CMatrix& base, double hue_degrees) {
    constexpr double kPi = 3.1415926535;  // these digits: more of them would change weights
    CMatrix3x3 turn;
    turn.MakeRotationX(hue_degrees * kPi / 180.0);
    return turn * (rgb_to_yuv() * base);
}

CMatrix to_adjusted_rgb(const CMatrix& turned_yuv, const Adjustment& adjustment) {
    CMatrix3x3 white_balance;
    white_balance.MakeIdentity();
    white_balance[1][0] = adjustment.white_balance_u / 2.0;
    white_balance[2][0] = adjustment.white_balance_v / 2.0;
    return yuv_to_rgb() * (stretch(adjustment) * (white_balance * turned_yuv));
}

Colour transformed(const CMatrix& matrix, const Colour& colour) {
    const auto sum = [&](int row) {
        const double* const weights = matrix[row];
        return weights[0] * colour[0] + weights[1] * colour[1] + weights[2] * colour[2];
    };
    return {sum(0), sum(1), sum(2)};
}

int update_matrix(CVorm& vorm) {
    vorm.settings.matrix_stale = 1;
    vorm.BuildCurrentMatrix();
    return vorm.settings.matrix_stale != 0 ? TOVIX_ENOMEM : TOVIX_OK;
}

}  // namespace tovix::vorm

using namespace tovix::vorm;

double const RgbAllButNoneValues[9] = {1.227, -0.101, -0.126, -0.174, 1.268, -0.094, 0.051, -0.872, 1.821};

void MakeIdentity3x4(CMatrix& matrix) {
    matrix.AllocZeros(3, 4);
    for (int i = 0; i < 3; ++i)
        matrix[i][i] = 1.0;
}

void ConvertMatrixShortToDouble3x4(CMatrix* matrix, short* weights) {
    *matrix = from_4096(weights);
}

int CVorm::SpecifyMatrix(unsigned int matrix_id, short* coefficients) {
    if (matrix_id == 0 || matrix_id >= std::size(model_matrices) || coefficients == nullptr) return TOVIX_EINVAL;
    short*& stored = model_matrices[matrix_id];
    settings.matrix_stale = 1;
    delete[] stored;
    stored = new (std::nothrow) short[kWeights]{};
    if (stored == nullptr) return TOVIX_ENOMEM;
    for (int i = 0; i < 9; ++i)
        stored[i / 3 * 4 + i % 3] = coefficients[8 - i];
    return TOVIX_OK;
}

int CVorm::BuildMatrix(_vorm_settings* s) {
    if (s->correction_matrix == TOVIX_MATRIX_NONE) return 1;
    return unless_memory_runs_out([&] {
        CMatrix matrix = base_matrix(*this, *s);
        if (s->correction_matrix != TOVIX_MATRIX_CUSTOM_ONLY)
            matrix = to_adjusted_rgb(to_turned_yuv(matrix, s->hue), adjustment_of(*s));
        for (int row = 0; row < 3; ++row) {
            for (int column = 0; column < 4; ++column) {
                const bool weighted = column < matrix.Columns();
                s->matrix[row * 4 + column] = weighted ? to_4096(matrix[row][column]) : short{0};
            }
        }
        return 1;
    });
}

void CVorm::BuildCurrentMatrix() {
    if (BuildMatrix(&settings) == 1) settings.matrix_stale = 0;
}

int CVorm::GetCurrentMatrix(short* out) {
    if (out == nullptr) return TOVIX_EINVAL;
    if (settings.matrix_stale != 0) BuildCurrentMatrix();
    if (settings.matrix_stale != 0) return TOVIX_ENOMEM;
    std::copy_n(settings.matrix, kWeights, out);
    return TOVIX_OK;
}
