// SPDX-License-Identifier: Apache-2.0
// The steps that a colour matrix is made of.
//
//   weights of --base--> RGB --T--> YUV --hue--> turned --white balance, gain, saturation--> YUV --T
//   inverse--> RGB the raw channels
//
// Each step multiplies from the left. Weights are truncated to 4096ths in the end, so the order of the products is part
// of the result.
#pragma once

#include <array>
#include <new>

#include "tovixapi/matrix.h"
#include "tovixapi/tovixapi.h"
#include "tovixapi/vorm.h"

namespace tovix::vorm {

/// A colour of three channels: red, green, blue or Y, U, V.
using Colour = std::array<double, 3>;

/// What is done to the two chroma axes and the luminance once the hue is turned.
struct Adjustment {
    double white_balance_u, white_balance_v;
    double gain, saturation_u, saturation_v;
};

Adjustment adjustment_of(const _vorm_settings& settings);

const CMatrix3x3& rgb_to_yuv();
const CMatrix3x3& yuv_to_rgb();  // allocates in the first call

/// Luminance and chroma, stretched.
CMatrix3x3 stretch(const Adjustment& adjustment);

/// The matrix that a selector other than 0 stands for; 3 x 3, or 3 x 4 with the weights of byte 3.
CMatrix base_matrix(const CVorm& vorm, const _vorm_settings& settings);
/// From raw channels to YUV with the hue turned.
CMatrix to_turned_yuv(const CMatrix& base, double hue_degrees);
/// The same, adjusted, back in RGB.
CMatrix to_adjusted_rgb(const CMatrix& turned_yuv, const Adjustment& adjustment);

/// The product with a colour; a fourth column has no part in it.
Colour transformed(const CMatrix& matrix, const Colour& colour);

/// Rebuild the object's matrix after a change that it depends on. 0; TOVIX_ENOMEM, and the matrix stays stale.
int update_matrix(CVorm& vorm);

/// What `body` returns, or TOVIX_ENOMEM when memory ran out in it.
int unless_memory_runs_out(const auto& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return TOVIX_ENOMEM;
    }
}

}  // namespace tovix::vorm
