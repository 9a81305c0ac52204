// Four lanes of NEON, for armv7 and aarch64.
#pragma once

#include <arm_neon.h>

#include <cstdint>

#include "fixed/complex.h"
#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/vector_lanes.h"
#include "kernels/vector_scalar.h"
#include "kernels/vector_twice.h"

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "frames are loaded and stored as words: big-endian ARM takes the portable kernels"
#endif

namespace vsp::VSP_KERNEL_SET {

struct I32x4 {
    static constexpr int lanes = 4;
    using Word = int32_t;
    int32x4_t v;
};

// As intrinsics, since GCC would make a - (b - c) of a butterfly a + (c - b), one operation more.
VSP_INLINE I32x4 wrapAdd(I32x4 a, I32x4 b)
{
    return {vaddq_s32(a.v, b.v)};
}
VSP_INLINE I32x4 wrapSub(I32x4 a, I32x4 b)
{
    return {vsubq_s32(a.v, b.v)};
}
VSP_INLINE I32x4 wrapAbs(I32x4 a)
{
    return {vabsq_s32(a.v)};
}
VSP_INLINE unsigned maskBits(I32x4 mask)
{
    static const int32_t kBit[4] = {1, 2, 4, 8};
    const int32x4_t bits = vandq_s32(mask.v, vld1q_s32(kBit));
    const int32x2_t halves = vadd_s32(vget_low_s32(bits), vget_high_s32(bits));
    return unsigned(vget_lane_s32(vpadd_s32(halves, halves), 0));
}
VSP_INLINE unsigned maskBits(Twice<I32x4> mask)
{
    static const uint8_t kBit[8] = {1, 2, 4, 8, 16, 32, 64, 128};
    const int16x8_t words = vcombine_s16(vmovn_s32(mask.low.v), vmovn_s32(mask.high.v));
    uint8x8_t bits = vand_u8(vreinterpret_u8_s8(vmovn_s16(words)), vld1_u8(kBit));
    for (int i = 0; i < 3; ++i)
        bits = vpadd_u8(bits, bits);
    return vget_lane_u8(bits, 0);
}
/// (2 a b 2^15) >> 32 is the same, since b is above -65536.
VSP_INLINE I32x4 mulShift16(I32x4 a, I32x4 b)
{
    return {vqdmulhq_s32(a.v, vshlq_n_s32(b.v, 15))};
}
VSP_INLINE I32x4 mulRoundQ31(I32x4 a, I32x4 b)
{
    return {vqrdmulhq_s32(a.v, b.v)};
}
VSP_INLINE I32x4 mulShort(I32x4 a, I32x4 b)
{
    return {vmulq_s32(a.v, b.v)};
}
VSP_INLINE I32x4 mulHighUnsigned16(I32x4 a, I32x4 b)
{
    return shiftRightUnsigned<16>(mulLow(a, b));
}
VSP_INLINE I32x4 normalisingFactor(I32x4 a)
{
    return {vshlq_s32(vdupq_n_s32(1), vsubq_s32(vclzq_s32(a.v), vdupq_n_s32(1)))};
}
VSP_INLINE I32x4 reverse(I32x4 a)
{
    const int32x4_t pairs = vrev64q_s32(a.v);
    return {vcombine_s32(vget_high_s32(pairs), vget_low_s32(pairs))};
}

VSP_INLINE void loadPairs(const ComplexInt* p, I32x4& re, I32x4& im)
{
    const int32x4x2_t x = vld2q_s32(words(p));
    re.v = x.val[0];
    im.v = x.val[1];
}
VSP_INLINE void storePairs(ComplexInt* p, I32x4 re, I32x4 im)
{
    const int32x4x2_t pairs = {{re.v, im.v}};
    vst2q_s32(words(p), pairs);
}
template <class Pair>
VSP_INLINE void loadShortPairs(const Pair* p, I32x4& a, I32x4& b)
{
    const int16x4x2_t x = vld2_s16(reinterpret_cast<const int16_t*>(p));
    a.v = vmovl_s16(x.val[0]);
    b.v = vmovl_s16(x.val[1]);
}
template <class Pair>
VSP_INLINE void storeShortPairs(Pair* p, I32x4 a, I32x4 b)
{
    const int16x4x2_t pairs = {{vmovn_s32(a.v), vmovn_s32(b.v)}};
    vst2_s16(reinterpret_cast<int16_t*>(p), pairs);
}
VSP_INLINE void storeSaturated(int16_t* p, I32x4 a, I32x4 b)
{
    vst1q_s16(p, vcombine_s16(vqmovn_s32(a.v), vqmovn_s32(b.v)));
}
VSP_INLINE I32x4 loadShorts(const int16_t* p, I32x4)
{
    return {vmovl_s16(vld1_s16(p))};
}

/// The conversion saturates, and gives 0 for what is not a number.
VSP_INLINE I32x4 loadQ15(const float* p, I32x4)
{
    return {vcvtq_s32_f32(vmulq_n_f32(vld1q_f32(p), 32768.0f))};
}

VSP_INLINE void transpose(I32x4& a, I32x4& b, I32x4& c, I32x4& d)
{
    const int32x4x2_t ab = vtrnq_s32(a.v, b.v);
    const int32x4x2_t cd = vtrnq_s32(c.v, d.v);
    a.v = vcombine_s32(vget_low_s32(ab.val[0]), vget_low_s32(cd.val[0]));
    b.v = vcombine_s32(vget_low_s32(ab.val[1]), vget_low_s32(cd.val[1]));
    c.v = vcombine_s32(vget_high_s32(ab.val[0]), vget_high_s32(cd.val[0]));
    d.v = vcombine_s32(vget_high_s32(ab.val[1]), vget_high_s32(cd.val[1]));
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
    static const int32_t kNegate[8] = {0, 0, -1, 0, -1, -1, 0, -1};
    for (int i = 0; i < 2; ++i) {
        const int32x4_t swapOdd =
            vcombine_s32(vget_low_s32(x[i].v), vrev64_s32(vget_high_s32(x[i].v)));
        const int32x4_t negate = vld1q_s32(kNegate + 4 * i);
        x[i].v = vsubq_s32(veorq_s32(swapOdd, negate), negate);
    }
}

struct ProductSumX4 {
    int64x2_t v;
};
VSP_INLINE ProductSumX4 productSum(I32x4)
{
    return {vdupq_n_s64(0)};
}
VSP_INLINE void addShortProducts(ProductSumX4& sum, const int16_t* a, const int16_t* b)
{
    const int16x8_t x = vmaxq_s16(vld1q_s16(a), vdupq_n_s16(kLowestFactor));
    const int16x8_t y = vld1q_s16(b);
    sum.v = vpadalq_s32(sum.v, vmull_s16(vget_low_s16(x), vget_low_s16(y)));
    sum.v = vpadalq_s32(sum.v, vmull_s16(vget_high_s16(x), vget_high_s16(y)));
}
VSP_INLINE int64_t total(ProductSumX4 sum)
{
    return int64_t(uint64_t(vgetq_lane_s64(sum.v, 0)) + uint64_t(vgetq_lane_s64(sum.v, 1)));
}

struct PairSumsX4 {
    int64x2_t v;
};
VSP_INLINE PairSumsX4 pairSums(I32x4)
{
    return {vdupq_n_s64(0)};
}
VSP_INLINE void addProducts(PairSumsX4& sums, I32x4 a, I32x4 b)
{
    sums.v = vmlal_s32(sums.v, vget_low_s32(a.v), vget_low_s32(b.v));
    sums.v = vmlal_s32(sums.v, vget_high_s32(a.v), vget_high_s32(b.v));
}
VSP_INLINE int64_t total(PairSumsX4 sums)
{
    return total(ProductSumX4{sums.v});
}
VSP_INLINE int64_t difference(PairSumsX4 sums)
{
    return int64_t(uint64_t(vgetq_lane_s64(sums.v, 0)) - uint64_t(vgetq_lane_s64(sums.v, 1)));
}
VSP_INLINE I32x4 swapPairs(I32x4 a)
{
    return {vrev64q_s32(a.v)};
}

/// Four sums of products modulo 2^64.
struct Sums4 {
    int64x2_t low, high;
};
/// The lanes as values of 0 to 2^32 - 1.
VSP_INLINE Sums4 unsignedSums(I32x4 a)
{
    const uint32x4_t u = vreinterpretq_u32_s32(a.v);
    return {vreinterpretq_s64_u64(vmovl_u32(vget_low_u32(u))),
            vreinterpretq_s64_u64(vmovl_u32(vget_high_u32(u)))};
}
VSP_INLINE void addProducts(Sums4& sum, I32x4 a, I32x4 b)
{
    sum.low = vmlal_s32(sum.low, vget_low_s32(a.v), vget_low_s32(b.v));
    sum.high = vmlal_s32(sum.high, vget_high_s32(a.v), vget_high_s32(b.v));
}
VSP_INLINE I32x4 highWords(Sums4 sum)
{
    return {vcombine_s32(vshrn_n_s64(sum.low, 32), vshrn_n_s64(sum.high, 32))};
}
VSP_INLINE I32x4 lowWords(Sums4 sum)
{
    return {vcombine_s32(vmovn_s64(sum.low), vmovn_s64(sum.high))};
}

template <int bits>
VSP_INLINE I32x4 loadFrameTwice(const Frame* p, I32x4)
{
    int32_t frame;
    __builtin_memcpy(&frame, p, sizeof frame);
    return shiftLeft<bits>(I32x4{vmovl_s16(vreinterpret_s16_s32(vdup_n_s32(frame)))});
}
VSP_INLINE I32x4 lowHalfTwice(I32x4 a)
{
    return {vcombine_s32(vget_low_s32(a.v), vget_low_s32(a.v))};
}
VSP_INLINE I32x4 highHalfTwice(I32x4 a)
{
    return {vcombine_s32(vget_high_s32(a.v), vget_high_s32(a.v))};
}
VSP_INLINE I32x4 joinHalves(I32x4 a, I32x4 b)
{
    return {vcombine_s32(vget_low_s32(a.v), vget_high_s32(b.v))};
}
VSP_INLINE I32x4 joinLowHalves(I32x4 a, I32x4 b)
{
    return {vcombine_s32(vget_low_s32(a.v), vget_low_s32(b.v))};
}
VSP_INLINE I32x4 joinHighHalves(I32x4 a, I32x4 b)
{
    return {vcombine_s32(vget_high_s32(a.v), vget_high_s32(b.v))};
}

VSP_INLINE I32x4 loadTwo(const int32_t* p, I32x4)
{
    return {vcombine_s32(vld1_s32(p), vdup_n_s32(0))};
}
VSP_INLINE void storeTwo(int32_t* p, I32x4 a)
{
    vst1_s32(p, vget_low_s32(a.v));
}
VSP_INLINE I32x4 loadTwoEach(const int32_t* p, const int32_t* q, I32x4)
{
    return {vcombine_s32(vld1_s32(p), vld1_s32(q))};
}
VSP_INLINE void storeTwoEach(int32_t* p, int32_t* q, I32x4 a)
{
    vst1_s32(p, vget_low_s32(a.v));
    vst1_s32(q, vget_high_s32(a.v));
}
VSP_INLINE void loadFramePairs(const int32_t* p, const int32_t* q, I32x4& a, I32x4& b)
{
    const I32x4 x = {vld1q_s32(p)};
    const I32x4 y = {vld1q_s32(q)};
    a = joinLowHalves(x, y);
    b = joinHighHalves(x, y);
}
VSP_INLINE void storeFramePairs(int32_t* p, int32_t* q, I32x4 a, I32x4 b)
{
    vst1q_s32(p, joinLowHalves(a, b).v);
    vst1q_s32(q, joinHighHalves(a, b).v);
}
VSP_INLINE void storeLowFrame(Frame* p, I32x4 a)
{
    const int32_t frame = vget_lane_s32(vreinterpret_s32_s16(vmovn_s32(a.v)), 0);
    __builtin_memcpy(p, &frame, sizeof frame);
}
VSP_INLINE void storeHighFrame(Frame* p, I32x4 a)
{
    const int32_t frame = vget_lane_s32(vreinterpret_s32_s16(vmovn_s32(a.v)), 1);
    __builtin_memcpy(p, &frame, sizeof frame);
}
VSP_INLINE void storeTwoFrames(Frame* p, I32x4 a)
{
    vst1_s16(*p, vmovn_s32(a.v));
}
VSP_INLINE void storeTwoFramesSaturated(Frame* p, I32x4 a)
{
    vst1_s16(*p, vqmovn_s32(a.v));
}

VSP_INLINE void splitShorts(int32x4_t x, I32x4& a, I32x4& b)
{
    a.v = vshrq_n_s32(vshlq_n_s32(x, 16), 16);
    b.v = vshrq_n_s32(x, 16);
}
VSP_INLINE void pickBins(const ComplexInt* X, const int16_t* bins, I32x4& re, I32x4& im)
{
    const int32x2_t bin[4] = {vld1_s32(words(X + bins[0])), vld1_s32(words(X + bins[1])),
                              vld1_s32(words(X + bins[2])), vld1_s32(words(X + bins[3]))};
    const int32x4x2_t x = vuzpq_s32(vcombine_s32(bin[0], bin[1]), vcombine_s32(bin[2], bin[3]));
    re.v = x.val[0];
    im.v = x.val[1];
}
VSP_INLINE void pickBins(const ComplexShort* P, const int16_t* bins, I32x4& re, I32x4& im)
{
    int32_t phasor[4];
    for (int i = 0; i < 4; ++i)
        __builtin_memcpy(phasor + i, P + bins[i], sizeof *phasor);
    splitShorts(vld1q_s32(phasor), re, im);
}
VSP_INLINE void pickPairs(const ComplexInt* X, const int16_t* first, I32x4& re, I32x4& im)
{
    const int32x4x2_t x = vuzpq_s32(vld1q_s32(words(X + first[0])), vld1q_s32(words(X + first[1])));
    re.v = x.val[0];
    im.v = x.val[1];
}
VSP_INLINE void pickPairs(const ComplexShort* P, const int16_t* first, I32x4& re, I32x4& im)
{
    const int16x8_t x = vcombine_s16(vld1_s16(&P[first[0]].re), vld1_s16(&P[first[1]].re));
    splitShorts(vreinterpretq_s32_s16(x), re, im);
}
VSP_INLINE void putPairs(ComplexInt* X, const int16_t* first, I32x4 re, I32x4 im)
{
    const int32x4x2_t x = vzipq_s32(re.v, im.v);
    vst1q_s32(&X[first[0]].re, x.val[0]);
    vst1q_s32(&X[first[1]].re, x.val[1]);
}
VSP_INLINE void putPairs(ComplexShort* P, const int16_t* first, I32x4 re, I32x4 im)
{
    const int16x4x2_t x = vzip_s16(vmovn_s32(re.v), vmovn_s32(im.v));
    vst1_s16(&P[first[0]].re, x.val[0]);
    vst1_s16(&P[first[1]].re, x.val[1]);
}
VSP_INLINE I32x4 loadTwice(const int32_t* p, I32x4)
{
    const int32x2_t x = vld1_s32(p);
    const int32x2x2_t twice = vzip_s32(x, x);
    return {vcombine_s32(twice.val[0], twice.val[1])};
}

} // namespace vsp::VSP_KERNEL_SET
