// Vectors in plain C++: one lane for tails and machines without SIMD, four for the recursive
// filters. The operations carry fixed.h's names and obey it lane by lane. The files of the other
// instruction sets offer the same ones; what each does is said here.
#pragma once

#include <cstdint>

#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/inverse_magnitude.h"
#include "kernels/vector_lanes.h"

namespace vsp::VSP_KERNEL_SET {

/// Complex values as words, re, im, re, im ..., and frames as samples, left, right, left, right ...
VSP_INLINE int32_t* words(ComplexInt* p)
{
    return reinterpret_cast<int32_t*>(p);
}
VSP_INLINE const int32_t* words(const ComplexInt* p)
{
    return reinterpret_cast<const int32_t*>(p);
}
VSP_INLINE int16_t* samples(Frame* p)
{
    return reinterpret_cast<int16_t*>(p);
}
VSP_INLINE const int16_t* samples(const Frame* p)
{
    return reinterpret_cast<const int16_t*>(p);
}

template <int n>
struct Scalar {
    static constexpr int lanes = n;
    using Word = int32_t;
    int32_t v[n];
};
using I32x1 = Scalar<1>;

template <int n, class F>
VSP_INLINE Scalar<n> perLane(F f)
{
    Scalar<n> out;
    for (int i = 0; i < n; ++i)
        out.v[i] = f(i);
    return out;
}

template <int n, class F, class... Rest>
VSP_INLINE Scalar<n> onSigned(F f, Scalar<n> a, Rest... rest)
{
    return perLane<n>([=](int i) { return f(a.v[i], rest.v[i]...); });
}
template <int n, class F, class... Rest>
VSP_INLINE Scalar<n> onUnsigned(F f, Scalar<n> a, Rest... rest)
{
    return perLane<n>([=](int i) { return int32_t(f(uint32_t(a.v[i]), uint32_t(rest.v[i])...)); });
}

template <int n>
VSP_INLINE Scalar<n> load(const int32_t* p, Scalar<n>)
{
    return perLane<n>([=](int i) { return p[i]; });
}
template <int n>
VSP_INLINE void store(int32_t* p, Scalar<n> a)
{
    for (int i = 0; i < n; ++i)
        p[i] = a.v[i];
}
template <int n>
VSP_INLINE Scalar<n> wrapAbs(Scalar<n> a)
{
    return perLane<n>([=](int i) { return fx::wrapAbs(a.v[i]); });
}
/// One bit for each lane of a mask.
template <int n>
VSP_INLINE unsigned maskBits(Scalar<n> mask)
{
    unsigned bits = 0;
    for (int i = 0; i < n; ++i)
        bits |= mask.v[i] != 0 ? 1u << i : 0u;
    return bits;
}
/// b from -65535 to 65535, as every gain, coefficient and phasor is.
template <int n>
VSP_INLINE Scalar<n> mulShift16(Scalar<n> a, Scalar<n> b)
{
    return perLane<n>([=](int i) { return fx::mulShift16(a.v[i], b.v[i]); });
}
template <int n>
VSP_INLINE Scalar<n> mulRoundQ31(Scalar<n> a, Scalar<n> b)
{
    return perLane<n>([=](int i) { return fx::mulRoundQ31(a.v[i], b.v[i]); });
}
/// a * b for lanes within 16 bits, exactly.
template <int n>
VSP_INLINE Scalar<n> mulShort(Scalar<n> a, Scalar<n> b)
{
    return perLane<n>([=](int i) { return a.v[i] * b.v[i]; });
}
/// (a * b) >> 16 for lanes of 0 to 65535.
template <int n>
VSP_INLINE Scalar<n> mulHighUnsigned16(Scalar<n> a, Scalar<n> b)
{
    return perLane<n>([=](int i) { return int32_t((uint32_t(a.v[i]) * uint32_t(b.v[i])) >> 16); });
}
/// 2^(leading zeros - 1) of positive lanes; of others anything.
template <int n>
VSP_INLINE Scalar<n> normalisingFactor(Scalar<n> a)
{
    return perLane<n>(
        [=](int i) { return int32_t((1u << Velora_VSP_CountLeadingZeros(a.v[i])) >> 1); });
}
template <int n>
VSP_INLINE Scalar<n> reverse(Scalar<n> a)
{
    return perLane<n>([=](int i) { return a.v[n - 1 - i]; });
}

/// Lanes of complex values: deinterleaved on loading, interleaved on storing.
template <int n>
VSP_INLINE void loadPairs(const ComplexInt* p, Scalar<n>& re, Scalar<n>& im)
{
    re = perLane<n>([=](int i) { return p[i].re; });
    im = perLane<n>([=](int i) { return p[i].im; });
}
template <int n>
VSP_INLINE void storePairs(ComplexInt* p, Scalar<n> re, Scalar<n> im)
{
    for (int i = 0; i < n; ++i)
        p[i] = {re.v[i], im.v[i]};
}
/// The same for 16-bit pairs: phasors, frames. Storing keeps the low 16 bits.
template <class Pair, int n>
VSP_INLINE void loadShortPairs(const Pair* p, Scalar<n>& a, Scalar<n>& b)
{
    const auto* s = reinterpret_cast<const int16_t*>(p);
    a = perLane<n>([=](int i) { return s[2 * i]; });
    b = perLane<n>([=](int i) { return s[2 * i + 1]; });
}
template <class Pair, int n>
VSP_INLINE void storeShortPairs(Pair* p, Scalar<n> a, Scalar<n> b)
{
    auto* s = reinterpret_cast<int16_t*>(p);
    for (int i = 0; i < n; ++i) {
        s[2 * i] = fx::low16(a.v[i]);
        s[2 * i + 1] = fx::low16(b.v[i]);
    }
}
/// Saturates and stores 2 n samples.
template <int n>
VSP_INLINE void storeSaturated(int16_t* p, Scalar<n> a, Scalar<n> b)
{
    for (int i = 0; i < n; ++i) {
        p[i] = fx::sat16(a.v[i]);
        p[n + i] = fx::sat16(b.v[i]);
    }
}
/// n samples, sign-extended.
template <int n>
VSP_INLINE Scalar<n> loadShorts(const int16_t* p, Scalar<n>)
{
    return perLane<n>([=](int i) { return p[i]; });
}

/// n floats as Q15, truncated toward zero. Not a number is 0; what is beyond 16 bits
/// is saturated, or stays beyond them where there is more than one lane.
template <int n>
VSP_INLINE Scalar<n> loadQ15(const float* p, Scalar<n>)
{
    return perLane<n>([=](int i) {
        const float scaled = p[i] * 32768.0f;
        // Clamped before the conversion, which has no value for anything beyond int32.
        const float known = scaled == scaled ? scaled : 0.0f;
        const float above = known > -32768.0f ? known : -32768.0f;
        return int32_t(above < 32767.0f ? above : 32767.0f);
    });
}

/// Column i of x: point i of each of the n blocks.
template <int n>
VSP_INLINE void loadColumns(const int32_t* const (&block)[n], Scalar<n> (&x)[8])
{
    for (int i = 0; i < 8; ++i)
        x[i] = perLane<n>([&](int l) { return block[l][i]; });
}

/// Four bins of a spectrum as they lie in memory, turned by i^k for the bins k = 0 to 3.
VSP_INLINE void turnFourBins(I32x1 (&x)[8])
{
    const I32x1 re1 = x[2];
    const I32x1 re3 = x[6];
    const I32x1 zero = {{0}};
    x[2] = wrapSub(zero, x[3]);
    x[3] = re1;
    x[4] = wrapSub(zero, x[4]);
    x[5] = wrapSub(zero, x[5]);
    x[6] = x[7];
    x[7] = wrapSub(zero, re3);
}

/// Sums of products modulo 2^64.
template <int n>
struct ProductSum {
    int64_t v = 0;
};
template <int n>
VSP_INLINE int64_t total(ProductSum<n> sum)
{
    return sum.v;
}
template <int n>
VSP_INLINE ProductSum<n> productSum(Scalar<n>)
{
    return {};
}

/// Adds the products of 2 n samples, where one of `a` below -32767 counts as that: so two beside each
/// other add up within 32 bits.
inline constexpr int16_t kLowestFactor = -INT16_MAX;
template <int n>
VSP_INLINE void addShortProducts(ProductSum<n>& sum, const int16_t* a, const int16_t* b)
{
    for (int i = 0; i < 2 * n; ++i)
        sum.v = fx::wrapAdd64(sum.v, int32_t(a[i] < kLowestFactor ? kLowestFactor : a[i]) * b[i]);
}

// ---- Four lanes for the recursive filters: left and right of two sections. What they leave for later
// loops is kept as Words, which a target may make as wide as its lanes. ----
using I32x4Scalar = Scalar<4>;

/// timesQ14: a b >> 14, for values a below 2^29 and Q14 coefficients b of a recursion. A target may
/// keep both in forms of its own, which loadCoeffs and multiplicand make and mulQ14 takes.
template <class V4>
VSP_INLINE V4 loadCoeffs(const int32_t* p, V4)
{
    return load(p, V4{});
}
template <class V4>
using CoeffsOf = decltype(loadCoeffs(static_cast<const int32_t*>(nullptr), V4{}));
template <class V4>
VSP_INLINE V4 multiplicand(V4 a)
{
    return shiftLeft<2>(a);
}
template <class V4>
VSP_INLINE V4 mulQ14(V4 a, V4 b)
{
    return mulShift16(a, b);
}
template <class V4, class Coeffs>
VSP_INLINE V4 timesQ14(V4 a, Coeffs b)
{
    return mulQ14(multiplicand(a), b);
}
/// As plain values for the steps behind the recursion.
template <class V4>
VSP_INLINE V4 narrow(V4 a)
{
    return a;
}

/// Sums of products modulo 2^64 of lanes 0 and 2, of lanes 1 and 3; both together, and the first less
/// the second.
struct PairSums {
    int64_t even = 0;
    int64_t odd = 0;
};
VSP_INLINE PairSums pairSums(I32x4Scalar)
{
    return {};
}
VSP_INLINE void addProducts(PairSums& sums, I32x4Scalar a, I32x4Scalar b)
{
    for (int i = 0; i < 4; i += 2) {
        sums.even = fx::wrapAdd64(sums.even, int64_t(a.v[i]) * b.v[i]);
        sums.odd = fx::wrapAdd64(sums.odd, int64_t(a.v[i + 1]) * b.v[i + 1]);
    }
}
VSP_INLINE int64_t total(PairSums sums)
{
    return fx::wrapAdd64(sums.even, sums.odd);
}
VSP_INLINE int64_t difference(PairSums sums)
{
    return int64_t(uint64_t(sums.even) - uint64_t(sums.odd));
}
template <class V>
VSP_INLINE void storeWords(int32_t* p, V a)
{
    store(p, a);
}
/// Lanes 1, 0, 3, 2.
VSP_INLINE I32x4Scalar swapPairs(I32x4Scalar a)
{
    return {{a.v[1], a.v[0], a.v[3], a.v[2]}};
}

/// left, right, left, right of one frame, with more fraction bits.
template <int bits>
VSP_INLINE I32x4Scalar loadFrameTwice(const Frame* p, I32x4Scalar)
{
    return shiftLeft<bits>(I32x4Scalar{{(*p)[0], (*p)[1], (*p)[0], (*p)[1]}});
}
/// Lanes 0, 1, 0, 1 and lanes 2, 3, 2, 3.
VSP_INLINE I32x4Scalar lowHalfTwice(I32x4Scalar a)
{
    return {{a.v[0], a.v[1], a.v[0], a.v[1]}};
}
VSP_INLINE I32x4Scalar highHalfTwice(I32x4Scalar a)
{
    return {{a.v[2], a.v[3], a.v[2], a.v[3]}};
}
/// Lanes 0 and 1 of a, 2 and 3 of b.
VSP_INLINE I32x4Scalar joinHalves(I32x4Scalar a, I32x4Scalar b)
{
    return {{a.v[0], a.v[1], b.v[2], b.v[3]}};
}

/// Lanes 0 and 1 of both, lanes 2 and 3 of both.
VSP_INLINE I32x4Scalar joinLowHalves(I32x4Scalar a, I32x4Scalar b)
{
    return {{a.v[0], a.v[1], b.v[0], b.v[1]}};
}
VSP_INLINE I32x4Scalar joinHighHalves(I32x4Scalar a, I32x4Scalar b)
{
    return {{a.v[2], a.v[3], b.v[2], b.v[3]}};
}

/// Two values in lanes 0 and 1; the other lanes are 0, or not stored.
VSP_INLINE I32x4Scalar loadTwo(const int32_t* p, I32x4Scalar)
{
    return {{p[0], p[1], 0, 0}};
}
VSP_INLINE void storeTwo(int32_t* p, I32x4Scalar a)
{
    p[0] = a.v[0];
    p[1] = a.v[1];
}
/// Lanes 0 and 1 at one place, lanes 2 and 3 at another.
VSP_INLINE I32x4Scalar loadTwoEach(const int32_t* p, const int32_t* q, I32x4Scalar)
{
    return {{p[0], p[1], q[0], q[1]}};
}
VSP_INLINE void storeTwoEach(int32_t* p, int32_t* q, I32x4Scalar a)
{
    p[0] = a.v[0];
    p[1] = a.v[1];
    q[0] = a.v[2];
    q[1] = a.v[3];
}
/// One frame: the low 16 bits of lanes 0 and 1, or of lanes 2 and 3.
VSP_INLINE void storeLowFrame(Frame* p, I32x4Scalar a)
{
    (*p)[0] = fx::low16(a.v[0]);
    (*p)[1] = fx::low16(a.v[1]);
}
VSP_INLINE void storeHighFrame(Frame* p, I32x4Scalar a)
{
    storeLowFrame(p, highHalfTwice(a));
}
/// Two frames: lanes 0 and 1, lanes 2 and 3; the low 16 bits of each, or saturated.
VSP_INLINE void storeTwoFrames(Frame* p, I32x4Scalar a)
{
    storeLowFrame(p, a);
    storeHighFrame(p + 1, a);
}
VSP_INLINE void storeTwoFramesSaturated(Frame* p, I32x4Scalar a)
{
    storeTwoFrames(p, perLane<4>([=](int i) { return fx::sat16(a.v[i]); }));
}

// ---- Bins picked from a spectrum ----
/// Bins bins[0], bins[1], ... of a spectrum, or of phasors.
template <int n>
VSP_INLINE void pickBins(const ComplexInt* X, const int16_t* bins, Scalar<n>& re, Scalar<n>& im)
{
    re = perLane<n>([=](int i) { return X[bins[i]].re; });
    im = perLane<n>([=](int i) { return X[bins[i]].im; });
}
template <int n>
VSP_INLINE void pickBins(const ComplexShort* P, const int16_t* bins, Scalar<n>& re, Scalar<n>& im)
{
    re = perLane<n>([=](int i) { return P[bins[i]].re; });
    im = perLane<n>([=](int i) { return P[bins[i]].im; });
}
/// Pairs of neighbours: bins first[0], first[0] + 1, first[1], first[1] + 1, ...
template <class Bin, int n>
VSP_INLINE void pickPairs(const Bin* X, const int16_t* first, Scalar<n>& re, Scalar<n>& im)
{
    re = perLane<n>([=](int i) { return X[first[i / 2] + i % 2].re; });
    im = perLane<n>([=](int i) { return X[first[i / 2] + i % 2].im; });
}
template <int n>
VSP_INLINE void putPairs(ComplexInt* X, const int16_t* first, Scalar<n> re, Scalar<n> im)
{
    for (int i = 0; i < n; ++i)
        X[first[i / 2] + i % 2] = {re.v[i], im.v[i]};
}
template <int n>
VSP_INLINE void putPairs(ComplexShort* P, const int16_t* first, Scalar<n> re, Scalar<n> im)
{
    for (int i = 0; i < n; ++i)
        P[first[i / 2] + i % 2] = {fx::low16(re.v[i]), fx::low16(im.v[i])};
}
/// p[0], p[0], p[1], p[1], ...
template <int n>
VSP_INLINE Scalar<n> loadTwice(const int32_t* p, Scalar<n>)
{
    return perLane<n>([=](int i) { return p[i / 2]; });
}

// ---- Factors within 16 bits, which a target may keep shifted up by 16 ----
template <class V>
struct Raised {
    V v;
};
template <class V>
VSP_INLINE Raised<V> raised(V a)
{
    return {a};
}
/// As loadShortPairs and pickPairs.
template <class Pair, class V>
VSP_INLINE void loadRaisedPairs(const Pair* p, Raised<V>& a, Raised<V>& b)
{
    loadShortPairs(p, a.v, b.v);
}
template <class V>
VSP_INLINE void pickRaisedPairs(const ComplexShort* P, const int16_t* first, Raised<V>& re,
                                Raised<V>& im)
{
    pickPairs(P, first, re.v, im.v);
}
template <class V>
VSP_INLINE V mulShift16(V a, Raised<V> b)
{
    return mulShift16(a, b.v);
}
/// x * w and x * conj(w), the components of w above -32768: the sums of two mulShift16 each.
template <class V>
VSP_INLINE void times(V& outRe, V& outIm, V xRe, V xIm, Raised<V> wRe, Raised<V> wIm)
{
    const V minusIm = wrapSub(set1(0, V{}), wIm.v);
    outRe = wrapAdd(mulShift16(xRe, wRe.v), mulShift16(xIm, minusIm));
    outIm = wrapAdd(mulShift16(xRe, wIm.v), mulShift16(xIm, wRe.v));
}
template <class V>
VSP_INLINE void timesConj(V& outRe, V& outIm, V xRe, V xIm, Raised<V> wRe, Raised<V> wIm)
{
    times(outIm, outRe, xIm, xRe, wRe, wIm);
}

// ---- Complex factors, Q31 ----
/// One for each lane, or the same one for all.
template <class V>
struct Factors {
    V re, im;
};
template <class V>
struct SameFactor {
    V re, im;
};
/// x * w with each product rounded by itself (mulRoundQ31).
template <class V, class W>
VSP_INLINE void mulComplexQ31(V& outRe, V& outIm, V xRe, V xIm, W w)
{
    outRe = wrapSub(mulRoundQ31(xRe, w.re), mulRoundQ31(xIm, w.im));
    outIm = wrapAdd(mulRoundQ31(xRe, w.im), mulRoundQ31(xIm, w.re));
}
/// The same for components of x below 2^30.
template <class V, class W>
VSP_INLINE void mulSmallComplexQ31(V& outRe, V& outIm, V xRe, V xIm, W w)
{
    mulComplexQ31(outRe, outIm, xRe, xIm, w);
}

} // namespace vsp::VSP_KERNEL_SET
