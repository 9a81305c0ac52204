// Magnitudes and unit phasors of spectrum bins, without division, square root or angles.
#pragma once

#include "fixed/complex.h"

namespace vsp {

/// Inverse magnitude as a cubic: coefficients c3, c2, c1, c0 of c0 + c1 v + c2 v^2 + c3 v^3, about
/// 16384 / sqrt(v) for v = 1 to 8, within -5 % and +3 %.
inline constexpr int16_t InvMagPolyCoeffs[4] = {-55, 986, -6289, 20934};

/// Leading zero bits of a positive value; 31 for 0, and 0 for a negative one.
VSP_INLINE constexpr int Velora_VSP_CountLeadingZeros(int32_t x)
{
    return x < 0 ? 0 : x == 0 ? 31 : __builtin_clz(uint32_t(x));
}

/// A complex value brought to 15 significant bits, and the factor that brings it to a unit phasor.
struct NormalisedBin {
    int32_t re;
    int32_t im;
    int32_t inverse; // inverse * modulus of (re, im) is about 2^28
};

/// For a value with max(|re|, |im|) > 0.
VSP_INLINE constexpr NormalisedBin Velora_VSP_InvMagPoly(int32_t re, int32_t im)
{
    const int32_t absRe = fx::wrapAbs(re);
    const int32_t absIm = fx::wrapAbs(im);
    const int zeros = Velora_VSP_CountLeadingZeros(absRe > absIm ? absRe : absIm);
    NormalisedBin bin{};
    if (zeros < 17) {
        bin.re = re >> (17 - zeros);
        bin.im = im >> (17 - zeros);
    } else {
        bin.re = fx::wrapShl(re, zeros - 17);
        bin.im = fx::wrapShl(im, zeros - 17);
    }
    // Unsigned, since two components of -32768 add up to 2^31. v = x / 4096.
    const uint32_t square =
        uint32_t(bin.re) * uint32_t(bin.re) + uint32_t(bin.im) * uint32_t(bin.im);
    const int32_t x = int32_t(square >> 16);
    int32_t t = fx::mulShift16(x, 16 * InvMagPolyCoeffs[0]);
    t = fx::mulShift16(x, 16 * (InvMagPolyCoeffs[1] + t));
    t = fx::mulShift16(x, 16 * (InvMagPolyCoeffs[2] + t));
    bin.inverse = InvMagPolyCoeffs[3] + t;
    return bin;
}

/// Cheap moduli and Q14 unit phasors of a spectrum; an all-zero bin has phase 0. All arrays
/// [kBins].
void Velora_VSP_MagPhase_Bins(int32_t* mag, ComplexShort* phasor, const ComplexInt* spec);

} // namespace vsp
