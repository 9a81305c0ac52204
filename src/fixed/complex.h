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

} // namespace vsp
