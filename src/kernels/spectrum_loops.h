// Loops over the bins of a spectrum.
#pragma once

#include <cstdint>

#include "fixed/cache_line.h"
#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/inverse_magnitude.h"
#include "kernels/sizes.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// Runs body(k, V{}) over bins 0 to n - 1: as many lanes as fit, then one by one.
template <class V, class Body>
VSP_INLINE void forBins(int n, Body body)
{
    int k = 0;
    if constexpr (V::lanes > 1)
        for (; k + V::lanes <= n; k += V::lanes)
            body(k, V{});
    for (; k < n; ++k)
        body(k, I32x1{});
}

/// The same for all bins below kLastBin, which is a whole number of vectors.
template <class V, class Body>
VSP_INLINE void forBinsBelowLast(Body body)
{
    static_assert(kLastBin % V::lanes == 0);
    for (int k = 0; k < kLastBin; k += V::lanes)
        body(k, V{});
}

template <class V>
void separateChannels(ComplexInt* left, ComplexInt* right, const int32_t* re, const int32_t* im)
{
    const auto pair = [=](int k, auto lanes) {
        using W = decltype(lanes);
        const int mirror = kFftN - k - (W::lanes - 1);
        const W a = load(re + k, W{});
        const W b = load(im + k, W{});
        const W aMirror = reverse(load(re + mirror, W{}));
        const W bMirror = reverse(load(im + mirror, W{}));
        storePairs(left + k, shiftRight<1>(wrapAdd(a, aMirror)),
                   shiftRight<1>(wrapSub(b, bMirror)));
        storePairs(right + k, shiftRight<1>(wrapAdd(b, bMirror)),
                   shiftRight<1>(wrapSub(aMirror, a)));
    };
    forBins<V>(kLastBin - 1, [&](int k, auto lanes) { pair(k + 1, lanes); });
    for (int k : {0, kLastBin}) {
        left[k] = {re[k], 0};
        right[k] = {im[k], 0};
    }
}

template <class V>
void mergeChannels(int32_t* re, int32_t* im, const ComplexInt* left, const ComplexInt* right)
{
    const auto pair = [=](int k, auto lanes) {
        using W = decltype(lanes);
        W lRe, lIm, rRe, rIm;
        loadPairs(left + k, lRe, lIm);
        loadPairs(right + k, rRe, rIm);
        const int mirror = kFftN - k - (W::lanes - 1);
        store(re + k, wrapSub(lRe, rIm));
        store(im + k, wrapSub(set1(0, W{}), wrapAdd(lIm, rRe)));
        store(re + mirror, reverse(wrapAdd(lRe, rIm)));
        store(im + mirror, reverse(wrapSub(lIm, rRe)));
    };
    forBins<V>(kLastBin - 1, [&](int k, auto lanes) { pair(k + 1, lanes); });
    for (int k : {0, kLastBin}) {
        re[k] = left[k].re;
        im[k] = fx::wrapNeg(right[k].re);
    }
}

/// The three-tap Hann window of kernel_table.h; spectra as they lie in memory, re and im alike.
template <class V>
VSP_INLINE void hannWindow(ComplexInt* out, const ComplexInt* X)
{
    const int32_t* const in = words(X + 1);
    int32_t* const windowed = words(out + 1);
    forBins<V>(2 * (kLastBin - 1), [=](int n, auto lanes) {
        using W = decltype(lanes);
        const W below = shiftRight<1>(load(in + n - 2, W{}));
        const W above = shiftRight<1>(load(in + n + 2, W{}));
        store(windowed + n, shiftRight<1>(wrapSub(wrapSub(load(in + n, W{}), below), above)));
    });
    out[0] = {fx::wrapSub(X[0].re, X[1].re) >> 1, X[0].im >> 1};
    out[kLastBin] = {fx::wrapSub(X[kLastBin].re, X[kLastBin - 1].re) >> 1, X[kLastBin].im >> 1};
}

/// Runs combine(x, n) over bins 0 to kLastBin - 1, four at a time: x is their words in vectors,
/// which go back as combine leaves them, n the number of the first word.
template <class V, class Combine>
VSP_INLINE void forFourBins(ComplexInt* sum, Combine combine)
{
    constexpr int kStep = 4; // bins
    static_assert(kLastBin % kStep == 0);
    constexpr int kVectors = 2 * kStep / V::lanes;
    for (int k = 0; k < kLastBin; k += kStep) {
        V x[kVectors];
        int32_t* const p = words(sum + k);
        for (int i = 0; i < kVectors; ++i)
            x[i] = load(p + i * V::lanes, V{});
        combine(x, 2 * k);
        for (int i = 0; i < kVectors; ++i)
            store(p + i * V::lanes, x[i]);
    }
}

