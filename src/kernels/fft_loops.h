// The 512-point transform as three passes of three levels each. The last one takes its blocks in
// bit-reversed order and so stores the result in natural order, without a walk of its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include <velora/fft.h>

#include "fixed/cache_line.h"
#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/sizes.h"
#include "kernels/twiddles.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

template <class V>
struct Complex {
    V re;
    V im;
};

template <class V>
VSP_INLINE Complex<V> add(Complex<V> a, Complex<V> b)
{
    return {wrapAdd(a.re, b.re), wrapAdd(a.im, b.im)};
}
template <class V>
VSP_INLINE Complex<V> sub(Complex<V> a, Complex<V> b)
{
    return {wrapSub(a.re, b.re), wrapSub(a.im, b.im)};
}
/// -i x
template <class V>
VSP_INLINE Complex<V> timesMinusI(Complex<V> x)
{
    return {x.im, wrapSub(set1(0, V{}), x.re)};
}
/// How large the components of a transform may get on the way: that of a hop of 16-bit samples stays
/// below 2^23.
enum class Range { any, small };

/// a + w b and a - w b, each product rounded by itself.
template <Range range = Range::any, class V, class W>
VSP_INLINE void butterfly(Complex<V>& a, Complex<V>& b, W w_q31)
{
    Complex<V> wb;
    if constexpr (range == Range::small)
        mulSmallComplexQ31(wb.re, wb.im, b.re, b.im, w_q31);
    else
        mulComplexQ31(wb.re, wb.im, b.re, b.im, w_q31);
    b = sub(a, wb);
    a = add(a, wb);
}

template <class V>
VSP_INLINE Complex<V> loadComplex(const int32_t* re, const int32_t* im, int p, V)
{
    return {load(re + p, V{}), load(im + p, V{})};
}
template <class V>
VSP_INLINE void storeComplex(int32_t* re, int32_t* im, int p, Complex<V> x)
{
    store(re + p, x.re);
    store(im + p, x.im);
}
template <class V>
VSP_INLINE SameFactor<V> broadcast(Velora_FFT_Twiddle w, V)
{
    return {set1(w.re, V{}), set1(w.im, V{})};
}

/// Turns g and h by the eighth roots of unity that are no multiples of i: one product a component.
template <class V>
VSP_INLINE void eighthRoots(Complex<V>& g, Complex<V>& h)
{
    const V root = set1(kSqrtHalfQ31, V{});
    const V gRe = mulRoundQ31(g.re, root);
    const V gIm = mulRoundQ31(g.im, root);
    const V hRe = mulRoundQ31(h.re, root);
    const V hIm = mulRoundQ31(h.im, root);
    g = {wrapAdd(gRe, gIm), wrapSub(gIm, gRe)};
    h = {wrapSub(hIm, hRe), wrapSub(wrapSub(set1(0, V{}), hRe), hIm)};
}

/// Levels 0 to 2 of a column.
template <class V>
VSP_INLINE void radix8First(Complex<V> (&x)[kRadix])
{
    Complex<V> even[4];
    Complex<V> odd[4];
    for (int i = 0; i < 4; ++i) {
        even[i] = add(x[i], x[i + 4]);
        odd[i] = sub(x[i], x[i + 4]);
    }
    const Complex<V> e0 = add(even[0], even[2]);
    const Complex<V> e1 = add(even[1], even[3]);
    const Complex<V> e2 = sub(even[0], even[2]);
    const Complex<V> e3 = timesMinusI(sub(even[1], even[3]));
    const Complex<V> o2 = timesMinusI(odd[2]);
    const Complex<V> o3 = timesMinusI(odd[3]);
    const Complex<V> c = add(odd[0], o2);
    const Complex<V> d = sub(odd[0], o2);
    Complex<V> g = add(odd[1], o3);
    Complex<V> h = sub(odd[1], o3);
    eighthRoots(g, h);
    x[0] = add(e0, e1);
    x[1] = sub(e0, e1);
    x[2] = add(e2, e3);
    x[3] = sub(e2, e3);
    x[4] = add(c, g);
    x[5] = sub(c, g);
    x[6] = add(d, h);
    x[7] = sub(d, h);
}

