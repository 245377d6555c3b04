// SPDX-License-Identifier: Apache-2.0
#include <tovixapi/matrix.h>

#include <algorithm>
#include <stdexcept>

CMatrixSquare::CMatrixSquare(int n, double const* values) : CMatrix(n, n, values) {}

void CMatrixSquare::MakeIdentity() {
    AllocZeros(rows, columns);
    for (int i = 0; i < std::min(rows, columns); ++i)
        (*this)[i][i] = 1.0;
}

double CMatrixSquare::Minor(int row, int column) const {
    if (rows < 2 || rows != columns || row < 0 || row >= rows || column < 0 || column >= columns) {
        throw std::out_of_range("CMatrixSquare: no such minor");
    }
    CMatrixSquare rest(rows - 1, nullptr);
    for (int r = 0, to_row = 0; r < rows; ++r) {
        if (r == row) continue;
        double* const to = rest[to_row++];
        double const* const from = (*this)[r];
        std::copy(from + column + 1, from + columns, std::copy_n(from, column, to));
    }
    return rest.Determinant();
}

double CMatrixSquare::Cofactor(int row, int column) const {
    const double minor = Minor(row, column);
    return (row + column) % 2 != 0 ? -minor : minor;
}

double CMatrixSquare::Determinant() const {
    if (!Exist() || rows != columns) throw std::logic_error("CMatrixSquare: determinant of no square matrix");
    double const* const a = data;
    if (rows == 1) return a[0];
    if (rows == 2) return a[0] * a[3] - a[2] * a[1];
    double sum = 0.0;
    for (int j = 0; j < columns; ++j)
        sum += a[j] * Cofactor(0, j);
    return sum;
}

bool CMatrixSquare::GetInverse(CMatrixSquare& out) const {
    const double determinant = Determinant();
    out.AllocZeros(rows, columns);
    if (determinant == 0.0) return false;
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < columns; ++j)
            out[j][i] = Cofactor(i, j) / determinant;
    }
    return true;
}

CMatrixSquare CMatrixSquare::Inverse() const {
    CMatrixSquare inverse;
    GetInverse(inverse);
    return inverse;
}
