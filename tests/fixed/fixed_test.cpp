// Fixed-point operations at their corners, against exact integers.

#include "fixed/fixed.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace {

constexpr int32_t kCorners[] = {INT32_MIN, INT32_MIN + 1, -65536, -32768,        -3,       -1, 0, 1,
                                2,         32767,         65535,  INT32_MAX - 1, INT32_MAX};

int64_t floorDivide(int64_t a, int64_t b)
{
    return a / b - (a % b < 0 ? 1 : 0);
}

TEST(Fixed, MultipliesAgreeWithExactDivisionAtEveryCorner)
{
    for (int32_t a : kCorners)
        for (int32_t b : kCorners) {
            const int64_t product = int64_t(a) * b;
            const int64_t rounded = floorDivide(product + (int64_t(1) << 30), int64_t(1) << 31);
            if (a != INT32_MIN || b != INT32_MIN) {
                EXPECT_EQ(fx::mulRoundQ31(a, b), rounded);
            }
            EXPECT_EQ(fx::mulShift16(a, b), int32_t(uint32_t(floorDivide(product, 1 << 16))));
        }
}

TEST(Fixed, ShiftedProductsRoundTowardMinusInfinity)
{
    EXPECT_EQ(fx::mulShift16(-1, 1), -1);
    EXPECT_EQ(fx::mulShift16(1, -16384), -1);
    EXPECT_EQ(fx::mulRoundQ31(1, -(1 << 30)), 0) << "halves go up";
}

TEST(Fixed, MostNegativeValueStaysWhereNothingElseFits)
{
    EXPECT_EQ(fx::wrapNeg(INT32_MIN), INT32_MIN);
    EXPECT_EQ(fx::wrapAbs(INT32_MIN), INT32_MIN);
    EXPECT_EQ(fx::sat16(-40000), -32768);
    EXPECT_EQ(fx::low16(-40000), 25536);
}

} // namespace