/// The same where only x[0] and x[1] are not 0.
template <class V>
VSP_INLINE void radix8FirstOfTwo(Complex<V> (&x)[kRadix])
{
    const Complex<V> a = x[0];
    const Complex<V> b = x[1];
    const Complex<V> bTurned = timesMinusI(b);
    Complex<V> g = b;
    Complex<V> h = b;
    eighthRoots(g, h);
    x[0] = add(a, b);
    x[1] = sub(a, b);
    x[2] = add(a, bTurned);
    x[3] = sub(a, bTurned);
    x[4] = add(a, g);
    x[5] = sub(a, g);
    x[6] = add(a, h);
    x[7] = sub(a, h);
}

/// Three levels of a column: one factor for the first, two and four for the next.
template <Range range = Range::any, class V, class W>
VSP_INLINE void radix8(Complex<V> (&x)[kRadix], const W (&w)[kColumnTwiddles])
{
    for (int i = 0; i < 4; ++i)
        butterfly<range>(x[i], x[i + 4], w[0]);
    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < 2; ++i)
            butterfly<range>(x[4 * j + i], x[4 * j + i + 2], w[1 + j]);
    for (int j = 0; j < 4; ++j)
        butterfly<range>(x[2 * j], x[2 * j + 1], w[3 + j]);
}

template <class V>
void firstPass(int32_t* re, int32_t* im)
{
    for (int c = 0; c < kColumns; c += V::lanes) {
        Complex<V> x[kRadix];
        for (int i = 0; i < kRadix; ++i)
            x[i] = loadComplex(re, im, c + kColumns * i, V{});
        radix8First(x);
        for (int i = 0; i < kRadix; ++i)
            storeComplex(re, im, c + kColumns * i, x[i]);
    }
}

/// The first pass over kLowHop frames followed by silence: of each column two points.
static_assert(2 * kColumns == kLowHop);
template <class V>
void firstPassOfHop(int32_t* re, int32_t* im, const Frame* in)
{
    for (int c = 0; c < kColumns; c += V::lanes) {
        Complex<V> x[kRadix];
        for (int i = 0; i < 2; ++i)
            loadShortPairs(in + c + kColumns * i, x[i].re, x[i].im);
        radix8FirstOfTwo(x);
        for (int i = 0; i < kRadix; ++i)
            storeComplex(re, im, c + kColumns * i, x[i]);
    }
}

/// Levels 3 to 5: blocks of 64 points, each with its own factors.
template <Range range, class V>
void middlePass(int32_t* re, int32_t* im)
{
    for (int j = 0; j < kRadix; ++j) {
        SameFactor<V> w[kColumnTwiddles];
        w[0] = broadcast(fftTwiddle[j], V{});
        for (int i = 0; i < 2; ++i)
            w[1 + i] = broadcast(fftTwiddle[2 * j + i], V{});
        for (int i = 0; i < 4; ++i)
            w[3 + i] = broadcast(fftTwiddle[4 * j + i], V{});
        for (int c = kColumns * j; c < kColumns * j + kRadix; c += V::lanes) {
            Complex<V> x[kRadix];
            for (int i = 0; i < kRadix; ++i)
                x[i] = loadComplex(re, im, c + kRadix * i, V{});
            radix8<range>(x, w);
            for (int i = 0; i < kRadix; ++i)
                storeComplex(re, im, c + kRadix * i, x[i]);
        }
    }
}

