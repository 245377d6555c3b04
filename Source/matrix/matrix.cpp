// SPDX-License-Identifier: Apache-2.0
#include <tovixapi/matrix.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace {

std::size_t value_count(int rows, int columns) {
    return static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns);
}

}  // namespace

CMatrix::CMatrix() : rows(0), columns(0), data(nullptr), owned(false) {}

CMatrix::CMatrix(int rows_, int columns_, double const* values) : CMatrix() {
    Init(rows_, columns_, values);
}

CMatrix::CMatrix(CMatrix const& other) : CMatrix(other.rows, other.columns, other.data) {}

CMatrix::~CMatrix() {
    Release();
}

CMatrix& CMatrix::operator=(CMatrix const& other) {
    Init(other.rows, other.columns, other.data);
    return *this;
}

void CMatrix::Init(int new_rows, int new_columns, double const* values) {
    if (new_rows < 0 || new_columns < 0) throw std::invalid_argument("CMatrix: negative shape");
    if (new_rows == 0 || new_columns == 0) new_rows = new_columns = 0;
    const std::size_t count = value_count(new_rows, new_columns);
    const bool fits = count == value_count(rows, columns);
    if (!fits && data != nullptr && !owned) throw std::logic_error("CMatrix: fixed storage, other size");

    // The old values go last: a failing allocation changes nothing, and `values` may be among them.
    double* const target = fits ? data : count != 0 ? new double[count] : nullptr;
    if (values == nullptr) {
        std::fill_n(target, count, 0.0);
    } else if (count != 0) {
        std::memmove(target, values, count * sizeof(double));
    }
    if (!fits) {
        Release();
        data = target;
        owned = target != nullptr;
    }
    rows = new_rows;
    columns = new_columns;
}

void CMatrix::Release() {
    if (!owned) return;
    delete[] data;
    rows = columns = 0;
    data = nullptr;
    owned = false;
}

void CMatrix::Assign(int new_rows, int new_columns, double* values) {
    Init(new_rows, new_columns, values);
}

void CMatrix::AllocZeros(int new_rows, int new_columns) {
    Init(new_rows, new_columns, nullptr);
}

bool CMatrix::Exist() const {
    return rows != 0 && columns != 0 && data != nullptr;
}

int CMatrix::Rows() const {
    return rows;
}

int CMatrix::Columns() const {
    return columns;
}

double* CMatrix::operator[](int row) const {
    return data == nullptr ? nullptr : data + static_cast<std::ptrdiff_t>(columns) * row;
}

CMatrix::operator double const*() const {
    return data;
}

int CMatrix::DumpValues(int count, double* out) const {
    if (data == nullptr || count <= 0) return 0;
    const std::size_t copied = std::min(static_cast<std::size_t>(count), value_count(rows, columns));
    std::copy_n(data, copied, out);
    return static_cast<int>(copied);
}

CMatrix& CMatrix::operator*=(CMatrix const& other) {
    const CMatrix product = *this * other;
    if (product.Exist()) *this = product;
    return *this;
}

bool operator==(CMatrix const& a, CMatrix const& b) {
    if (a.Rows() != b.Rows() || a.Columns() != b.Columns()) return false;
    double const* const values = a;
    return std::equal(values, values + value_count(a.Rows(), a.Columns()), static_cast<double const*>(b));
}

void MatrixMultiply(CMatrix const& a, CMatrix const& b, CMatrix& c) {
    if (!a.Exist() || !b.Exist() || a.Columns() != b.Rows()) return;
    if (c.Rows() != a.Rows() || c.Columns() != b.Columns()) {
        c.Release();
        if (c.Exist()) throw std::logic_error("MatrixMultiply: destination has fixed storage, other shape");
        c.AllocZeros(a.Rows(), b.Columns());
    }
    for (int i = 0; i < c.Rows(); ++i) {
        for (int j = 0; j < c.Columns(); ++j) {
            double sum = 0.0;
            for (int k = 0; k < b.Rows(); ++k)
                sum += a[i][k] * b[k][j];
            c[i][j] = sum;
        }
    }
}

CMatrix operator*(CMatrix const& a, CMatrix const& b) {
    CMatrix product;
    MatrixMultiply(a, b, product);
    return product;
}
