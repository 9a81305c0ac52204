// The recursive all-pass filters of the band split. A sample waits for the one before it, so the
// lanes are not samples but sections: left and right of two of them at a time.
//
// A delay word W and its two products W p >> 16 and W q >> 16 are kept; each product serves the
// next two samples.
#pragma once

#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

constexpr int kInputBits = 3; // samples enter the sections with three more fraction bits

template <class V4>
struct Section2 {
    V4 p, q;          // Q14
    V4 W1, W2;        // delays
    V4 pW1, qW1, qW2; // their products

    [[gnu::always_inline]] void prepare()
    {
        pW1 = mulShift16(W1, p);
        qW1 = mulShift16(W1, q);
        qW2 = mulShift16(W2, q);
    }
    /// W of the next sample, and everything moved on by one.
    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 W = shiftLeft<2>(wrapAdd(wrapAdd(u, qW2), pW1));
        const V4 qW = mulShift16(W, q);
        const V4 y = wrapSub(wrapAdd(pW1, qW), shiftRight<2>(W2));
        pW1 = mulShift16(W, p);
        qW2 = qW1;
        qW1 = qW;
        W2 = W1;
        W1 = W;
        return y;
    }
};

template <class V4>
struct Section1 {
    V4 p, W1, pW1;

    [[gnu::always_inline]] void prepare() { pW1 = mulShift16(W1, p); }
    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 W = shiftLeft<2>(wrapAdd(u, pW1));
        const V4 pW = mulShift16(W, p);
        const V4 y = wrapSub(pW, shiftRight<2>(W1));
        W1 = W;
        pW1 = pW;
        return y;
    }
};

/// Lanes 0 and 1 a first-order section, lanes 2 and 3 a second-order one.
template <class V4>
struct Section12 {
    Section2<V4> second; // with q = 0 in lanes 0 and 1

    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 W1 = second.W1;
        const V4 y2 = second.run(u);
        const V4 y1 = wrapSub(second.pW1, shiftRight<2>(W1));
        return joinHalves(y1, y2);
    }
};

/// left and right of section a, then of section b, from two channels' arrays.
template <class V4, class T>
VSP_INLINE V4 gather(const T* left, const T* right, int a, int b)
{
    const int32_t lanes[4] = {left[a], right[a], left[b], right[b]};
    return load(lanes, V4{});
}
template <class V4>
VSP_INLINE void scatter(int32_t* left, int32_t* right, int a, int b, V4 x)
{
    int32_t lanes[4];
    store(lanes, x);
    left[a] = lanes[0];
    right[a] = lanes[1];
    left[b] = lanes[2];
    right[b] = lanes[3];
}

template <class V4>
VSP_INLINE Section2<V4> makeSection2(int32_t* left, int32_t* right, const int16_t* coeffs_q14,
                                     int stateA, int coeffA, int stateB, int coeffB)
{
    Section2<V4> s;
    s.p = gather<V4>(coeffs_q14, coeffs_q14, coeffA, coeffB);
    s.q = gather<V4>(coeffs_q14, coeffs_q14, coeffA + 1, coeffB + 1);
    s.W1 = gather<V4>(left, right, stateA, stateB);
    s.W2 = gather<V4>(left, right, stateA + 1, stateB + 1);
    s.prepare();
    return s;
}
template <class V4>
VSP_INLINE void keepState(int32_t* left, int32_t* right, int stateA, int stateB,
                          const Section2<V4>& s)
{
    scatter(left, right, stateA, stateB, s.W1);
    scatter(left, right, stateA + 1, stateB + 1, s.W2);
}

/// vocoder/band_split.h: branch b is in lanes 0 and 1, branch a in lanes 2 and 3.
template <class V4>
void split(Frame* low, Frame* high, const Frame* in, int32_t (*state)[7], const int16_t* coeffs_q14,
           int frames, int factor)
{
    int32_t* const left = state[0];
    int32_t* const right = state[1];
    Section2<V4> first = makeSection2<V4>(left, right, coeffs_q14, 0, 0, 3, 3);

    Section12<V4> next;
    const int32_t zeroFirst[4] = {0, 0, coeffs_q14[6], coeffs_q14[6]};
    const int32_t noSecondDelay[4] = {0, 0, left[6], right[6]};
    next.second.p = gather<V4>(coeffs_q14, coeffs_q14, 2, 5);
    next.second.q = load(zeroFirst, V4{});
    next.second.W1 = gather<V4>(left, right, 2, 5);
    next.second.W2 = load(noSecondDelay, V4{});
    next.second.prepare();

    for (int n = 0; n < frames; ++n) {
        const V4 v = shiftLeft<kInputBits>(loadFrameTwice(in + n, V4{}));
        const V4 y = next.run(first.run(v));
        const V4 b = lowHalfTwice(y);
        const V4 a = highHalfTwice(y);
        const uint64_t packed = packLow16(shiftRight<5>(joinHalves(wrapSub(b, a), wrapAdd(b, a))));
        const uint32_t highFrame = uint32_t(packed);
        const uint32_t lowFrame = uint32_t(packed >> 32);
        __builtin_memcpy(high + n, &highFrame, sizeof highFrame);
        if ((n & (factor - 1)) == 0)
            __builtin_memcpy(low++, &lowFrame, sizeof lowFrame);
    }

    keepState(left, right, 0, 3, first);
    scatter(left, right, 2, 5, next.second.W1);
    int32_t W2[4];
    store(W2, next.second.W2);
    left[6] = W2[2];
    right[6] = W2[3];
}

