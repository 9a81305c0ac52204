// Eight lanes of AVX2; the recursive filters take four of them.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/vector_lanes.h"
#include "kernels/vector_sse41.h"

namespace vsp::VSP_KERNEL_SET {

struct I32x8 {
    static constexpr int lanes = 8;
    __m256i v;
};

/// The same of eight lanes, for factors that stay while a loop runs; of others clang keeps sight.
VSP_INLINE __m256i product32(__m256i a, __m256i b)
{
#if !defined(__clang__)
    return _mm256_mul_epi32(a, b);
#else
    __m256i product;
    asm("vpmuldq %2, %1, %0" : "=x"(product) : "x"(a), "x"(b));
    return product;
#endif
}
VSP_INLINE __m256i oddLanes(__m256i a)
{
    return _mm256_srli_epi64(a, 32);
}
VSP_INLINE __m256i joinEvenOdd(__m256i even, __m256i odd)
{
    return _mm256_blend_epi32(even, odd, 0xAA);
}

VSP_INLINE I32x8 wrapAbs(I32x8 a)
{
    return {_mm256_abs_epi32(a.v)};
}
VSP_INLINE unsigned maskBits(I32x8 mask)
{
    return unsigned(_mm256_movemask_ps(_mm256_castsi256_ps(mask.v)));
}
VSP_INLINE I32x8 mulShift16(I32x8 a, I32x8 b)
{
    const __m256i even = _mm256_srli_epi64(product32(a.v, b.v), 16);
    const __m256i odd = _mm256_slli_epi64(product32(oddLanes(a.v), oddLanes(b.v)), 16);
    return {joinEvenOdd(even, odd)};
}
VSP_INLINE I32x8 mulRoundQ31(I32x8 a, I32x8 b)
{
    const __m256i half = _mm256_set1_epi64x(1 << 30);
    const __m256i even = _mm256_add_epi64(_mm256_mul_epi32(a.v, b.v), half);
    const __m256i odd = _mm256_add_epi64(_mm256_mul_epi32(oddLanes(a.v), oddLanes(b.v)), half);
    return {joinEvenOdd(_mm256_srli_epi64(even, 31), _mm256_slli_epi64(odd, 1))};
}
VSP_INLINE I32x8 mulShort(I32x8 a, I32x8 b)
{
    return {_mm256_madd_epi16(_mm256_blend_epi16(a.v, _mm256_setzero_si256(), 0xAA), b.v)};
}
VSP_INLINE I32x8 mulHighUnsigned16(I32x8 a, I32x8 b)
{
    return {_mm256_mulhi_epu16(a.v, b.v)};
}
VSP_INLINE I32x8 normalisingFactor(I32x8 a)
{
    const __m256i top = _mm256_andnot_si256(_mm256_srli_epi32(a.v, 1), a.v);
    const __m256i exponent = _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(top)), 23);
    const __m256i inverse = _mm256_sub_epi32(_mm256_set1_epi32(2 * 127 + 30), exponent);
    return {_mm256_cvttps_epi32(_mm256_castsi256_ps(_mm256_slli_epi32(inverse, 23)))};
}
VSP_INLINE I32x8 reverse(I32x8 a)
{
    return {_mm256_permutevar8x32_epi32(a.v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0))};
}

