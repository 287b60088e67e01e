// The matrix library: shapes the posture filter relies on, and the inverse.

#include "engine/matrix.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(Matrix, TransposeMovesElementIJToJI) {
    const float a[6] = {1, 2, 3, 4, 5, 6};  // 2x3
    float b[6] = {};
    AT(a, b, 2, 3);
    const float expected[6] = {1, 4, 2, 5, 3, 6};  // 3x2
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(b[i], expected[i]) << "i=" << i;
    }
}

struct ProductCase {
    const char* name;
    int m, n, p, q;
    float expected[4];
};

// A 4x4 matrix times a 4-vector, and a row vector times the same matrix.
TEST(Matrix, MultiplyHandlesColumnAndRowVectors) {
    const float m4[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const float v[4] = {1, 0, -1, 2};
    const ProductCase cases[] = {
        {"matrix * column", 4, 4, 4, 1, {6, 14, 22, 30}},
        {"row * matrix", 1, 4, 4, 4, {18, 20, 22, 24}},
    };
    for (const ProductCase& c : cases) {
        float out[4] = {};
        if (c.q == 1) {
            array_multiply(m4, v, out, c.m, c.n, c.p, c.q);
        } else {
            array_multiply(v, m4, out, c.m, c.n, c.p, c.q);
        }
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(out[i], c.expected[i]) << c.name << " i=" << i;
        }
    }
}

TEST(Matrix, DoubleProductMatchesFloatProductOnExactValues) {
    const double a[4] = {1, 2, 3, 4};
    const double b[4] = {5, 6, 7, 8};
    double c[4] = {};
    array_multiply_double(a, b, c, 2, 2, 2, 2);
    EXPECT_EQ(c[0], 19);
    EXPECT_EQ(c[1], 22);
    EXPECT_EQ(c[2], 43);
    EXPECT_EQ(c[3], 50);
}

// For a 1x4 row a, A B A^T is the quadratic form sum_ij a_i B_ij a_j.
TEST(Matrix, AbatOfRowIsQuadraticForm) {
    const float a[4] = {1, 2, 0, -1};
    const float b[16] = {2, 0, 0, 1, 0, 3, 0, 0, 0, 0, 1, 0, 1, 0, 0, 4};
    float c[1] = {};
    ABAT(a, b, c, 1, 4, 4, 4);
    // 2*1 + 3*4 + 4*1 + 2*(1*-1*1) = 16
    EXPECT_EQ(c[0], 16.0F);
}

// A B A^T of a 3x3 rotation-like A and diagonal B is symmetric.
TEST(Matrix, AbatOfSquareIsSymmetric) {
    const float a[9] = {0, 1, 0, -1, 0, 0, 0, 0, 1};
    const float b[9] = {1, 0, 0, 0, 2, 0, 0, 0, 3};
    float c[9] = {};
    ABAT(a, b, c, 3, 3, 3, 3);
    const float expected[9] = {2, 0, 0, 0, 1, 0, 0, 0, 3};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(c[i], expected[i]) << "i=" << i;
    }
}

TEST(Matrix, AbatRefusesSizesBeyondItsTemporaries) {
    float a[36] = {};
    float b[36] = {};
    float c[36];
    for (float& x : c) {
        x = 7.0F;
    }
    ABAT(a, b, c, 6, 6, 6, 6);
    for (float x : c) {
        EXPECT_EQ(x, 7.0F);
    }
}

TEST(Matrix, InverseOfIdentityIsIdentity) {
    const float id[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    float inv[9] = {};
    EXPECT_EQ(Array3x3_Inverse(id, inv), 0);
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(inv[i], id[i]) << "i=" << i;
    }
}

// A A^-1 = I for a general matrix.
TEST(Matrix, InverseTimesMatrixIsIdentity) {
    const float a[9] = {4, 7, 2, 3, 6, 1, 2, 5, 3};
    float inv[9] = {};
    ASSERT_EQ(Array3x3_Inverse(a, inv), 0);
    float prod[9] = {};
    array_multiply(a, inv, prod, 3, 3, 3, 3);
    for (int i = 0; i < 9; ++i) {
        EXPECT_NEAR(prod[i], i % 4 == 0 ? 1.0F : 0.0F, 1e-5F) << "i=" << i;
    }
}

TEST(Matrix, SingularInverseFailsAndLeavesOutputAlone) {
    const float a[9] = {1, 2, 3, 1, 2, 3, 0, 1, 4};  // two equal rows
    float inv[9];
    for (float& x : inv) {
        x = -5.0F;
    }
    EXPECT_EQ(Array3x3_Inverse(a, inv), -1);
    for (float x : inv) {
        EXPECT_EQ(x, -5.0F);
    }
}

TEST(Matrix, NormalizeScalesToUnitLength) {
    float v[2] = {3, 4};
    imu::vector_normalize(v, 2);
    EXPECT_FLOAT_EQ(v[0], 0.6F);
    EXPECT_FLOAT_EQ(v[1], 0.8F);
}

TEST(Matrix, NormalizeOfZeroVectorIsNotANumber) {
    float v[3] = {0, 0, 0};
    imu::vector_normalize(v, 3);
    for (float x : v) {
        EXPECT_TRUE(std::isnan(x));
    }
}

// Reversing y and z twice is the identity.
TEST(Matrix, AxisTransformReversesYAndZ) {
    const float in[3] = {1, 2, 3};
    float out[3] = {};
    imu::axis_transform(out, in);
    EXPECT_EQ(out[0], 1.0F);
    EXPECT_EQ(out[1], -2.0F);
    EXPECT_EQ(out[2], -3.0F);
    float back[3] = {};
    imu::axis_transform(back, out);
    EXPECT_EQ(back[0], 1.0F);
    EXPECT_EQ(back[1], 2.0F);
    EXPECT_EQ(back[2], 3.0F);
}

}  // namespace
