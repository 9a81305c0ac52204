// Four lanes of SSE4.1.
#pragma once

#include <smmintrin.h>

#include <cstdint>

#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/vector_lanes.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

struct I32x4 {
    static constexpr int lanes = 4;
    __m128i v;
};

/// Products of the low halves of 64-bit lanes. clang takes the instruction for a product of 64 bits and
/// makes three of it where it has lost sight of where a factor comes from, so it isn't told what it is.
VSP_INLINE __m128i product32(__m128i a, __m128i b)
{
#if !defined(__clang__)
    return _mm_mul_epi32(a, b);
#elif defined(__AVX__)
    __m128i product;
    asm("vpmuldq %2, %1, %0" : "=x"(product) : "x"(a), "x"(b));
    return product;
#else
    asm("pmuldq %1, %0" : "+x"(a) : "x"(b));
    return a;
#endif
}
VSP_INLINE __m128i oddLanes(__m128i a)
{
    return _mm_srli_epi64(a, 32);
}
VSP_INLINE __m128i joinEvenOdd(__m128i even, __m128i odd)
{
    return _mm_blend_epi16(even, odd, 0xCC);
}

VSP_INLINE I32x4 wrapAbs(I32x4 a)
{
    return {_mm_abs_epi32(a.v)};
}
VSP_INLINE unsigned maskBits(I32x4 mask)
{
    return unsigned(_mm_movemask_ps(_mm_castsi128_ps(mask.v)));
}
VSP_INLINE I32x4 mulShift16(I32x4 a, I32x4 b)
{
    const __m128i even = _mm_srli_epi64(product32(a.v, b.v), 16);
    const __m128i odd = _mm_slli_epi64(product32(oddLanes(a.v), oddLanes(b.v)), 16);
    return {joinEvenOdd(even, odd)};
}
VSP_INLINE I32x4 mulRoundQ31(I32x4 a, I32x4 b)
{
    const __m128i half = _mm_set1_epi64x(1 << 30);
    const __m128i even = _mm_add_epi64(product32(a.v, b.v), half);
    const __m128i odd = _mm_add_epi64(product32(oddLanes(a.v), oddLanes(b.v)), half);
    return {joinEvenOdd(_mm_srli_epi64(even, 31), _mm_slli_epi64(odd, 1))};
}
VSP_INLINE I32x4 mulShort(I32x4 a, I32x4 b)
{
    return {_mm_madd_epi16(_mm_blend_epi16(a.v, _mm_setzero_si128(), 0xAA), b.v)};
}
VSP_INLINE I32x4 mulHighUnsigned16(I32x4 a, I32x4 b)
{
    return {_mm_mulhi_epu16(a.v, b.v)};
}
VSP_INLINE I32x4 normalisingFactor(I32x4 a)
{
    // The exponent of a float is the place of the top bit; clearing lower bits keeps rounding out.
    const __m128i top = _mm_andnot_si128(_mm_srli_epi32(a.v, 1), a.v);
    const __m128i exponent = _mm_srli_epi32(_mm_castps_si128(_mm_cvtepi32_ps(top)), 23);
    const __m128i inverse = _mm_sub_epi32(_mm_set1_epi32(2 * 127 + 30), exponent);
    return {_mm_cvttps_epi32(_mm_castsi128_ps(_mm_slli_epi32(inverse, 23)))};
}
VSP_INLINE I32x4 reverse(I32x4 a)
{
    return {_mm_shuffle_epi32(a.v, _MM_SHUFFLE(0, 1, 2, 3))};
}

