#include "HVX/Base/Quantities.h"
#include "HVX/Base/Vector.h"

#include <gtest/gtest.h>

#include <cmath>

namespace nrq {
namespace {

TEST(VectorTest, ZeroInitialisedAndFromElements) {
    const Vector<float, 3> zero;
    EXPECT_EQ(zero[0], 0.0f);
    EXPECT_EQ(zero[2], 0.0f);
    const Vector<int, 2> v(3, 4);
    EXPECT_EQ(v[0], 3);
    EXPECT_EQ(v.y(), 4);
}

TEST(VectorTest, ElementsAreContiguous) {
    Vector<float, 4> v(1.0f, 2.0f, 3.0f, 4.0f);
    EXPECT_EQ(&v[1], &v[0] + 1);
    EXPECT_EQ(sizeof(v), 4 * sizeof(float));
    v[3] = 9.0f;
    EXPECT_EQ(v.w(), 9.0f);
    EXPECT_EQ(sizeof(Vector<Length, 3>), 12u);
    EXPECT_EQ(sizeof(Vector<unsigned char, 4>), 4u);
}

TEST(VectorTest, ComponentWiseArithmetic) {
    const Vector<float, 2> a(1.0f, 2.0f);
    const Vector<float, 2> b(3.0f, 5.0f);
    EXPECT_EQ(a + b, (Vector<float, 2>(4.0f, 7.0f)));
    EXPECT_EQ(b - a, (Vector<float, 2>(2.0f, 3.0f)));
    EXPECT_EQ(a * 2.0f, (Vector<float, 2>(2.0f, 4.0f)));
    EXPECT_EQ(b / 2.0f, (Vector<float, 2>(1.5f, 2.5f)));
    Vector<float, 2> c = a;
    c += b;
    c -= a;
    EXPECT_EQ(c, b);
}

TEST(VectorTest, LengthNormalisationDotCross) {
    const Vector<float, 3> v(3.0f, 4.0f, 0.0f);
    EXPECT_FLOAT_EQ(v.Magnitude(), 5.0f);
    EXPECT_EQ(v.Normalized(), (Vector<float, 3>(0.6f, 0.8f, 0.0f)));
    EXPECT_FLOAT_EQ(v.Dot(Vector<float, 3>(1.0f, 1.0f, 1.0f)), 7.0f);
    EXPECT_EQ((Vector<float, 3>(1.0f, 0.0f, 0.0f).Cross(Vector<float, 3>(0.0f, 1.0f, 0.0f))),
              (Vector<float, 3>(0.0f, 0.0f, 1.0f)));
}

TEST(VectorTest, ZeroVectorNormalisesToNaN) {
    const Vector<float, 2> zero;
    const auto n = zero.Normalized();
    EXPECT_TRUE(std::isnan(n[0]));
    EXPECT_TRUE(std::isnan(n[1]));
}

TEST(VectorTest, PositionsOfLengths) {
    const Vector<Length, 3> p(Length(0.1f), Length(0.2f), Length(0.0f));
    const auto q = p + Vector<Length, 3>(Length(0.1f), Length(0.0f), Length(0.5f));
    EXPECT_FLOAT_EQ(q.x().m(), 0.2f);
    EXPECT_FLOAT_EQ(q.z().mm(), 500.0f);
    EXPECT_FLOAT_EQ((p * 2.0f).y().m(), 0.4f);
}

} // namespace
} // namespace nrq