/// Adds twice the high band to two frames of low band (y, with two fraction bits) and stores those
/// of them that are wanted.
template <class V4>
VSP_INLINE void storeTwoFrames(Frame* out, const Frame* high, V4 y)
{
    const V4 h = loadShorts(samples(high), V4{});
    const uint64_t frames = packSaturated(wrapAdd(shiftLeft<1>(h), shiftRight<2>(y)));
    __builtin_memcpy(out, &frames, sizeof frames);
}

/// Runs step(out, high, m) for each low-band frame; the frames of a last one that doesn't fit whole
/// go through a buffer of their own.
template <int factor, class Step>
VSP_INLINE void forLowFrames(Frame* out, const Frame* high, int lowFrames, int outFrames, Step step)
{
    const int whole = outFrames / factor < lowFrames ? outFrames / factor : lowFrames;
    for (int m = 0; m < whole; ++m)
        step(out + factor * m, high + factor * m, m);
    for (int m = whole; m < lowFrames; ++m) {
        const int wanted = outFrames - factor * m > 0 ? outFrames - factor * m : 0;
        Frame highPart[factor] = {};
        Frame outPart[factor];
        __builtin_memcpy(highPart, high + factor * m, size_t(wanted) * sizeof(Frame));
        step(outPart, highPart, m);
        __builtin_memcpy(out + factor * m, outPart, size_t(wanted) * sizeof(Frame));
    }
}

/// The two sections give the two frames of each low-band frame.
template <class V4>
void interpolateBy2(Frame* out, const Frame* low, const Frame* high, int32_t (*state)[6],
                    const int16_t* coeffs_q14, int lowFrames, int outFrames)
{
    Section2<V4> s = makeSection2<V4>(state[0], state[1], coeffs_q14, 0, 0, 2, 2);
    forLowFrames<2>(out, high, lowFrames, outFrames, [&](Frame* to, const Frame* highBand, int m) {
        const V4 v = shiftLeft<kInputBits>(loadFrameTwice(low + m, V4{}));
        storeTwoFrames(to, highBand, s.run(v));
    });
    keepState(state[0], state[1], 0, 2, s);
}

/// Each of the two phases at twice the low rate goes through two first-order sections.
template <class V4>
void interpolateBy4(Frame* out, const Frame* low, const Frame* high, int32_t (*state)[6],
                    const int16_t* coeffs_q14, int lowFrames, int outFrames)
{
    Section2<V4> first = makeSection2<V4>(state[0], state[1], coeffs_q14, 0, 0, 2, 2);
    Section1<V4> second;
    second.p = gather<V4>(coeffs_q14, coeffs_q14, 4, 5);
    second.W1 = gather<V4>(state[0], state[1], 4, 5);
    second.prepare();
    forLowFrames<4>(out, high, lowFrames, outFrames, [&](Frame* to, const Frame* highBand, int m) {
        const V4 v = shiftLeft<kInputBits>(loadFrameTwice(low + m, V4{}));
        const V4 phases = first.run(v);
        storeTwoFrames(to, highBand, second.run(lowHalfTwice(phases)));
        storeTwoFrames(to + 2, highBand + 2, second.run(highHalfTwice(phases)));
    });
    keepState(state[0], state[1], 0, 2, first);
    scatter(state[0], state[1], 4, 5, second.W1);
}

template <class V>
void fadeHighBand(Frame* out, const Frame* older, const Frame* newer, int frames)
{
    const int16_t* const b = samples(older);
    const int16_t* const a = samples(newer);
    const auto sample = [=](int n, auto lanes, auto weight) {
        using W = decltype(lanes);
        const W rest = wrapSub(set1(1024, W{}), weight);
        return wrapAdd(shiftRight<10>(mulShort(loadShorts(b + n, W{}), weight)),
                       shiftRight<10>(mulShort(loadShorts(a + n, W{}), rest)));
    };
    int32_t ramp[V::lanes];
    for (int i = 0; i < V::lanes; ++i)
        ramp[i] = 1024 - i / 2 * 2;
    V weight = load(ramp, V{});
    const V step = set1(V::lanes, V{});
    int n = 0;
    for (; V::lanes > 1 && n + 2 * V::lanes <= 2 * frames; n += 2 * V::lanes) {
        const V first = sample(n, V{}, weight);
        weight = wrapSub(weight, step);
        storeSaturated(samples(out) + n, first, sample(n + V::lanes, V{}, weight));
        weight = wrapSub(weight, step);
    }
    for (; n < 2 * frames; ++n) {
        const I32x1 x = sample(n, I32x1{}, set1(1024 - n / 2 * 2, I32x1{}));
        samples(out)[n] = fx::sat16(x.v[0]);
    }
}

} // namespace vsp::VSP_KERNEL_SET