/// Loads point i of V::lanes blocks of 8 points into x[i], and the blocks' factors. Lane l is block
/// 8 bitrev(first + l) + bitrev(group), so that the lanes' results lie side by side.
template <class V>
VSP_INLINE void loadBlocks(Complex<V> (&x)[kRadix], Factors<V> (&w)[kColumnTwiddles],
                           const int32_t* re, const int32_t* im, int group, int first)
{
    const int32_t* blockRe[V::lanes];
    const int32_t* blockIm[V::lanes];
    for (int l = 0; l < V::lanes; ++l) {
        const int block = kRadix * kBitRev3[first + l] + kBitRev3[group];
        blockRe[l] = re + kRadix * block;
        blockIm[l] = im + kRadix * block;
    }
    V xRe[kRadix];
    V xIm[kRadix];
    loadColumns(blockRe, xRe);
    loadColumns(blockIm, xIm);
    for (int i = 0; i < kRadix; ++i)
        x[i] = {xRe[i], xIm[i]};
    const LastPassTwiddles& factors = kLastPassTwiddles[std::size_t(group)];
    for (int i = 0; i < kColumnTwiddles; ++i)
        w[i] = {load(factors.re[i] + first, V{}), load(factors.im[i] + first, V{})};
}

/// Levels 6 to 8, from one pair of arrays to another, in natural order.
template <Range range, class V>
void lastPass(int32_t* outRe, int32_t* outIm, const int32_t* re, const int32_t* im)
{
    for (int group = 0; group < kRadix; ++group)
        for (int first = 0; first < kRadix; first += V::lanes) {
            Complex<V> x[kRadix];
            Factors<V> w[kColumnTwiddles];
            loadBlocks(x, w, re, im, group, first);
            radix8<range>(x, w);
            for (int i = 0; i < kRadix; ++i)
                storeComplex(outRe, outIm, kColumns * kBitRev3[i] + kRadix * group + first, x[i]);
        }
}

/// The same, but only the first kLowHop results: of each block the points 0 and 4.
template <class V>
void lastPassFirstQuarter(int32_t* outRe, int32_t* outIm, const int32_t* re, const int32_t* im)
{
    for (int group = 0; group < kRadix; ++group)
        for (int first = 0; first < kRadix; first += V::lanes) {
            Complex<V> x[kRadix];
            Factors<V> w[kColumnTwiddles];
            loadBlocks(x, w, re, im, group, first);
            for (int i = 0; i < 4; ++i)
                butterfly(x[i], x[i + 4], w[0]);
            for (int j = 0; j < 2; ++j) {
                Complex<V>* const half = x + 4 * j;
                butterfly(half[0], half[2], w[1 + j]);
                butterfly(half[1], half[3], w[1 + j]);
                butterfly(half[0], half[1], w[3 + 2 * j]);
                storeComplex(outRe, outIm, kColumns * j + kRadix * group + first, half[0]);
            }
        }
}

template <class V>
void fft512(int32_t* re, int32_t* im)
{
    alignas(kLine) int32_t workRe[kFftN];
    alignas(kLine) int32_t workIm[kFftN];
    __builtin_memcpy(workRe, re, sizeof workRe);
    __builtin_memcpy(workIm, im, sizeof workIm);
    firstPass<V>(workRe, workIm);
    middlePass<Range::any, V>(workRe, workIm);
    lastPass<Range::any, V>(re, im, workRe, workIm);
}

template <class V>
void fftOfHop(int32_t* re, int32_t* im, const Frame* in)
{
    alignas(kLine) int32_t workRe[kFftN];
    alignas(kLine) int32_t workIm[kFftN];
    firstPassOfHop<V>(workRe, workIm, in);
    middlePass<Range::small, V>(workRe, workIm);
    lastPass<Range::small, V>(re, im, workRe, workIm);
}

template <class V>
void fftFirstQuarter(int32_t* outRe, int32_t* outIm, int32_t* re, int32_t* im)
{
    firstPass<V>(re, im);
    middlePass<Range::any, V>(re, im);
    lastPassFirstQuarter<V>(outRe, outIm, re, im);
}

} // namespace vsp::VSP_KERNEL_SET