VSP_INLINE __m256i join128(__m128i low, __m128i high)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
}
VSP_INLINE void unzip(__m256i low, __m256i high, I32x8& a, I32x8& b)
{
    const __m256 l = _mm256_castsi256_ps(low);
    const __m256 h = _mm256_castsi256_ps(high);
    a.v = _mm256_castps_si256(_mm256_shuffle_ps(l, h, _MM_SHUFFLE(2, 0, 2, 0)));
    b.v = _mm256_castps_si256(_mm256_shuffle_ps(l, h, _MM_SHUFFLE(3, 1, 3, 1)));
}
VSP_INLINE void splitShorts(__m256i x, I32x8& a, I32x8& b)
{
    a.v = _mm256_srai_epi32(_mm256_slli_epi32(x, 16), 16);
    b.v = _mm256_srai_epi32(x, 16);
}
VSP_INLINE __m256i joinShorts(I32x8 a, I32x8 b)
{
    return _mm256_blend_epi16(a.v, _mm256_slli_epi32(b.v, 16), 0xAA);
}
VSP_INLINE void loadPairs(const ComplexInt* p, I32x8& re, I32x8& im)
{
    unzip(join128(loadBinPair(p), loadBinPair(p + 4)),
          join128(loadBinPair(p + 2), loadBinPair(p + 6)), re, im);
}
VSP_INLINE void storePairs(ComplexInt* p, I32x8 re, I32x8 im)
{
    auto* q = reinterpret_cast<__m128i*>(p);
    const __m256i low = _mm256_unpacklo_epi32(re.v, im.v);
    const __m256i high = _mm256_unpackhi_epi32(re.v, im.v);
    _mm_storeu_si128(q, _mm256_castsi256_si128(low));
    _mm_storeu_si128(q + 1, _mm256_castsi256_si128(high));
    _mm_storeu_si128(q + 2, _mm256_extracti128_si256(low, 1));
    _mm_storeu_si128(q + 3, _mm256_extracti128_si256(high, 1));
}
template <class Pair>
VSP_INLINE void loadShortPairs(const Pair* p, I32x8& a, I32x8& b)
{
    splitShorts(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), a, b);
}
template <class Pair>
VSP_INLINE void storeShortPairs(Pair* p, I32x8 a, I32x8 b)
{
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), joinShorts(a, b));
}
VSP_INLINE void storeSaturated(int16_t* p, I32x8 a, I32x8 b)
{
    _mm256_storeu_si256(
        reinterpret_cast<__m256i*>(p),
        _mm256_permute4x64_epi64(_mm256_packs_epi32(a.v, b.v), _MM_SHUFFLE(3, 1, 2, 0)));
}
VSP_INLINE I32x8 loadShorts(const int16_t* p, I32x8)
{
    return {_mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)))};
}

/// The conversion gives INT32_MIN for all that doesn't fit.
VSP_INLINE I32x8 loadQ15(const float* p, I32x8)
{
    const __m256 scaled = _mm256_mul_ps(_mm256_loadu_ps(p), _mm256_set1_ps(32768.0f));
    const __m256 known = _mm256_and_ps(scaled, _mm256_cmp_ps(scaled, scaled, _CMP_ORD_Q));
    return {_mm256_cvttps_epi32(_mm256_min_ps(known, _mm256_set1_ps(32767.0f)))};
}

VSP_INLINE void loadColumns(const int32_t* const (&block)[8], I32x8 (&x)[8])
{
    // Rows l and l + 4 side by side, then two 4 x 4 transpositions at once for each half.
    for (int half = 0; half < 8; half += 4) {
        __m256i row[4];
        for (int l = 0; l < 4; ++l)
            row[l] =
                _mm256_inserti128_si256(_mm256_castsi128_si256(load(block[l] + half, I32x4{}).v),
                                        load(block[l + 4] + half, I32x4{}).v, 1);
        const __m256i ab0 = _mm256_unpacklo_epi32(row[0], row[1]);
        const __m256i ab1 = _mm256_unpackhi_epi32(row[0], row[1]);
        const __m256i cd0 = _mm256_unpacklo_epi32(row[2], row[3]);
        const __m256i cd1 = _mm256_unpackhi_epi32(row[2], row[3]);
        x[half].v = _mm256_unpacklo_epi64(ab0, cd0);
        x[half + 1].v = _mm256_unpackhi_epi64(ab0, cd0);
        x[half + 2].v = _mm256_unpacklo_epi64(ab1, cd1);
        x[half + 3].v = _mm256_unpackhi_epi64(ab1, cd1);
    }
}

VSP_INLINE void turnFourBins(I32x8 (&x)[1])
{
    const __m256i swapOdd = _mm256_shuffle_epi32(x[0].v, _MM_SHUFFLE(2, 3, 1, 0));
    x[0].v = _mm256_sign_epi32(swapOdd, _mm256_setr_epi32(1, 1, -1, 1, -1, -1, 1, -1));
}

