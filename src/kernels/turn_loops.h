// Phases locked between channels: what the analysis phases of a bin have to be turned by to follow
// the running phases, the same for all channels.
#pragma once

#include <cstdint>

#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "kernels/sizes.h"
#include "kernels/spectrum_loops.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// Lanes within 16 bits, Q28 to Q14, halves upward.
template <class V>
VSP_INLINE V roundQ14(V a)
{
    return shiftRight<14>(wrapAdd(a, set1(1 << 13, V{})));
}

/// p * q and p * conj(q) for Q14 phasors.
template <class V>
VSP_INLINE void turnBy(V& outRe, V& outIm, V pRe, V pIm, V qRe, V qIm)
{
    outRe = roundQ14(wrapSub(mulShort(pRe, qRe), mulShort(pIm, qIm)));
    outIm = roundQ14(wrapAdd(mulShort(pIm, qRe), mulShort(pRe, qIm)));
}
template <class V>
VSP_INLINE void turnBack(V& outRe, V& outIm, V pRe, V pIm, V qRe, V qIm)
{
    outRe = roundQ14(wrapAdd(mulShort(pRe, qRe), mulShort(pIm, qIm)));
    outIm = roundQ14(wrapSub(mulShort(pIm, qRe), mulShort(pRe, qIm)));
}

template <class V>
void sumTurns(ComplexInt* sum, const int32_t* const (&M)[2], const ComplexShort* const (&S)[2],
              const ComplexShort* const (&A)[2])
{
    forBinsBelowLast<V>([&](int k, auto lanes) {
        using W = decltype(lanes);
        W re = set1(0, W{});
        W im = re;
        for (int c = 0; c < 2; ++c) {
            W sRe, sIm, aRe, aIm, turnRe, turnIm;
            loadShortPairs(S[c] + k, sRe, sIm);
            loadShortPairs(A[c] + k, aRe, aIm);
            turnBack(turnRe, turnIm, sRe, sIm, aRe, aIm);
            const W m = shiftLeft<2>(load(M[c] + k, W{}));
            re = wrapAdd(re, mulShift16(m, turnRe));
            im = wrapAdd(im, mulShift16(m, turnIm));
        }
        storePairs(sum + k, re, im);
    });
}

/// x brought to length 1.0 within 0.4 %, as a Q14 phasor: one step of Newton's method on top of the
/// polynomial. Not for 0.
template <class V>
VSP_INLINE void unitPhasor(V& outRe, V& outIm, V re, V im)
{
    const Normalised<V> bin = Velora_VSP_InvMagPoly(re, im);
    const V nearRe = shiftRight<14>(mulShort(bin.re, bin.inverse));
    const V nearIm = shiftRight<14>(mulShort(bin.im, bin.inverse));
    const V square = wrapAdd(mulShort(nearRe, nearRe), mulShort(nearIm, nearIm));
    const V gain = shiftRight<15>(wrapSub(set1(3 << 28, V{}), square));
    outRe = roundQ14(mulShort(nearRe, gain));
    outIm = roundQ14(mulShort(nearIm, gain));
}

/// The same, but 1 for 0.
template <class V>
VSP_INLINE void phasorOf(V& outRe, V& outIm, V re, V im)
{
    const V silent = equal(max(wrapAbs(re), wrapAbs(im)), set1(0, V{}));
    unitPhasor(outRe, outIm, re, im);
    outRe = select(silent, set1(kOneQ14, V{}), outRe);
    outIm = select(silent, set1(0, V{}), outIm);
}

template <class V>
void exactMagPhase(int32_t* mag, ComplexShort* phasor, const ComplexInt* spec)
{
    forBins<V>(kBins, [=](int k, auto lanes) {
        using W = decltype(lanes);
        W re, im, pRe, pIm;
        loadPairs(spec + k, re, im);
        phasorOf(pRe, pIm, re, im);
        storeShortPairs(phasor + k, pRe, pIm);
        store(mag + k,
              wrapAdd(mulShift16(shiftLeft<2>(re), pRe), mulShift16(shiftLeft<2>(im), pIm)));
    });
}

/// Adds the bins `distance` below and above bin k, shifted down.
template <int distance, int shift, class V>
VSP_INLINE void addNeighbours(V& re, V& im, const ComplexInt* sum, int k)
{
    V belowRe, belowIm, aboveRe, aboveIm;
    loadPairs(sum + k - distance, belowRe, belowIm);
    loadPairs(sum + k + distance, aboveRe, aboveIm);
    re = wrapAdd(re, shiftRight<shift>(wrapAdd(belowRe, aboveRe)));
    im = wrapAdd(im, shiftRight<shift>(wrapAdd(belowIm, aboveIm)));
}

template <class V>
void commonTurns(ComplexShort* turns, const ComplexInt* sum)
{
    forBinsBelowLast<V>([=](int n, auto lanes) {
        using W = decltype(lanes);
        const int k = n + 1;
        W re, im, turnRe, turnIm;
        loadPairs(sum + k, re, im);
        addNeighbours<1, 1>(re, im, sum, k);
        addNeighbours<2, 5>(re, im, sum, k);
        phasorOf(turnRe, turnIm, re, im);
        storeShortPairs(turns + k, turnRe, turnIm);
    });
    const auto modulus = [=](int k) {
        return cheapModulus(I32x1{{sum[k].re}}, I32x1{{sum[k].im}}).v[0];
    };
    turns[0] = kPhaseZero;
    if (modulus(0) > modulus(1))
        turns[1] = kPhaseZero;
}

template <class V>
void applyTurns(ComplexInt* X, ComplexShort* S, const ComplexShort* turns, const int32_t* M,
                const ComplexShort* A, const ComplexShort* next, int n)
{
    forBins<V>(n, [=](int k, auto lanes) {
        using W = decltype(lanes);
        W turnRe, turnIm, aRe, aIm, re, im;
        loadShortPairs(turns + k, turnRe, turnIm);
        loadShortPairs(A + k, aRe, aIm);
        turnBy(re, im, turnRe, turnIm, aRe, aIm);
        const W m = shiftLeft<2>(load(M + k, W{}));
        storePairs(X + k, mulShift16(m, re), mulShift16(m, im));
        loadShortPairs(next + k, aRe, aIm);
        turnBy(re, im, turnRe, turnIm, aRe, aIm);
        storeShortPairs(S + k, re, im);
    });
}

} // namespace vsp::VSP_KERNEL_SET