VSP_INLINE void unzip(__m128i low, __m128i high, I32x4& a, I32x4& b)
{
    const __m128 l = _mm_castsi128_ps(low);
    const __m128 h = _mm_castsi128_ps(high);
    a.v = _mm_castps_si128(_mm_shuffle_ps(l, h, _MM_SHUFFLE(2, 0, 2, 0)));
    b.v = _mm_castps_si128(_mm_shuffle_ps(l, h, _MM_SHUFFLE(3, 1, 3, 1)));
}
VSP_INLINE void loadPairs(const ComplexInt* p, I32x4& re, I32x4& im)
{
    const auto* q = reinterpret_cast<const __m128i*>(p);
    unzip(_mm_loadu_si128(q), _mm_loadu_si128(q + 1), re, im);
}
VSP_INLINE void storePairs(ComplexInt* p, I32x4 re, I32x4 im)
{
    auto* q = reinterpret_cast<__m128i*>(p);
    _mm_storeu_si128(q, _mm_unpacklo_epi32(re.v, im.v));
    _mm_storeu_si128(q + 1, _mm_unpackhi_epi32(re.v, im.v));
}
VSP_INLINE void splitShorts(__m128i x, I32x4& a, I32x4& b)
{
    a.v = _mm_srai_epi32(_mm_slli_epi32(x, 16), 16);
    b.v = _mm_srai_epi32(x, 16);
}
VSP_INLINE __m128i joinShorts(I32x4 a, I32x4 b)
{
    return _mm_blend_epi16(a.v, _mm_slli_epi32(b.v, 16), 0xAA);
}
template <class Pair>
VSP_INLINE void loadShortPairs(const Pair* p, I32x4& a, I32x4& b)
{
    splitShorts(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), a, b);
}
template <class Pair>
VSP_INLINE void storeShortPairs(Pair* p, I32x4 a, I32x4 b)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), joinShorts(a, b));
}
VSP_INLINE void storeSaturated(int16_t* p, I32x4 a, I32x4 b)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_packs_epi32(a.v, b.v));
}
VSP_INLINE I32x4 loadShorts(const int16_t* p, I32x4)
{
    return {_mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)))};
}

/// The conversion gives INT32_MIN for all that doesn't fit.
VSP_INLINE I32x4 loadQ15(const float* p, I32x4)
{
    const __m128 scaled = _mm_mul_ps(_mm_loadu_ps(p), _mm_set1_ps(32768.0f));
    const __m128 known = _mm_and_ps(scaled, _mm_cmpord_ps(scaled, scaled));
    return {_mm_cvttps_epi32(_mm_min_ps(known, _mm_set1_ps(32767.0f)))};
}

VSP_INLINE void transpose(I32x4& a, I32x4& b, I32x4& c, I32x4& d)
{
    const __m128i ab0 = _mm_unpacklo_epi32(a.v, b.v);
    const __m128i ab1 = _mm_unpackhi_epi32(a.v, b.v);
    const __m128i cd0 = _mm_unpacklo_epi32(c.v, d.v);
    const __m128i cd1 = _mm_unpackhi_epi32(c.v, d.v);
    a.v = _mm_unpacklo_epi64(ab0, cd0);
    b.v = _mm_unpackhi_epi64(ab0, cd0);
    c.v = _mm_unpacklo_epi64(ab1, cd1);
    d.v = _mm_unpackhi_epi64(ab1, cd1);
}
VSP_INLINE void loadColumns(const int32_t* const (&block)[4], I32x4 (&x)[8])
{
    for (int half = 0; half < 8; half += 4) {
        for (int l = 0; l < 4; ++l)
            x[half + l] = load(block[l] + half, I32x4{});
        transpose(x[half], x[half + 1], x[half + 2], x[half + 3]);
    }
}

VSP_INLINE void turnFourBins(I32x4 (&x)[2])
{
    const __m128i swapOdd0 = _mm_shuffle_epi32(x[0].v, _MM_SHUFFLE(2, 3, 1, 0));
    const __m128i swapOdd1 = _mm_shuffle_epi32(x[1].v, _MM_SHUFFLE(2, 3, 1, 0));
    x[0].v = _mm_sign_epi32(swapOdd0, _mm_setr_epi32(1, 1, -1, 1));
    x[1].v = _mm_sign_epi32(swapOdd1, _mm_setr_epi32(-1, -1, 1, -1));
}

struct ProductSumX4 {
    __m128i v;
};
VSP_INLINE ProductSumX4 productSum(I32x4)
{
    return {_mm_setzero_si128()};
}
VSP_INLINE void addShortProducts(ProductSumX4& sum, const int16_t* a, const int16_t* b)
{
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
    const __m128i pairs = _mm_madd_epi16(_mm_max_epi16(x, _mm_set1_epi16(kLowestFactor)), y);
    sum.v = _mm_add_epi64(sum.v, _mm_cvtepi32_epi64(pairs));
    sum.v = _mm_add_epi64(sum.v, _mm_cvtepi32_epi64(_mm_unpackhi_epi64(pairs, pairs)));
}
VSP_INLINE int64_t total(ProductSumX4 sum)
{
    return int64_t(uint64_t(sum.v[0]) + uint64_t(sum.v[1]));
}