struct ProductSumX8 {
    __m256i v;
};
VSP_INLINE ProductSumX8 productSum(I32x8)
{
    return {_mm256_setzero_si256()};
}
VSP_INLINE void addShortProducts(ProductSumX8& sum, const int16_t* a, const int16_t* b)
{
    const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a));
    const __m256i y = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b));
    const __m256i pairs =
        _mm256_madd_epi16(_mm256_max_epi16(x, _mm256_set1_epi16(kLowestFactor)), y);
    sum.v = _mm256_add_epi64(sum.v, _mm256_cvtepi32_epi64(_mm256_castsi256_si128(pairs)));
    sum.v = _mm256_add_epi64(sum.v, _mm256_cvtepi32_epi64(_mm256_extracti128_si256(pairs, 1)));
}
VSP_INLINE int64_t total(ProductSumX8 sum)
{
    return total(ProductSumX4{
        _mm_add_epi64(_mm256_castsi256_si128(sum.v), _mm256_extracti128_si256(sum.v, 1))});
}

VSP_INLINE void pickBins(const ComplexInt* X, const int16_t* bins, I32x8& re, I32x8& im)
{
    unzip(join128(twoBins(X + bins[0], X + bins[1]), twoBins(X + bins[4], X + bins[5])),
          join128(twoBins(X + bins[2], X + bins[3]), twoBins(X + bins[6], X + bins[7])), re, im);
}
VSP_INLINE void pickBins(const ComplexShort* P, const int16_t* bins, I32x8& re, I32x8& im)
{
    splitShorts(join128(fourPhasors(P, bins), fourPhasors(P, bins + 4)), re, im);
}
VSP_INLINE void pickPairs(const ComplexInt* X, const int16_t* first, I32x8& re, I32x8& im)
{
    unzip(join128(loadBinPair(X + first[0]), loadBinPair(X + first[2])),
          join128(loadBinPair(X + first[1]), loadBinPair(X + first[3])), re, im);
}
VSP_INLINE void pickPairs(const ComplexShort* P, const int16_t* first, I32x8& re, I32x8& im)
{
    splitShorts(join128(twoPhasorPairs(P + first[0], P + first[1]),
                        twoPhasorPairs(P + first[2], P + first[3])),
                re, im);
}
VSP_INLINE void putPairs(ComplexInt* X, const int16_t* first, I32x8 re, I32x8 im)
{
    const __m256i low = _mm256_unpacklo_epi32(re.v, im.v);
    const __m256i high = _mm256_unpackhi_epi32(re.v, im.v);
    const auto put = [=](int i, __m128i pair) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(X + first[i]), pair);
    };
    put(0, _mm256_castsi256_si128(low));
    put(1, _mm256_castsi256_si128(high));
    put(2, _mm256_extracti128_si256(low, 1));
    put(3, _mm256_extracti128_si256(high, 1));
}
VSP_INLINE void putPairs(ComplexShort* P, const int16_t* first, I32x8 re, I32x8 im)
{
    const __m256i pairs = joinShorts(re, im);
    putPhasorPairs(P + first[0], P + first[1], _mm256_castsi256_si128(pairs));
    putPhasorPairs(P + first[2], P + first[3], _mm256_extracti128_si256(pairs, 1));
}
VSP_INLINE I32x8 loadTwice(const int32_t* p, I32x8)
{
    const __m256i x = _mm256_castsi128_si256(load(p, I32x4{}).v);
    return {_mm256_permutevar8x32_epi32(x, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3))};
}

