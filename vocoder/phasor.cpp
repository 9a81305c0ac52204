// Phasor arithmetic of the frame pipeline, as loops over bins.

#include "vocoder/phasor.h"

#include "vocoder/bands.h"

namespace vsp {

void interpMagApplyPhase(ComplexInt* X, int32_t* M, const int32_t* m0, const int32_t* m1,
                         const ComplexShort* P, int f_q15, int n)
{
    for (int k = 0; k < n; ++k)
        M[k] = fx::wrapAdd(fx::mulShift16(fx::wrapShl(m0[k], 1), 32768 - f_q15),
                           fx::mulShift16(fx::wrapShl(m1[k], 1), f_q15));
    applyPhase(X, M, P, n);
}

void applyPhase(ComplexInt* X, const int32_t* m, const ComplexShort* P, int n)
{
    for (int k = 0; k < n; ++k)
        X[k] = {fx::mulQ14(m[k], P[k].re), fx::mulQ14(m[k], P[k].im)};
}

void scaleSpectrum(ComplexInt* X, int32_t gain_q14)
{
    for (int k = 0; k < kBins; ++k)
        X[k] = {fx::mulQ14(X[k].re, gain_q14), fx::mulQ14(X[k].im, gain_q14)};
}

void phasorStep(ComplexShort* D, const ComplexShort* p, const ComplexShort* q)
{
    for (int k = 0; k < kBins; ++k) {
        const int32_t re = fx::mulQ14(p[k].re, q[k].re) + fx::mulQ14(p[k].im, q[k].im);
        const int32_t im = fx::mulQ14(p[k].re, q[k].im) + fx::mulQ14(-p[k].im, q[k].re);
        D[k] = {fx::low16(re), fx::low16(im)};
    }
}

void phasorMultiply(ComplexShort* a, const ComplexShort* b)
{
    for (int k = 0; k < kBins; ++k) {
        const int32_t re = fx::mulQ14(b[k].re, a[k].re) + fx::mulQ14(-b[k].im, a[k].im);
        const int32_t im = fx::mulQ14(b[k].im, a[k].re) + fx::mulQ14(b[k].re, a[k].im);
        a[k] = {fx::low16(re), fx::low16(im)};
    }
}

void phasorRenormalise(ComplexShort* a)
{
    for (int k = 0; k < kBins; ++k) {
        const int32_t gain_q16 = (32768 - cheapModulus(a[k].re, a[k].im)) << 2;
        a[k] = {fx::low16(fx::mulShift16(gain_q16, a[k].re)),
                fx::low16(fx::mulShift16(gain_q16, a[k].im))};
    }
}

} // namespace vsp
