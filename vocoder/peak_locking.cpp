// Keeps the bins around a spectral peak in step with it, so that a partial stays one sound: each
// takes the peak's synthesis phase plus the phase offset it had from the peak in the analysis.

#include "vocoder/peak_locking.h"

#include <algorithm>

#include "engine/velora_vsp.h"

namespace vsp {
namespace {

constexpr int32_t kPeakFloor = 100;

// X / |X| in Q16. Exactly on an axis the phase counts as 0.
VSP_INLINE ComplexInt unitQ16(ComplexInt X)
{
    if (X.re == 0 || X.im == 0)
        return {1 << 16, 0};
    const NormalisedBin bin = Velora_VSP_InvMagPoly(X.re, X.im);
    return {fx::wrapShl(fx::mulQ14(bin.re, bin.inverse), 2),
            fx::wrapShl(fx::mulQ14(bin.im, bin.inverse), 2)};
}

// x * conj(a) and x * a, with x two bits above the result and a in Q14.
VSP_INLINE ComplexInt timesConj(ComplexInt x, ComplexShort a)
{
    return {fx::wrapAdd(fx::mulShift16(x.re, a.re), fx::mulShift16(x.im, a.im)),
            fx::wrapAdd(fx::mulShift16(x.im, a.re), fx::mulShift16(x.re, -a.im))};
}

VSP_INLINE ComplexInt times(ComplexInt x, ComplexShort a)
{
    return {fx::wrapAdd(fx::mulShift16(x.re, a.re), fx::mulShift16(x.im, -a.im)),
            fx::wrapAdd(fx::mulShift16(x.re, a.im), fx::mulShift16(x.im, a.re))};
}

} // namespace

int findPeaks(int16_t* peakList, int& listed, const int32_t* mag, const int8_t* status,
              const int16_t (*bands)[kBands])
{
    int total = 0;
    listed = 0;
    int band = 0;
    for (int k = 2; k <= 254; ++k) {
        const int32_t neighbours = std::max({mag[k - 2], 0, mag[k - 1], mag[k + 1], mag[k + 2]});
        if (mag[k] > neighbours && mag[k] > kPeakFloor) {
            ++total;
            if (status[band] == 0)
                peakList[listed++] = int16_t(k);
        }
        if (k >= bands[1][band])
            ++band;
    }
    return total;
}

void peakRegions(PeakRegion* regions, const int16_t* peakList, int count)
{
    regions[0].first = int16_t(std::max(peakList[0] - 2, 2));
    for (int i = 0; i + 1 < count; ++i) {
        const int middle = (peakList[i] + peakList[i + 1]) >> 1;
        regions[i].last = int16_t(std::min(middle, peakList[i] + 2));
        regions[i + 1].first = int16_t(std::max(middle, peakList[i + 1] - 2));
    }
    regions[count - 1].last = int16_t(peakList[count - 1] + 2);
}

void lockRegion(ComplexInt* X, ComplexShort* S, const ComplexShort* A, int peak, PeakRegion region)
{
    const ComplexInt spectrumTurn_q14 = timesConj(unitQ16(X[peak]), A[peak]);
    const ComplexInt phasor_q16 = {S[peak].re * 4, S[peak].im * 4};
    const ComplexInt turned_q14 = timesConj(phasor_q16, A[peak]);
    const ComplexInt phasorTurn_q16 = {turned_q14.re * 4, turned_q14.im * 4};
    for (int j = region.first; j <= region.last; ++j) {
        if (j == peak)
            continue;
        const int32_t m = cheapModulus(X[j].re, X[j].im);
        const ComplexInt M = {fx::wrapShl(fx::mulQ14(m, spectrumTurn_q14.re), 2),
                              fx::wrapShl(fx::mulQ14(m, spectrumTurn_q14.im), 2)};
        X[j] = times(M, A[j]);
        const ComplexInt phasor = times(phasorTurn_q16, A[j]);
        S[j] = {fx::low16(phasor.re), fx::low16(phasor.im)};
    }
}

} // namespace vsp

using namespace vsp;

int Velora_VSP::peakphaselock(ComplexInt* X, int* mag, ComplexShort* A, ComplexShort* S,
                              signed char* status, const short (*bands)[10])
{
    int listed = 0;
    const int total = findPeaks(peakList, listed, mag, status, bands);
    if (listed == 0)
        return total;
    peakRegions(peakRegion, peakList, listed);
    for (int i = 0; i < listed; ++i)
        lockRegion(X, S, A, peakList[i], peakRegion[i]);
    return total;
}