// ---- Factors shifted up by 16 leave what is wanted in the high half of a product ----
VSP_INLINE Raised<I32x8> raised(I32x8 a)
{
    return {{_mm256_slli_epi32(a.v, 16)}};
}
VSP_INLINE void raiseShorts(__m256i x, Raised<I32x8>& a, Raised<I32x8>& b)
{
    a.v.v = _mm256_slli_epi32(x, 16);
    b.v.v = _mm256_blend_epi16(x, _mm256_setzero_si256(), 0x55);
}
template <class Pair>
VSP_INLINE void loadRaisedPairs(const Pair* p, Raised<I32x8>& a, Raised<I32x8>& b)
{
    raiseShorts(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), a, b);
}
VSP_INLINE void pickRaisedPairs(const ComplexShort* P, const int16_t* first, Raised<I32x8>& re,
                                Raised<I32x8>& im)
{
    raiseShorts(join128(twoPhasorPairs(P + first[0], P + first[1]),
                        twoPhasorPairs(P + first[2], P + first[3])),
                re, im);
}
VSP_INLINE I32x8 mulShift16(I32x8 a, Raised<I32x8> b)
{
    const __m256i even = oddLanes(product32(a.v, b.v.v));
    return {joinEvenOdd(even, product32(oddLanes(a.v), oddLanes(b.v.v)))};
}
VSP_INLINE __m256i sumOfProducts(__m256i a, __m256i b, __m256i c, __m256i d)
{
    return _mm256_add_epi32(product32(a, b), product32(c, d));
}
/// Even and odd lanes are joined when the sums are there.
VSP_INLINE void times(I32x8& outRe, I32x8& outIm, I32x8 xRe, I32x8 xIm, Raised<I32x8> wRe,
                      Raised<I32x8> wIm)
{
    const __m256i minus = wrapSub(I32x8{_mm256_setzero_si256()}, wIm.v).v;
    const __m256i evenRe = sumOfProducts(xRe.v, wRe.v.v, xIm.v, minus);
    const __m256i evenIm = sumOfProducts(xRe.v, wIm.v.v, xIm.v, wRe.v.v);
    const __m256i oddRe =
        sumOfProducts(oddLanes(xRe.v), oddLanes(wRe.v.v), oddLanes(xIm.v), oddLanes(minus));
    const __m256i oddIm =
        sumOfProducts(oddLanes(xRe.v), oddLanes(wIm.v.v), oddLanes(xIm.v), oddLanes(wRe.v.v));
    outRe.v = joinEvenOdd(oddLanes(evenRe), oddRe);
    outIm.v = joinEvenOdd(oddLanes(evenIm), oddIm);
}

/// The odd lanes of a factor.
VSP_INLINE Factors<I32x8> oddFactors(Factors<I32x8> w)
{
    return {{oddLanes(w.re.v)}, {oddLanes(w.im.v)}};
}
VSP_INLINE SameFactor<I32x8> oddFactors(SameFactor<I32x8> w)
{
    return w;
}
/// Sums and differences of rounded products are taken before even and odd lanes are joined.
template <class W>
VSP_INLINE void mulComplexQ31(I32x8& outRe, I32x8& outIm, I32x8 xRe, I32x8 xIm, W w)
{
    const __m256i half = _mm256_set1_epi64x(1 << 30);
    const auto even = [=](I32x8 a, I32x8 b) {
        return _mm256_srli_epi64(_mm256_add_epi64(_mm256_mul_epi32(a.v, b.v), half), 31);
    };
    const auto odd = [=](I32x8 a, I32x8 b) {
        return _mm256_slli_epi64(_mm256_add_epi64(_mm256_mul_epi32(oddLanes(a.v), b.v), half), 1);
    };
    const W o = oddFactors(w);
    outRe.v = joinEvenOdd(_mm256_sub_epi32(even(xRe, w.re), even(xIm, w.im)),
                          _mm256_sub_epi32(odd(xRe, o.re), odd(xIm, o.im)));
    outIm.v = joinEvenOdd(_mm256_add_epi32(even(xRe, w.im), even(xIm, w.re)),
                          _mm256_add_epi32(odd(xRe, o.im), odd(xIm, o.re)));
}
/// Twice as large, products have their integers in the high half.
template <class W>
VSP_INLINE void mulSmallComplexQ31(I32x8& outRe, I32x8& outIm, I32x8 xRe, I32x8 xIm, W w)
{
    const __m256i half = _mm256_set1_epi64x(int64_t(1) << 31);
    const auto product = [=](__m256i a, I32x8 b) {
        return _mm256_add_epi64(_mm256_mul_epi32(a, b.v), half);
    };
    const __m256i re = wrapAdd(xRe, xRe).v;
    const __m256i im = wrapAdd(xIm, xIm).v;
    const __m256i oddRe = oddLanes(re);
    const __m256i oddIm = oddLanes(im);
    const W o = oddFactors(w);
    outRe.v = joinEvenOdd(oddLanes(_mm256_sub_epi32(product(re, w.re), product(im, w.im))),
                          _mm256_sub_epi32(product(oddRe, o.re), product(oddIm, o.im)));
    outIm.v = joinEvenOdd(oddLanes(_mm256_add_epi32(product(re, w.im), product(im, w.re))),
                          _mm256_add_epi32(product(oddRe, o.im), product(oddIm, o.re)));
}