template <class V>
void Velora_VSP_PartSp_AnalysisSum(ComplexInt* out, ComplexInt* sum, ComplexInt* slot,
                                   const ComplexInt* newest)
{
    int32_t* const leaving = words(slot);
    const int32_t* const entering = words(newest);
    forFourBins<V>(sum, [=](auto& x, int n) {
        for (auto& v : x) {
            const V hop = load(entering + n, V{});
            v = wrapAdd(wrapSub(v, load(leaving + n, V{})), hop);
            store(leaving + n, hop);
            n += V::lanes;
        }
        turnFourBins(x);
    });
    ComplexInt& last = sum[kLastBin];
    last = {fx::wrapAdd(fx::wrapSub(last.re, slot[kLastBin].re), newest[kLastBin].re),
            fx::wrapAdd(fx::wrapSub(last.im, slot[kLastBin].im), newest[kLastBin].im)};
    slot[kLastBin] = newest[kLastBin];
    hannWindow<V>(out, sum);
}

template <class V>
void Velora_VSP_PartSp_SynthesisSum(ComplexInt* sum, ComplexInt* slot, const ComplexInt* spec)
{
    alignas(kLine) ComplexInt windowed[kBins];
    hannWindow<V>(windowed, spec);
    const int32_t* const entering = words(windowed);
    int32_t* const leaving = words(slot);
    forFourBins<V>(sum, [=](auto& x, int n) {
        turnFourBins(x);
        for (auto& v : x) {
            const V w = load(entering + n, V{});
            v = wrapSub(wrapAdd(v, w), load(leaving + n, V{}));
            store(leaving + n, w);
            n += V::lanes;
        }
    });
    ComplexInt& last = sum[kLastBin];
    last = {fx::wrapSub(fx::wrapAdd(last.re, windowed[kLastBin].re), slot[kLastBin].re),
            fx::wrapSub(fx::wrapAdd(last.im, windowed[kLastBin].im), slot[kLastBin].im)};
    slot[kLastBin] = windowed[kLastBin];
}

/// max(|re|, |im|) + min / 4 + min / 8: within -2.8 % and +6.8 % of the modulus, exact on the axes.
template <class V>
VSP_INLINE V cheapModulus(V re, V im)
{
    const V a = wrapAbs(re);
    const V b = wrapAbs(im);
    const V smaller = min(a, b);
    return wrapAdd(wrapAdd(max(a, b), shiftRight<2>(smaller)), shiftRight<3>(smaller));
}

template <class V>
struct Normalised {
    V re, im, inverse;
};

/// Brings complex values (above INT32_MIN in both components, not 0) to 15 significant bits, and
/// gives the factor that brings them to unit phasors: factor * modulus is about 2^28.
template <class V>
VSP_INLINE Normalised<V> Velora_VSP_InvMagPoly(V re, V im)
{
    const V larger = max(wrapAbs(re), wrapAbs(im));
    // Up to the top bit but one, then down: 17 - n places to the right, or n - 17 to the left.
    const V factor = normalisingFactor(larger);
    Normalised<V> bin;
    bin.re = shiftRight<16>(mulLow(re, factor));
    bin.im = shiftRight<16>(mulLow(im, factor));
    const V x = shiftRightUnsigned<16>(wrapAdd(mulShort(bin.re, bin.re), mulShort(bin.im, bin.im)));
    // Horner's rule for x = 4096 v of 4096 to 32768, coefficients c times 16. Where a factor or a
    // product would not fit, 65536 is added to the factor, which adds x to the result.
    const auto factorOf = [](int i, int32_t added) {
        return set1(16 * InvMagPolyCoeffs[i] + added, V{});
    };
    V t = wrapSub(mulHighUnsigned16(x, factorOf(0, 65536)), x);
    t = mulHighUnsigned16(x, wrapAdd(factorOf(1, 0), shiftLeft<4>(t)));
    t = wrapSub(shiftRight<16>(mulLow(x, wrapAdd(factorOf(2, 65536), shiftLeft<4>(t)))), x);
    bin.inverse = wrapAdd(set1(InvMagPolyCoeffs[3], V{}), t);
    return bin;
}

template <class V>
void Velora_VSP_MagPhase_Bins(int32_t* mag, ComplexShort* phasor, const ComplexInt* spec)
{
    forBins<V>(kBins, [=](int k, auto lanes) {
        using W = decltype(lanes);
        W re, im;
        loadPairs(spec + k, re, im);
        const W modulus = cheapModulus(re, im);
        store(mag + k, modulus);
        const Normalised<W> bin = Velora_VSP_InvMagPoly(re, im);
        const W silent = equal(modulus, set1(0, W{}));
        const W pRe = shiftRight<14>(mulShort(bin.re, bin.inverse));
        const W pIm = shiftRight<14>(mulShort(bin.im, bin.inverse));
        storeShortPairs(phasor + k, select(silent, set1(kOneQ14, W{}), pRe),
                        select(silent, set1(0, W{}), pIm));
    });
}

