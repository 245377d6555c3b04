// SPDX-License-Identifier: Apache-2.0
#include <tovixapi/matrix.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

CMatrix3x3 made(void (CMatrix3x3::*make)(double), double amount) {
    CMatrix3x3 transform;
    (transform.*make)(amount);
    return transform;
}

}  // namespace

CMatrix3x3::CMatrix3x3() : storage{} {
    rows = columns = 3;
    data = storage;
    owned = false;
}

CMatrix3x3::CMatrix3x3(CMatrix3x3 const& other) : CMatrix3x3(other.storage) {}

CMatrix3x3::CMatrix3x3(double const* values) : CMatrix3x3() {
    std::copy_n(values, 9, storage);
}

CMatrix3x3& CMatrix3x3::operator=(CMatrix3x3 const& other) {
    CMatrixSquare::operator=(other);
    return *this;
}

void CMatrix3x3::MakeStretchX(double x) {
    MakeStretchXYZ(x, 1.0, 1.0);
}

void CMatrix3x3::MakeStretchY(double y) {
    MakeStretchXYZ(1.0, y, 1.0);
}

void CMatrix3x3::MakeStretchZ(double z) {
    MakeStretchXYZ(1.0, 1.0, z);
}

void CMatrix3x3::MakeStretchXYZ(double x, double y, double z) {
    Init(3, 3, std::data({x, 0.0, 0.0, 0.0, y, 0.0, 0.0, 0.0, z}));
}

void CMatrix3x3::MakeRotationX(double a) {
    const double c = std::cos(a), s = std::sin(a);
    Init(3, 3, std::data({1.0, 0.0, 0.0, 0.0, c, -s, 0.0, s, c}));
}

void CMatrix3x3::MakeRotationY(double a) {
    const double c = std::cos(a), s = std::sin(a);
    Init(3, 3, std::data({c, 0.0, s, 0.0, 1.0, 0.0, -s, 0.0, c}));
}

void CMatrix3x3::MakeRotationZ(double a) {
    const double c = std::cos(a), s = std::sin(a);
    Init(3, 3, std::data({c, -s, 0.0, s, c, 0.0, 0.0, 0.0, 1.0}));
}

void CMatrix3x3::StretchXYZ(double x, double y, double z) {
    CMatrix3x3 stretch;
    stretch.MakeStretchXYZ(x, y, z);
    *this = stretch * *this;
}

void CMatrix3x3::StretchX(double x) {
    *this = made(&CMatrix3x3::MakeStretchX, x) * *this;
}

void CMatrix3x3::StretchY(double y) {
    *this = made(&CMatrix3x3::MakeStretchY, y) * *this;
}

void CMatrix3x3::StretchZ(double z) {
    *this = made(&CMatrix3x3::MakeStretchZ, z) * *this;
}

void CMatrix3x3::RotateAroundX(double a) {
    *this = made(&CMatrix3x3::MakeRotationX, a) * *this;
}

void CMatrix3x3::RotateAroundY(double a) {
    *this = made(&CMatrix3x3::MakeRotationY, a) * *this;
}

void CMatrix3x3::RotateAroundZ(double a) {
    *this = made(&CMatrix3x3::MakeRotationZ, a) * *this;
}

CMatrix3x3 operator*(CMatrix3x3 const& a, CMatrix3x3 const& b) {
    CMatrix3x3 product;
    MatrixMultiply(a, b, product);
    return product;
}