// ---- Four lanes of 64 bits for the recursive filters: values are the low halves, the high halves
// hold anything. Coefficients are shifted up by 16, so that a product of two low halves doesn't lose
// what a shift by 30 brings back into the low one. ----
struct I32x4Wide {
    static constexpr int lanes = 4;
    using Word = int64_t;
    __m256i v;
};
struct WideCoeffs {
    __m256i v;
};

VSP_INLINE I32x4 narrow(I32x4Wide a)
{
    const __m256i order = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
    return {_mm256_castsi256_si128(_mm256_permutevar8x32_epi32(a.v, order))};
}
VSP_INLINE I32x4Wide widen(I32x4 a)
{
    return {_mm256_cvtepu32_epi64(a.v)};
}
VSP_INLINE I32x4Wide load(const int32_t* p, I32x4Wide)
{
    return widen(load(p, I32x4{}));
}
VSP_INLINE void store(int32_t* p, I32x4Wide a)
{
    store(p, narrow(a));
}
VSP_INLINE WideCoeffs loadCoeffs(const int32_t* p, I32x4Wide)
{
    return {_mm256_cvtepi32_epi64(shiftLeft<16>(load(p, I32x4{})).v)};
}
struct Sums4Wide {
    __m256i v;
};
VSP_INLINE Sums4Wide unsignedSums(I32x4Wide a)
{
    return {joinEvenOdd(a.v, _mm256_setzero_si256())};
}
VSP_INLINE void addProducts(Sums4Wide& sum, I32x4Wide a, I32x4Wide b)
{
    sum.v = _mm256_add_epi64(sum.v, product32(a.v, b.v));
}
VSP_INLINE I32x4Wide highWords(Sums4Wide sum)
{
    return {oddLanes(sum.v)};
}
VSP_INLINE I32x4Wide lowWords(Sums4Wide sum)
{
    return {sum.v};
}
struct PairSumsWide {
    __m256i v;
};
VSP_INLINE PairSumsWide pairSums(I32x4Wide)
{
    return {_mm256_setzero_si256()};
}
VSP_INLINE void addProducts(PairSumsWide& sums, I32x4Wide a, I32x4Wide b)
{
    sums.v = _mm256_add_epi64(sums.v, product32(a.v, b.v));
}
VSP_INLINE __m128i halvesTogether(PairSumsWide sums)
{
    return _mm_add_epi64(_mm256_castsi256_si128(sums.v), _mm256_extracti128_si256(sums.v, 1));
}
VSP_INLINE int64_t total(PairSumsWide sums)
{
    return total(ProductSumX4{halvesTogether(sums)});
}
VSP_INLINE int64_t difference(PairSumsWide sums)
{
    const __m128i both = halvesTogether(sums);
    return int64_t(uint64_t(both[0]) - uint64_t(both[1]));
}
VSP_INLINE I32x4Wide swapPairs(I32x4Wide a)
{
    return {_mm256_shuffle_epi32(a.v, _MM_SHUFFLE(1, 0, 3, 2))};
}
VSP_INLINE I32x4Wide multiplicand(I32x4Wide a)
{
    return a;
}
VSP_INLINE I32x4Wide mulQ14(I32x4Wide a, WideCoeffs b)
{
    return {_mm256_srli_epi64(product32(a.v, b.v), 30)};
}
template <int bits>
VSP_INLINE I32x4Wide loadFrameTwice(const Frame* p, I32x4Wide)
{
    int32_t frame;
    __builtin_memcpy(&frame, p, sizeof frame);
    const __m256i places =
        _mm256_setr_epi8(-1, -1, 0, 1, -1, -1, -1, -1, -1, -1, 2, 3, -1, -1, -1, -1, -1, -1, 0, 1,
                         -1, -1, -1, -1, -1, -1, 2, 3, -1, -1, -1, -1);
    return {_mm256_srai_epi32(_mm256_shuffle_epi8(_mm256_set1_epi32(frame), places), 16 - bits)};
}
VSP_INLINE I32x4Wide lowHalfTwice(I32x4Wide a)
{
    return {_mm256_permute4x64_epi64(a.v, _MM_SHUFFLE(1, 0, 1, 0))};
}
VSP_INLINE I32x4Wide highHalfTwice(I32x4Wide a)
{
    return {_mm256_permute4x64_epi64(a.v, _MM_SHUFFLE(3, 2, 3, 2))};
}
VSP_INLINE I32x4Wide joinHalves(I32x4Wide a, I32x4Wide b)
{
    return {_mm256_blend_epi32(a.v, b.v, 0xF0)};
}
VSP_INLINE __m256i lowHalves(I32x4Wide a, I32x4Wide b)
{
    return _mm256_castps_si256(_mm256_shuffle_ps(_mm256_castsi256_ps(a.v), _mm256_castsi256_ps(b.v),
                                                 _MM_SHUFFLE(2, 0, 2, 0)));
}
VSP_INLINE I32x4 joinLowHalves(I32x4Wide a, I32x4Wide b)
{
    return {_mm256_castsi256_si128(lowHalves(a, b))};
}
VSP_INLINE I32x4 joinHighHalves(I32x4Wide a, I32x4Wide b)
{
    return {_mm256_extracti128_si256(lowHalves(a, b), 1)};
}
VSP_INLINE I32x4Wide load(const int64_t* p, I32x4Wide)
{
    return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))};
}
VSP_INLINE void storeWords(int64_t* p, I32x8 a)
{
    auto* const q = reinterpret_cast<__m256i*>(p);
    _mm256_storeu_si256(q, _mm256_cvtepu32_epi64(_mm256_castsi256_si128(a.v)));
    _mm256_storeu_si256(q + 1, _mm256_cvtepu32_epi64(_mm256_extracti128_si256(a.v, 1)));
}
VSP_INLINE __m128i twoWords(const int64_t* p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
VSP_INLINE I32x4Wide loadTwo(const int64_t* p, I32x4Wide)
{
    return {join128(twoWords(p), _mm_setzero_si128())};
}
VSP_INLINE I32x4Wide loadTwo(const int32_t* p, I32x4Wide)
{
    return widen(loadTwo(p, I32x4{}));
}
VSP_INLINE void storeTwo(int64_t* p, I32x4Wide a)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(a.v));
}
VSP_INLINE void storeTwo(int32_t* p, I32x4Wide a)
{
    storeTwo(p, narrow(a));
}
VSP_INLINE I32x4Wide loadTwoEach(const int64_t* p, const int64_t* q, I32x4Wide)
{
    return {join128(twoWords(p), twoWords(q))};
}
VSP_INLINE void storeTwoEach(int64_t* p, int64_t* q, I32x4Wide a)
{
    storeTwo(p, a);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q), _mm256_extracti128_si256(a.v, 1));
}
VSP_INLINE I32x4Wide loadTwoEach(const int32_t* p, const int32_t* q, I32x4Wide)
{
    return widen({_mm_unpacklo_epi64(loadTwo(p, I32x4{}).v, loadTwo(q, I32x4{}).v)});
}
VSP_INLINE void storeTwoEach(int32_t* p, int32_t* q, I32x4Wide a)
{
    const __m128i x = narrow(a).v;
    storeTwo(p, I32x4{x});
    _mm_storeh_pd(reinterpret_cast<double*>(q), _mm_castsi128_pd(x));
}
VSP_INLINE void loadFramePairs(const int32_t* p, const int32_t* q, I32x4Wide& a, I32x4Wide& b)
{
    const __m256i pairs = join128(load(p, I32x4{}).v, load(q, I32x4{}).v);
    a.v = _mm256_unpacklo_epi32(pairs, pairs);
    b.v = _mm256_unpackhi_epi32(pairs, pairs);
}
VSP_INLINE void storeFramePairs(int32_t* p, int32_t* q, I32x4Wide a, I32x4Wide b)
{
    const __m256i pairs = lowHalves(a, b);
    store(p, I32x4{_mm256_castsi256_si128(pairs)});
    store(q, I32x4{_mm256_extracti128_si256(pairs, 1)});
}
VSP_INLINE void storeHighFrame(Frame* p, I32x4Wide a)
{
    storeHighFrame(p, narrow(a));
}
VSP_INLINE void storeTwoFrames(Frame* p, I32x4Wide a)
{
    storeTwoFrames(p, narrow(a));
}

} // namespace vsp::VSP_KERNEL_SET
