// Complex values of the vocoder: spectrum bins and unit phasors.
//
// Phases are never held as angles: a phase is a phasor of about unit length, turning it by an angle
// is a multiplication by another phasor. Every product term is truncated by itself before the sum.
#pragma once

#include "fixed/fixed.h"

namespace vsp {

struct ComplexInt {
    int32_t re;
    int32_t im;
};

/// A unit phasor in Q14.
struct ComplexShort {
    int16_t re;
    int16_t im;
};

/// 1.0 in Q14, and the phasor of phase 0.
inline constexpr int16_t kOneQ14 = 16384;
inline constexpr ComplexShort kPhaseZero = {kOneQ14, 0};

/// max(|re|, |im|) + min / 4 + min / 8: within -2.8 % and +6.8 % of the modulus, exact on the axes.
VSP_INLINE constexpr int32_t cheapModulus(int32_t re, int32_t im)
{
    const int32_t a = fx::wrapAbs(re);
    const int32_t b = fx::wrapAbs(im);
    const int32_t larger = a > b ? a : b;
    const int32_t smaller = a > b ? b : a;
    return fx::wrapAdd(fx::wrapAdd(larger, smaller >> 2), smaller >> 3);
}

/// i^k * x for k = 0 to 3, exactly.
VSP_INLINE constexpr ComplexInt turnQuarters(ComplexInt x, int quarters)
{
    switch (quarters) {
    case 1:
        return {fx::wrapNeg(x.im), x.re};
    case 2:
        return {fx::wrapNeg(x.re), fx::wrapNeg(x.im)};
    case 3:
        return {x.im, fx::wrapNeg(x.re)};
    default:
        return x;
    }
}

} // namespace vsp
