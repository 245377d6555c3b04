// SPDX-License-Identifier: Apache-2.0
// Small dense matrices of doubles: what colour-correction matrices are built from.
//
// Values lie row by row: element (r, c) is value number Columns() * r + c, and m[r][c] names it. Angles are
// in radians. A matrix without rows or columns is empty and has no values; it "exists" otherwise.
//
// Programming errors throw an exception derived from std::logic_error: a negative shape; a new number of
// values for a matrix that does not own its storage (every CMatrix3x3); the determinant of an empty or oblong
// matrix; a minor of a 1 x 1 matrix, or outside of the matrix. When memory runs out, std::bad_alloc is
// thrown. Either way the matrix is as it was before the call, except that a product may have released its destination.
// Nothing else throws.
//
// Threads: one matrix is changed by one thread at a time; different matrices share nothing.
#pragma once

#include <tovixapi/export.h>

/** A matrix of any shape. No virtual operations: an object is destroyed as the class that it was made as. */
class TOVIX_API CMatrix {
  public:
    /** An empty matrix. */
    CMatrix();
    /** Copies rows x columns values; zeros when `values` is null. Empty when there are no rows or no columns.
     */
    CMatrix(int rows, int columns, double const* values);
    CMatrix(CMatrix const& other);
    ~CMatrix();
    CMatrix& operator=(CMatrix const& other);

    /** As the constructor with the same arguments; what the matrix held before is given back. */
    void Init(int rows, int columns, double const* values);
    /** Frees the values that the matrix owns and leaves it empty. Does nothing where it does not own them. */
    void Release();
    /** Takes the shape rows x columns and copies the values, or zeros when `values` is null. The buffer stays
     * the same unless the number of values changes. `values` may be this matrix's own. */
    void Assign(int rows, int columns, double* values);
    /** A zero matrix of that shape, as Assign makes it. */
    void AllocZeros(int rows, int columns);

    /** True when there are values. */
    bool Exist() const;
    int Rows() const;
    int Columns() const;
    /** The first value of a row, or null when the matrix is empty. The row is not checked. */
    double* operator[](int row) const;
    /** All values in row order, or null. They stay the matrix's own. */
    operator double const*() const;
    /** Copies the first min(count, Rows() * Columns()) values to `out` and returns how many these are. */
    int DumpValues(int count, double* out) const;

    /** this = this * other. Unchanged when either does not exist or their inner sizes differ. */
    CMatrix& operator*=(CMatrix const& other);

  protected:
    int rows;
    int columns;
    double* data;  // null exactly when empty
    bool owned;    // data was allocated by this matrix, which frees it
};

/** True when the shapes are equal and every value compares equal; a NaN never does. */
TOVIX_API bool operator==(CMatrix const& a, CMatrix const& b);

/** c = a * b; c takes the shape a.Rows() x b.Columns() and must be neither a nor b. Left unchanged when a or
 * b does not exist or a.Columns() differs from b.Rows(). */
TOVIX_API void MatrixMultiply(CMatrix const& a, CMatrix const& b, CMatrix& c);

/** The product, or an empty matrix where MatrixMultiply leaves its destination alone. */
TOVIX_API CMatrix operator*(CMatrix const& a, CMatrix const& b);

/** A matrix of n rows and n columns. */
class TOVIX_API CMatrixSquare : public CMatrix {
  public:
    CMatrixSquare() = default;
    CMatrixSquare(CMatrixSquare const& other) = default;
    CMatrixSquare(int n, double const* values);
    CMatrixSquare& operator=(CMatrixSquare const& other) = default;

    /** 1 on the diagonal, 0 elsewhere, in the shape it has. */
    void MakeIdentity();
    /** The determinant of the matrix without that row and that column. */
    double Minor(int row, int column) const;
    /** The minor, negated when row + column is odd. */
    double Cofactor(int row, int column) const;
    /** Expanded along row 0. Meant for the sizes of colour work: the time grows as n!. */
    double Determinant() const;
    /** Writes the inverse to `out`, which must be another matrix. False, and `out` all zeros, when the
     * determinant is exactly 0. A 1 x 1 matrix has no cofactors and throws. */
    bool GetInverse(CMatrixSquare& out) const;
    /** The inverse; all zeros when there is none. */
    CMatrixSquare Inverse() const;
};

/** A 3 x 3 matrix that keeps its values inside the object and never allocates. */
class TOVIX_API CMatrix3x3 : public CMatrixSquare {
  public:
    /** All zeros. */
    CMatrix3x3();
    CMatrix3x3(CMatrix3x3 const& other);
    /** Nine values in row order. */
    explicit CMatrix3x3(double const* values);
    CMatrix3x3& operator=(CMatrix3x3 const& other);

    /** Overwrite with a diagonal matrix: (x, 1, 1), (1, y, 1), (1, 1, z) or (x, y, z). */
    void MakeStretchX(double x);
    void MakeStretchY(double y);
    void MakeStretchZ(double z);
    void MakeStretchXYZ(double x, double y, double z);
    /** Overwrite with a rotation about the first axis: rows (1, 0, 0), (0, cos a, -sin a), (0, sin a, cos a).
     */
    void MakeRotationX(double a);
    /** About the second: rows (cos a, 0, sin a), (0, 1, 0), (-sin a, 0, cos a). */
    void MakeRotationY(double a);
    /** About the third: rows (cos a, -sin a, 0), (sin a, cos a, 0), (0, 0, 1). */
    void MakeRotationZ(double a);

    /** Replace this matrix by M * this, M being what the Make form builds: the new transform comes after the
     * old. */
    void StretchX(double x);
    void StretchY(double y);
    void StretchZ(double z);
    void StretchXYZ(double x, double y, double z);
    void RotateAroundX(double a);
    void RotateAroundY(double a);
    void RotateAroundZ(double a);

  private:
    double storage[9];
};

TOVIX_API CMatrix3x3 operator*(CMatrix3x3 const& a, CMatrix3x3 const& b);
