// Constants of the magnitude and phasor extraction, which needs no division, square root or angle.
#pragma once

#include <cstdint>

#include "fixed/fixed.h"

namespace vsp {

/// Inverse magnitude as a cubic: coefficients c3, c2, c1, c0 of c0 + c1 v + c2 v^2 + c3 v^3, about
/// 16384 / sqrt(v) for v = 1 to 8, within -5 % and +3 %.
inline constexpr int16_t InvMagPolyCoeffs[4] = {-55, 986, -6289, 20934};

/// Leading zero bits of a positive value; 31 for 0, and 0 for a negative one.
VSP_INLINE constexpr int Velora_VSP_CountLeadingZeros(int32_t x)
{
    return __builtin_clz(uint32_t(x) | 1u);
}

} // namespace vsp
