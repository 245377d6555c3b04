// SPDX-License-Identifier: Apache-2.0
#include "tovixapi/vorm.h"
#include "weighted_sums.h"

using tovix::colora::apply_matrix;

void MatrixPostProcess4096(short const* matrix, unsigned char* pixels, unsigned long count) {
    apply_matrix<3>(matrix, pixels, count);
}

void MatrixPostProcess4096to32(short const* matrix, unsigned char* pixels, unsigned long count) {
    apply_matrix<4>(matrix, pixels, count);
}

void MatrixPostProcess16_4096(short const* matrix, unsigned short* pixels, unsigned long count) {
    apply_matrix<3>(matrix, pixels, count);
}
