// SPDX-License-Identifier: Apache-2.0
// Matrix arithmetic against values worked out by hand and identities.
#include <gtest/gtest.h>
#include <tovixapi/matrix.h>

#include <array>
#include <climits>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::array<double, 12> kCount{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

/// Shape and values, or nothing for an empty matrix.
std::vector<double> dump(CMatrix const& m) {
    std::vector<double> values(1000);
    values.resize(static_cast<std::size_t>(m.DumpValues(1000, values.data())));
    EXPECT_EQ(values.size(), static_cast<std::size_t>(m.Rows() * m.Columns()));
    return values;
}

void expect_near(CMatrix const& m, const std::vector<double>& expected) {
    const auto values = dump(m);
    ASSERT_EQ(values.size(), expected.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(values[i], expected[i], 1e-15) << i;
}

TEST(Matrix, ShapesAndStorage) {
    CMatrix m;
    EXPECT_FALSE(m.Exist() || CMatrix(0, 3, kCount.data()).Exist());
    EXPECT_EQ(m[0], nullptr);
    EXPECT_EQ(m.DumpValues(20, nullptr), 0);

    m.Init(3, 4, kCount.data());
    EXPECT_EQ(dump(m), std::vector<double>(kCount.begin(), kCount.end()));
    EXPECT_EQ(m[2][1], 10);
    std::array<double, 3> out{};
    EXPECT_EQ(m.DumpValues(2, out.data()), 2);
    EXPECT_EQ(m.DumpValues(-1, out.data()), 0);
    EXPECT_EQ(out, (std::array<double, 3>{1, 2, 0}));

    const CMatrix copy(m);
    double const* const buffer = m;
    m.Assign(4, 3, m[0]);  // as many values: the same buffer, read in place
    EXPECT_EQ(static_cast<double const*>(m), buffer);
    EXPECT_EQ(m[3][0], 10);
    m.Assign(2, 2, m[1]);  // fewer: a new one, from the values of the old
    m = static_cast<CMatrix const&>(m);
    EXPECT_EQ(dump(m), (std::vector<double>{4, 5, 6, 7}));
    EXPECT_EQ(copy[2][3], 12);  // a copy is deep
    m.AllocZeros(1, 3);
    EXPECT_EQ(dump(m), (std::vector<double>{0, 0, 0}));
    m = CMatrix();
    EXPECT_FALSE(m.Exist());
    CMatrix3x3 fixed(kCount.data());
    fixed.Release();
    EXPECT_EQ(fixed[2][2], 9);
}

TEST(Matrix, EqualMeansShapeAndEveryValue) {
    EXPECT_TRUE(CMatrix() == CMatrix());
    EXPECT_TRUE(CMatrix(3, 3, kCount.data()) == CMatrix3x3(kCount.data()));
    EXPECT_FALSE(CMatrix(3, 4, kCount.data()) == CMatrix(4, 3, kCount.data()));
    EXPECT_FALSE(CMatrix(1, 2, kCount.data()) == CMatrix(1, 2, kCount.data() + 1));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const CMatrix never(1, 1, &nan);
    EXPECT_FALSE(never == never);
}

TEST(Matrix, Products) {
    const CMatrix a(2, 3, kCount.data()), b(3, 2, kCount.data() + 6);
    EXPECT_EQ(dump(a * b), (std::vector<double>{58, 64, 139, 154}));
    EXPECT_EQ((CMatrix(3, 3, kCount.data()) * CMatrix(3, 4, kCount.data())).Columns(), 4);
    EXPECT_FALSE((CMatrix(3, 4, kCount.data()) * CMatrix(3, 3, kCount.data())).Exist());

    CMatrix kept(1, 2, kCount.data());
    MatrixMultiply(a, a, kept);
    MatrixMultiply(a, CMatrix(), kept);
    kept *= a * b * a;  // 1 x 2 by 2 x 3
    EXPECT_EQ(kept.Columns(), 3);
    kept *= kept;  // sizes that do not meet
    EXPECT_EQ(kept.Columns(), 3);
    CMatrix square(2, 2, kCount.data());
    square *= square;
    EXPECT_EQ(dump(square), (std::vector<double>{7, 10, 15, 22}));
}

TEST(Matrix, DeterminantsAndInverses) {
    const CMatrixSquare two(2, std::data({3.0, 8.0, 4.0, 6.0}));
    EXPECT_EQ(two.Determinant(), -14);
    const CMatrixSquare four(
        4, std::data({1.0, 0.0, 2.0, -1.0, 3.0, 0.0, 0.0, 5.0, 2.0, 1.0, 4.0, -3.0, 1.0, 0.0, 5.0, 0.0}));
    EXPECT_EQ(four.Determinant(), 30);
    EXPECT_EQ(four.Minor(2, 1), -30);
    EXPECT_EQ(four.Cofactor(2, 1), 30);
    EXPECT_EQ(CMatrixSquare(1, kCount.data() + 6).Determinant(), 7);

    const CMatrix3x3 luminance(std::data({0.299, 0.587, 0.114, -0.169, -0.331, 0.5, 0.5, -0.419, -0.081}));
    EXPECT_NEAR(luminance.Determinant(), 0.236311, 5e-7);
    const CMatrixSquare inverse = luminance.Inverse();
    for (int row = 0; row < 3; ++row)
        EXPECT_NEAR(inverse[row][0], 1.0, 2.3e-16);
    expect_near(inverse * luminance, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    CMatrixSquare identity(four);
    identity.MakeIdentity();
    expect_near(four * four.Inverse(), dump(identity));

    CMatrixSquare out(2, kCount.data());
    EXPECT_FALSE(CMatrixSquare(3, std::data({1.0, 2.0, 3.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0})).GetInverse(out));
    EXPECT_EQ(dump(out), std::vector<double>(9, 0.0));
}

TEST(Matrix, StretchesAndRotations) {
    CMatrix3x3 m;
    m.MakeIdentity();
    m.StretchXYZ(2, 3, 4);
    EXPECT_EQ(dump(m), (std::vector<double>{2, 0, 0, 0, 3, 0, 0, 0, 4}));
    m.StretchX(10), m.StretchY(100), m.StretchZ(1000);
    EXPECT_EQ(dump(m), (std::vector<double>{20, 0, 0, 0, 300, 0, 0, 0, 4000}));

    // A third of a turn: (1, 2, 3) as columns of the three rotations, and the new transform on the left.
    const double a = std::acos(-1.0) / 3, c = 0.5, s = std::sqrt(0.75);
    m.MakeRotationX(a);
    expect_near(m, {1, 0, 0, 0, c, -s, 0, s, c});
    m.RotateAroundX(-a);
    expect_near(m, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    m.RotateAroundY(a);
    expect_near(m, {c, 0, s, 0, 1, 0, -s, 0, c});
    m.MakeStretchXYZ(2, 3, 4);
    m.RotateAroundZ(a);
    expect_near(m, {2 * c, -3 * s, 0, 2 * s, 3 * c, 0, 0, 0, 4});
}

TEST(Matrix, ProgrammingErrorsThrowAndChangeNothing) {
    CMatrix3x3 fixed(kCount.data());
    const CMatrix wide(3, 4, kCount.data());
    EXPECT_THROW(MatrixMultiply(fixed, wide, fixed), std::logic_error);
    EXPECT_THROW(fixed *= wide, std::logic_error);
    EXPECT_THROW(fixed.AllocZeros(3, 4), std::logic_error);
    EXPECT_EQ(dump(fixed), std::vector<double>(kCount.begin(), kCount.begin() + 9));

    EXPECT_THROW(CMatrixSquare().Determinant(), std::logic_error);
    EXPECT_THROW(CMatrixSquare(1, kCount.data()).Minor(0, 0), std::logic_error);
    EXPECT_THROW(fixed.Minor(3, 0), std::logic_error);
    EXPECT_THROW(fixed.Cofactor(0, -1), std::logic_error);
    CMatrixSquare oblong;
    oblong.AllocZeros(2, 3);
    EXPECT_THROW(oblong.Minor(0, 0), std::logic_error);

    CMatrix m(2, 2, kCount.data());
    EXPECT_THROW(m.AllocZeros(-1, 2), std::logic_error);
    EXPECT_THROW(m.AllocZeros(INT_MAX, INT_MAX), std::bad_alloc);
    EXPECT_EQ(dump(m), (std::vector<double>{1, 2, 3, 4}));
}

}  // namespace
