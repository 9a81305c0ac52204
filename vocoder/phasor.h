// Arithmetic on unit phasors: turning, measuring a rotation, keeping the length, giving a magnitude
// a phase. Q14 throughout; results keep the low 16 bits.
#pragma once

#include "fixed/complex.h"

namespace vsp {

/// Interpolates magnitudes between two analysis frames and gives them the phases P.
/// @param X       [n] spectrum bins
/// @param M       [n] the interpolated magnitudes, (m0 * (1 - f) + m1 * f), each term truncated
/// @param m0, m1  [n] magnitudes of the older and the newer analysis frame
/// @param P       [n] unit phasors
/// @param f_q15   position between the two frames, 0 to 32767
void interpMagApplyPhase(ComplexInt* X, int32_t* M, const int32_t* m0, const int32_t* m1,
                         const ComplexShort* P, int f_q15, int n);

/// X = m * P: magnitudes that are not interpolated. All arrays [n].
void applyPhase(ComplexInt* X, const int32_t* m, const ComplexShort* P, int n);

/// Multiplies a spectrum [kBins] by a gain in Q14.
void scaleSpectrum(ComplexInt* X, int32_t gain_q14);

/// D = q * conj(p): the rotation from p to q. All arrays [kBins].
void phasorStep(ComplexShort* D, const ComplexShort* p, const ComplexShort* q);

/// a = a * b. Both [kBins].
void phasorMultiply(ComplexShort* a, const ComplexShort* b);

/// Brings the length of every phasor back towards 1.0, to first order. [kBins]
void phasorRenormalise(ComplexShort* a);

} // namespace vsp
