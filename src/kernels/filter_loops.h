// The recursive all-pass filters of the band split. A sample waits for the one before it, so the
// lanes are not samples but sections: left and right of two of them at a time.
//
// A section's delay is the sum S before its first product, mod 2^32; its state in memory is W = 4
// S. The two products W p >> 16 and W q >> 16 are kept; each serves the next two samples. Values
// stay far below 2^29, so W >> 2 is S itself.
#pragma once

#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

constexpr int kInputBits = 3; // samples enter the sections with three more fraction bits

template <class V4>
struct Section2 {
    CoeffsOf<V4> p, q; // Q14
    V4 S1, S2;         // delays
    V4 pS1, qS1, qS2;  // their products

    [[gnu::always_inline]] void prepare()
    {
        pS1 = mulShift16(timesFour(S1), p);
        qS1 = mulShift16(timesFour(S1), q);
        qS2 = mulShift16(timesFour(S2), q);
    }
    /// The section's output for u, and everything moved on by one sample.
    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 S = wrapAdd(wrapAdd(u, qS2), pS1);
        const auto W = timesFour(S);
        const V4 qS = mulShift16(W, q);
        const V4 y = wrapSub(wrapAdd(pS1, qS), S2);
        pS1 = mulShift16(W, p);
        qS2 = qS1;
        qS1 = qS;
        S2 = S1;
        S1 = S;
        return y;
    }
};

template <class V4>
struct Section1 {
    CoeffsOf<V4> p;
    V4 S1, pS1;

    [[gnu::always_inline]] void prepare() { pS1 = mulShift16(timesFour(S1), p); }
    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 S = wrapAdd(u, pS1);
        pS1 = mulShift16(timesFour(S), p);
        const V4 y = wrapSub(pS1, S1);
        S1 = S;
        return y;
    }
};

/// Lanes 0 and 1 a first-order section, lanes 2 and 3 a second-order one.
template <class V4>
struct Section12 {
    Section2<V4> second; // with q = 0 in lanes 0 and 1

    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 S1 = second.S1;
        const V4 y2 = second.run(u);
        return joinHalves(wrapSub(second.pS1, S1), y2);
    }
};

/// Both branches of the split filter.
template <class V4>
struct SplitSections {
    Section2<V4> first;
    Section12<V4> next;

    [[gnu::always_inline]] V4 run(const Frame* in)
    {
        return next.run(first.run(loadFrameTwice<kInputBits>(in, V4{})));
    }
};

/// Four coefficients of two sections, left and right alike.
template <class V4>
VSP_INLINE CoeffsOf<V4> coeffsOf(int32_t a, int32_t b)
{
    const int32_t lanes[4] = {a, a, b, b};
    return loadCoeffs(lanes, V4{});
}
/// The delays left and right of section a, then of section b, from two channels' states.
template <class V4>
VSP_INLINE V4 gather(const int32_t* left, const int32_t* right, int a, int b)
{
    const int32_t lanes[4] = {left[a] >> 2, right[a] >> 2, left[b] >> 2, right[b] >> 2};
    return load(lanes, V4{});
}
template <class V4>
VSP_INLINE void scatter(int32_t* left, int32_t* right, int a, int b, V4 S)
{
    int32_t lanes[4];
    store(lanes, shiftLeft<2>(S));
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
    s.p = coeffsOf<V4>(coeffs_q14[coeffA], coeffs_q14[coeffB]);
    s.q = coeffsOf<V4>(coeffs_q14[coeffA + 1], coeffs_q14[coeffB + 1]);
    s.S1 = gather<V4>(left, right, stateA, stateB);
    s.S2 = gather<V4>(left, right, stateA + 1, stateB + 1);
    s.prepare();
    return s;
}
template <class V4>
VSP_INLINE void keepState(int32_t* left, int32_t* right, int stateA, int stateB,
                          const Section2<V4>& s)
{
    scatter(left, right, stateA, stateB, s.S1);
    scatter(left, right, stateA + 1, stateB + 1, s.S2);
}

/// kernels/band_split.h: branch b is in lanes 0 and 1, branch a in lanes 2 and 3.
template <class V4>
void split(Frame* low, Frame* high, const Frame* in, int32_t (*state)[7], const int16_t* coeffs_q14,
           int frames, int factor)
{
    int32_t* const left = state[0];
    int32_t* const right = state[1];
    SplitSections<V4> sections;
    Section2<V4>& first = sections.first;
    Section2<V4>& second = sections.next.second;
    first = makeSection2<V4>(left, right, coeffs_q14, 0, 0, 3, 3);
    second.p = coeffsOf<V4>(coeffs_q14[2], coeffs_q14[5]);
    second.q = coeffsOf<V4>(0, coeffs_q14[6]);
    second.S1 = gather<V4>(left, right, 2, 5);
    const int32_t noSecondDelay[4] = {0, 0, left[6] >> 2, right[6] >> 2};
    second.S2 = load(noSecondDelay, V4{});
    second.prepare();

    // Two frames at a time; the second of them is never one that the low band keeps.
    int n = 0;
    for (; n + 2 <= frames; n += 2) {
        const V4 y0 = sections.run(in + n);
        const V4 y1 = sections.run(in + n + 1);
        const auto b = joinLowHalves(y0, y1);
        const auto a = joinHighHalves(y0, y1);
        storeTwoFrames(high + n, shiftRight<5>(wrapSub(b, a)));
        if ((n & (factor - 1)) == 0)
            storeLowFrame(low++, shiftRight<5>(wrapAdd(b, a)));
    }
    if (n < frames) {
        const V4 y = sections.run(in + n);
        const auto b = joinLowHalves(y, y);
        const auto a = joinHighHalves(y, y);
        storeLowFrame(high + n, shiftRight<5>(wrapSub(b, a)));
        if ((n & (factor - 1)) == 0)
            storeLowFrame(low, shiftRight<5>(wrapAdd(b, a)));
    }

    keepState(left, right, 0, 3, first);
    scatter(left, right, 2, 5, second.S1);
    int32_t W2[4];
    store(W2, shiftLeft<2>(second.S2));
    left[6] = W2[2];
    right[6] = W2[3];
}

/// Adds twice the high band to two frames of low band (y, with two fraction bits).
template <class V4>
VSP_INLINE void combineTwoFrames(Frame* out, const Frame* high, V4 y)
{
    const auto x = narrow(y);
    const auto h = loadShorts(samples(high), x);
    storeTwoFramesSaturated(out, wrapAdd(shiftLeft<1>(h), shiftRight<2>(x)));
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
        const V4 v = loadFrameTwice<kInputBits>(low + m, V4{});
        combineTwoFrames(to, highBand, s.run(v));
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
    second.p = coeffsOf<V4>(coeffs_q14[4], coeffs_q14[5]);
    second.S1 = gather<V4>(state[0], state[1], 4, 5);
    second.prepare();
    forLowFrames<4>(out, high, lowFrames, outFrames, [&](Frame* to, const Frame* highBand, int m) {
        const V4 v = loadFrameTwice<kInputBits>(low + m, V4{});
        const V4 phases = first.run(v);
        combineTwoFrames(to, highBand, second.run(lowHalfTwice(phases)));
        combineTwoFrames(to + 2, highBand + 2, second.run(highHalfTwice(phases)));
    });
    keepState(state[0], state[1], 0, 2, first);
    scatter(state[0], state[1], 4, 5, second.S1);
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