VSP_INLINE I32x4 loadTwo(const int32_t* p, I32x4)
{
    return {_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))};
}
VSP_INLINE void storeTwo(int32_t* p, I32x4 a)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), a.v);
}
VSP_INLINE __m128i lowHalvesOfLanes(I32x4 a)
{
    const __m128i order = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1);
    return _mm_shuffle_epi8(a.v, order);
}
VSP_INLINE void storeLowFrame(Frame* p, I32x4 a)
{
    const int32_t frame = _mm_cvtsi128_si32(lowHalvesOfLanes(a));
    __builtin_memcpy(p, &frame, sizeof frame);
}
VSP_INLINE void storeHighFrame(Frame* p, I32x4 a)
{
    const __m128i order =
        _mm_setr_epi8(8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const int32_t frame = _mm_cvtsi128_si32(_mm_shuffle_epi8(a.v, order));
    __builtin_memcpy(p, &frame, sizeof frame);
}
VSP_INLINE void storeTwoFrames(Frame* p, I32x4 a)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), lowHalvesOfLanes(a));
}
VSP_INLINE void storeTwoFramesSaturated(Frame* p, I32x4 a)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packs_epi32(a.v, a.v));
}

/// Two bins, or four phasors, that lie wherever they lie.
VSP_INLINE __m128i twoBins(const ComplexInt* a, const ComplexInt* b)
{
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)));
}
VSP_INLINE __m128i fourPhasors(const ComplexShort* P, const int16_t* bins)
{
    int32_t phasor[4];
    for (int i = 0; i < 4; ++i)
        __builtin_memcpy(phasor + i, P + bins[i], sizeof *phasor);
    return _mm_setr_epi32(phasor[0], phasor[1], phasor[2], phasor[3]);
}
VSP_INLINE __m128i twoPhasorPairs(const ComplexShort* a, const ComplexShort* b)
{
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(a)),
                              _mm_loadl_epi64(reinterpret_cast<const __m128i*>(b)));
}
VSP_INLINE void pickBins(const ComplexInt* X, const int16_t* bins, I32x4& re, I32x4& im)
{
    unzip(twoBins(X + bins[0], X + bins[1]), twoBins(X + bins[2], X + bins[3]), re, im);
}
VSP_INLINE void pickBins(const ComplexShort* P, const int16_t* bins, I32x4& re, I32x4& im)
{
    splitShorts(fourPhasors(P, bins), re, im);
}
VSP_INLINE __m128i loadBinPair(const ComplexInt* X)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(X));
}
VSP_INLINE void pickPairs(const ComplexInt* X, const int16_t* first, I32x4& re, I32x4& im)
{
    unzip(loadBinPair(X + first[0]), loadBinPair(X + first[1]), re, im);
}
VSP_INLINE void pickPairs(const ComplexShort* P, const int16_t* first, I32x4& re, I32x4& im)
{
    splitShorts(twoPhasorPairs(P + first[0], P + first[1]), re, im);
}
VSP_INLINE void putPairs(ComplexInt* X, const int16_t* first, I32x4 re, I32x4 im)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(X + first[0]), _mm_unpacklo_epi32(re.v, im.v));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(X + first[1]), _mm_unpackhi_epi32(re.v, im.v));
}
VSP_INLINE void putPhasorPairs(ComplexShort* a, ComplexShort* b, __m128i pairs)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(a), pairs);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(b), _mm_unpackhi_epi64(pairs, pairs));
}
VSP_INLINE void putPairs(ComplexShort* P, const int16_t* first, I32x4 re, I32x4 im)
{
    putPhasorPairs(P + first[0], P + first[1], joinShorts(re, im));
}
VSP_INLINE I32x4 loadTwice(const int32_t* p, I32x4)
{
    const __m128i x = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    return {_mm_unpacklo_epi32(x, x)};
}