template <class V>
void scaleOutput(Frame* out, const int32_t* re, const int32_t* im)
{
    for (int n = 0; n < kLowHop; n += V::lanes) {
        const V third = set1(0x5555, V{});
        const V left = mulShift16(shiftRight<8>(load(re + n, V{})), third);
        const V right = mulShift16(shiftRight<8>(wrapSub(set1(0, V{}), load(im + n, V{}))), third);
        const V lowest = set1(INT16_MIN, V{});
        const V highest = set1(INT16_MAX, V{});
        storeShortPairs(out + n, max(min(left, highest), lowest), max(min(right, highest), lowest));
    }
}

/// x * P for magnitudes x and Q14 phasors.
template <class V>
VSP_INLINE void storeWithPhase(ComplexInt* X, V x, const ComplexShort* P)
{
    Raised<V> pRe, pIm;
    loadRaisedPairs(P, pRe, pIm);
    const V m = shiftLeft<2>(x);
    storePairs(X, mulShift16(m, pRe), mulShift16(m, pIm));
}

template <class V>
void interpMagApplyPhase(ComplexInt* X, int32_t* M, const int32_t* m0, const int32_t* m1,
                         const ComplexShort* P, int f_q15, int n)
{
    forBins<V>(n, [=](int k, auto lanes) {
        using W = decltype(lanes);
        const W older = mulShift16(shiftLeft<1>(load(m0 + k, W{})), set1(32768 - f_q15, W{}));
        const W newer = mulShift16(shiftLeft<1>(load(m1 + k, W{})), set1(f_q15, W{}));
        const W m = wrapAdd(older, newer);
        store(M + k, m);
        storeWithPhase(X + k, m, P + k);
    });
}

template <class V>
void applyPhase(ComplexInt* X, const int32_t* m, const ComplexShort* P, int n)
{
    forBins<V>(n, [=](int k, auto lanes) {
        storeWithPhase(X + k, load(m + k, decltype(lanes){}), P + k);
    });
}

template <class V>
void scaleSpectrum(ComplexInt* X, int32_t gain_q14)
{
    int32_t* const x = words(X);
    forBins<V>(2 * kBins, [=](int n, auto lanes) {
        using W = decltype(lanes);
        store(x + n, mulShift16(shiftLeft<2>(load(x + n, W{})), set1(gain_q14, W{})));
    });
}

template <class V>
void phasorStep(ComplexShort* D, const ComplexShort* p, const ComplexShort* q)
{
    forBins<V>(kBins, [=](int k, auto lanes) {
        using W = decltype(lanes);
        W pRe, pIm, qRe, qIm;
        loadShortPairs(p + k, pRe, pIm);
        loadShortPairs(q + k, qRe, qIm);
        const W minus = wrapSub(set1(0, W{}), mulShort(pIm, qRe));
        storeShortPairs(
            D + k, wrapAdd(shiftRight<14>(mulShort(pRe, qRe)), shiftRight<14>(mulShort(pIm, qIm))),
            wrapAdd(shiftRight<14>(mulShort(pRe, qIm)), shiftRight<14>(minus)));
    });
}

/// The low 16 bits of each lane, sign-extended.
template <class V>
VSP_INLINE V low16(V a)
{
    return shiftRight<16>(shiftLeft<16>(a));
}

template <class V>
void phasorAdvance(ComplexShort* a, const ComplexShort* b)
{
    forBins<V>(kBins, [=](int k, auto lanes) {
        using W = decltype(lanes);
        W aRe, aIm, bRe, bIm;
        loadShortPairs(a + k, aRe, aIm);
        loadShortPairs(b + k, bRe, bIm);
        const W minus = wrapSub(set1(0, W{}), mulShort(bIm, aIm));
        const W re = low16(wrapAdd(shiftRight<14>(mulShort(bRe, aRe)), shiftRight<14>(minus)));
        const W im =
            low16(wrapAdd(shiftRight<14>(mulShort(bIm, aRe)), shiftRight<14>(mulShort(bRe, aIm))));
        // A gain of 32768 belongs to a phasor of length 0, where 32767 does the same.
        const W gain = min(wrapSub(set1(32768, W{}), cheapModulus(re, im)), set1(32767, W{}));
        storeShortPairs(a + k, shiftRight<14>(mulShort(gain, re)),
                        shiftRight<14>(mulShort(gain, im)));
    });
}

} // namespace vsp::VSP_KERNEL_SET
