// The four lanes of the recursive filters as 64 bits each, two registers of SSE4.1.
#pragma once

#include <cstdint>

#include "fixed/frame.h"
#include "kernels/vector_sse41.h"
#include "kernels/vector_twice.h"

namespace vsp::VSP_KERNEL_SET {

/// Values are the low halves of 64-bit lanes, the high halves hold anything.
struct I64x2 {
    static constexpr int lanes = 2;
    using Word = int64_t;
    __m128i v;
};
VSP_INLINE I64x2 load(const int32_t* p, I64x2)
{
    return {_mm_cvtepu32_epi64(loadTwo(p, I32x4{}).v)};
}
VSP_INLINE I32x4 narrow(I64x2 a, I64x2 b)
{
    return {_mm_castps_si128(
        _mm_shuffle_ps(_mm_castsi128_ps(a.v), _mm_castsi128_ps(b.v), _MM_SHUFFLE(2, 0, 2, 0)))};
}
VSP_INLINE void store(int32_t* p, I64x2 a)
{
    storeTwo(p, narrow(a, a));
}

VSP_INLINE I64x2 load(const int64_t* p, I64x2)
{
    return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))};
}
VSP_INLINE void store(int64_t* p, I64x2 a)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), a.v);
}
VSP_INLINE void storeWords(int64_t* p, I32x4 a)
{
    store(p, I64x2{_mm_unpacklo_epi32(a.v, a.v)});
    store(p + 2, I64x2{_mm_unpackhi_epi32(a.v, a.v)});
}

using I32x4Wide = Twice<I64x2>;

VSP_INLINE I32x4 narrow(I32x4Wide a)
{
    return narrow(a.low, a.high);
}

/// Shifted up by 16, so that a product of two low halves doesn't lose what a shift by 30 brings back
/// into the low one.
struct WideCoeffs {
    I32x4Wide v;
};
VSP_INLINE WideCoeffs loadCoeffs(const int32_t* p, I32x4Wide)
{
    return {shiftLeft<16>(load(p, I32x4Wide{}))};
}
VSP_INLINE I32x4Wide multiplicand(I32x4Wide a)
{
    return a;
}
VSP_INLINE I64x2 mulQ14(I64x2 a, I64x2 shiftedUp)
{
    return {_mm_srli_epi64(product32(a.v, shiftedUp.v), 30)};
}
VSP_INLINE I32x4Wide mulQ14(I32x4Wide a, WideCoeffs b)
{
    return {mulQ14(a.low, b.v.low), mulQ14(a.high, b.v.high)};
}

struct Sums4Wide {
    __m128i low, high;
};
VSP_INLINE Sums4Wide unsignedSums(I32x4Wide a)
{
    const __m128i zero = _mm_setzero_si128();
    return {joinEvenOdd(a.low.v, zero), joinEvenOdd(a.high.v, zero)};
}
VSP_INLINE void addProducts(Sums4Wide& sum, I32x4Wide a, I32x4Wide b)
{
    sum.low = _mm_add_epi64(sum.low, product32(a.low.v, b.low.v));
    sum.high = _mm_add_epi64(sum.high, product32(a.high.v, b.high.v));
}
VSP_INLINE I32x4Wide highWords(Sums4Wide sum)
{
    return {{oddLanes(sum.low)}, {oddLanes(sum.high)}};
}
VSP_INLINE I32x4Wide lowWords(Sums4Wide sum)
{
    return {{sum.low}, {sum.high}};
}

struct PairSumsWide {
    __m128i v;
};
VSP_INLINE PairSumsWide pairSums(I32x4Wide)
{
    return {_mm_setzero_si128()};
}
VSP_INLINE void addProducts(PairSumsWide& sums, I32x4Wide a, I32x4Wide b)
{
    sums.v = _mm_add_epi64(sums.v, product32(a.low.v, b.low.v));
    sums.v = _mm_add_epi64(sums.v, product32(a.high.v, b.high.v));
}
VSP_INLINE int64_t total(PairSumsWide sums)
{
    return total(ProductSumX4{sums.v});
}
VSP_INLINE int64_t difference(PairSumsWide sums)
{
    return int64_t(uint64_t(sums.v[0]) - uint64_t(sums.v[1]));
}
VSP_INLINE I64x2 swapPairs(I64x2 a)
{
    return {_mm_shuffle_epi32(a.v, _MM_SHUFFLE(1, 0, 3, 2))};
}
VSP_INLINE I32x4Wide swapPairs(I32x4Wide a)
{
    return {swapPairs(a.low), swapPairs(a.high)};
}

template <int bits>
VSP_INLINE I32x4Wide loadFrameTwice(const Frame* p, I32x4Wide)
{
    int32_t frame;
    __builtin_memcpy(&frame, p, sizeof frame);
    const I64x2 half = shiftLeft<bits>(I64x2{_mm_cvtepi16_epi64(_mm_cvtsi32_si128(frame))});
    return {half, half};
}
VSP_INLINE I32x4Wide lowHalfTwice(I32x4Wide a)
{
    return {a.low, a.low};
}
VSP_INLINE I32x4Wide highHalfTwice(I32x4Wide a)
{
    return {a.high, a.high};
}
VSP_INLINE I32x4Wide joinHalves(I32x4Wide a, I32x4Wide b)
{
    return {a.low, b.high};
}
VSP_INLINE I32x4 joinLowHalves(I32x4Wide a, I32x4Wide b)
{
    return narrow(a.low, b.low);
}
VSP_INLINE I32x4 joinHighHalves(I32x4Wide a, I32x4Wide b)
{
    return narrow(a.high, b.high);
}
template <class Word>
VSP_INLINE I32x4Wide loadTwo(const Word* p, I32x4Wide)
{
    return {load(p, I64x2{}), {_mm_setzero_si128()}};
}
template <class Word>
VSP_INLINE void storeTwo(Word* p, I32x4Wide a)
{
    store(p, a.low);
}
VSP_INLINE I32x4Wide load(const int64_t* p, I32x4Wide)
{
    return {load(p, I64x2{}), load(p + 2, I64x2{})};
}
VSP_INLINE I32x4Wide loadTwoEach(const int64_t* p, const int64_t* q, I32x4Wide)
{
    return {load(p, I64x2{}), load(q, I64x2{})};
}
VSP_INLINE void storeTwoEach(int64_t* p, int64_t* q, I32x4Wide a)
{
    store(p, a.low);
    store(q, a.high);
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