// ---- Factors shifted up by 16 leave what is wanted in the high half of a product ----
VSP_INLINE Raised<I32x4> raised(I32x4 a)
{
    return {{_mm_slli_epi32(a.v, 16)}};
}
VSP_INLINE void raiseShorts(__m128i x, Raised<I32x4>& a, Raised<I32x4>& b)
{
    a.v.v = _mm_slli_epi32(x, 16);
    b.v.v = _mm_blend_epi16(x, _mm_setzero_si128(), 0x55);
}
template <class Pair>
VSP_INLINE void loadRaisedPairs(const Pair* p, Raised<I32x4>& a, Raised<I32x4>& b)
{
    raiseShorts(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), a, b);
}
VSP_INLINE void pickRaisedPairs(const ComplexShort* P, const int16_t* first, Raised<I32x4>& re,
                                Raised<I32x4>& im)
{
    raiseShorts(twoPhasorPairs(P + first[0], P + first[1]), re, im);
}
VSP_INLINE I32x4 mulShift16(I32x4 a, Raised<I32x4> b)
{
    const __m128i even = oddLanes(product32(a.v, b.v.v));
    return {joinEvenOdd(even, product32(oddLanes(a.v), oddLanes(b.v.v)))};
}
VSP_INLINE __m128i sumOfProducts(__m128i a, __m128i b, __m128i c, __m128i d)
{
    return _mm_add_epi32(product32(a, b), product32(c, d));
}
/// Even and odd lanes are joined when the sums are there.
VSP_INLINE void times(I32x4& outRe, I32x4& outIm, I32x4 xRe, I32x4 xIm, Raised<I32x4> wRe,
                      Raised<I32x4> wIm)
{
    const __m128i minus = wrapSub(I32x4{_mm_setzero_si128()}, wIm.v).v;
    const __m128i evenRe = sumOfProducts(xRe.v, wRe.v.v, xIm.v, minus);
    const __m128i evenIm = sumOfProducts(xRe.v, wIm.v.v, xIm.v, wRe.v.v);
    const __m128i oddRe =
        sumOfProducts(oddLanes(xRe.v), oddLanes(wRe.v.v), oddLanes(xIm.v), oddLanes(minus));
    const __m128i oddIm =
        sumOfProducts(oddLanes(xRe.v), oddLanes(wIm.v.v), oddLanes(xIm.v), oddLanes(wRe.v.v));
    outRe.v = joinEvenOdd(oddLanes(evenRe), oddRe);
    outIm.v = joinEvenOdd(oddLanes(evenIm), oddIm);
}

/// The odd lanes of a factor.
VSP_INLINE Factors<I32x4> oddFactors(Factors<I32x4> w)
{
    return {{oddLanes(w.re.v)}, {oddLanes(w.im.v)}};
}
VSP_INLINE SameFactor<I32x4> oddFactors(SameFactor<I32x4> w)
{
    return w;
}
/// Sums and differences of rounded products are taken before even and odd lanes are joined.
template <class W>
VSP_INLINE void mulComplexQ31(I32x4& outRe, I32x4& outIm, I32x4 xRe, I32x4 xIm, W w)
{
    const __m128i half = _mm_set1_epi64x(1 << 30);
    const auto even = [=](I32x4 a, I32x4 b) {
        return _mm_srli_epi64(_mm_add_epi64(product32(a.v, b.v), half), 31);
    };
    const auto odd = [=](I32x4 a, I32x4 b) {
        return _mm_slli_epi64(_mm_add_epi64(product32(oddLanes(a.v), b.v), half), 1);
    };
    const W o = oddFactors(w);
    outRe.v = joinEvenOdd(_mm_sub_epi32(even(xRe, w.re), even(xIm, w.im)),
                          _mm_sub_epi32(odd(xRe, o.re), odd(xIm, o.im)));
    outIm.v = joinEvenOdd(_mm_add_epi32(even(xRe, w.im), even(xIm, w.re)),
                          _mm_add_epi32(odd(xRe, o.im), odd(xIm, o.re)));
}
/// Twice as large, products have their integers in the high half.
template <class W>
VSP_INLINE void mulSmallComplexQ31(I32x4& outRe, I32x4& outIm, I32x4 xRe, I32x4 xIm, W w)
{
    const __m128i half = _mm_set1_epi64x(int64_t(1) << 31);
    const auto product = [=](__m128i a, I32x4 b) { return _mm_add_epi64(product32(a, b.v), half); };
    const __m128i re = wrapAdd(xRe, xRe).v;
    const __m128i im = wrapAdd(xIm, xIm).v;
    const __m128i oddRe = oddLanes(re);
    const __m128i oddIm = oddLanes(im);
    const W o = oddFactors(w);
    outRe.v = joinEvenOdd(oddLanes(_mm_sub_epi32(product(re, w.re), product(im, w.im))),
                          _mm_sub_epi32(product(oddRe, o.re), product(oddIm, o.im)));
    outIm.v = joinEvenOdd(oddLanes(_mm_add_epi32(product(re, w.im), product(im, w.re))),
                          _mm_add_epi32(product(oddRe, o.im), product(oddIm, o.re)));
}

} // namespace vsp::VSP_KERNEL_SET
