// The band split: the pair of filters that cut a hop in two, the interpolators that bring the low
// band back to the full rate, and the fade between segments of the high band.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fixed/fixed.h"
#include "fixed/frame.h"
#include "kernels/recursive_sections.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

constexpr int kInputBits = 3; // samples enter the sections with three more fraction bits

/// Lanes of two sections whose delays are words a and b of each channel's state.
template <int words>
VSP_INLINE LaneWords laneWords(int32_t (*state)[words], int a, int b)
{
    return {&state[0][a], &state[1][a], &state[0][b], &state[1][b]};
}

/// Two second-order sections: their coefficients begin at a and b, and so do their delays.
template <class V4, int words>
VSP_INLINE NegatingSection2<V4> sections2(int32_t (*state)[words], const int16_t* coeffs_q14, int a,
                                          int b)
{
    return {coeffsOf<V4>(coeffs_q14[a], coeffs_q14[b]),
            coeffsOf<V4>(coeffs_q14[a + 1], coeffs_q14[b + 1]), laneWords(state, a, b),
            laneWords(state, a + 1, b + 1)};
}

/// Both branches of the split filter in kernels/band_split.h: b in lanes 0 and 1, a in 2 and 3.
template <class V4>
class SplitSections {
public:
    [[gnu::always_inline]] SplitSections(int32_t (*state)[7], const int16_t* coeffs_q14)
        : first(sections2<V4>(state, coeffs_q14, 0, 3)),
          next(coeffsOf<V4>(coeffs_q14[2], coeffs_q14[5]), coeffsOf<V4>(0, coeffs_q14[6]),
               laneWords(state, 2, 5), {nullptr, nullptr, &state[0][6], &state[1][6]})
    {
    }

    /// Takes a frame, and gives what comes of the one before: the second sections run beside the
    /// first ones of the frame that follows, so that neither waits for the other.
    [[gnu::always_inline]] V4 run(const Frame* in)
    {
        const V4 y = finish();
        start(in);
        return y;
    }
    /// Takes the first frame.
    [[gnu::always_inline]] void start(const Frame* in)
    {
        u = first.run(loadFrameTwice<kInputBits>(in, V4{}));
    }
    /// Gives what comes of the last frame.
    [[gnu::always_inline]] V4 finish()
    {
        const V4 y = next.run(u);
        // What the first-order section of branch b gives, from the same sums as a second-order one.
        return joinHalves(wrapSub(next.pS1, next.d2.S), y);
    }

    [[gnu::always_inline]] void keep() const
    {
        first.keep();
        next.keep();
    }

private:
    NegatingSection2<V4> first;
    NegatingSection2<V4> next; // q = 0 in branch b
    V4 u{};                    // what the first sections gave last
};

template <class V4>
void split(Frame* low, Frame* high, const Frame* in, int32_t (*state)[7], const int16_t* coeffs_q14,
           int frames, int factor)
{
    if (frames == 0)
        return;
    SplitSections<V4> sections(state, coeffs_q14);
    sections.start(in);
    // Two frames at a time; the second of them is never one that the low band keeps.
    int n = 0;
    const auto giveTwo = [&](V4 y0, V4 y1) {
        const auto b = joinLowHalves(y0, y1);
        const auto a = joinHighHalves(y0, y1);
        storeTwoFrames(high + n, shiftRight<5>(wrapSub(b, a)));
        if ((n & (factor - 1)) == 0)
            storeLowFrame(low++, shiftRight<5>(wrapAdd(b, a)));
    };
    for (; n + 2 < frames; n += 2) {
        const V4 y0 = sections.run(in + n + 1);
        giveTwo(y0, sections.run(in + n + 2));
    }
    if (n + 1 < frames) {
        const V4 y0 = sections.run(in + n + 1);
        giveTwo(y0, sections.finish());
    } else {
        const V4 y = sections.finish();
        const auto b = joinLowHalves(y, y);
        const auto a = joinHighHalves(y, y);
        storeLowFrame(high + n, shiftRight<5>(wrapSub(b, a)));
        if ((n & (factor - 1)) == 0)
            storeLowFrame(low, shiftRight<5>(wrapAdd(b, a)));
    }

    sections.keep();
}

/// Adds twice the high band to two frames of low band (y, with two fraction bits).
template <class V4>
VSP_INLINE void combineTwoFrames(Frame* out, const Frame* high, V4 y)
{
    const auto x = narrow(y);
    const auto h = loadShorts(samples(high), x);
    storeTwoFramesSaturated(out, wrapAdd(shiftLeft<1>(h), shiftRight<2>(x)));
}

/// Runs step(out, high, m) for each low-band frame. The frames of a last one that doesn't fit whole
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
    NegatingSection2<V4> sections = sections2<V4>(state, coeffs_q14, 0, 2);
    forLowFrames<2>(out, high, lowFrames, outFrames, [&](Frame* to, const Frame* highBand, int m) {
        const V4 v = loadFrameTwice<kInputBits>(low + m, V4{});
        combineTwoFrames(to, highBand, sections.run(v));
    });
    sections.keep();
}

/// Each of the two phases at twice the low rate goes through two first-order sections.
template <class V4>
void interpolateBy4(Frame* out, const Frame* low, const Frame* high, int32_t (*state)[6],
                    const int16_t* coeffs_q14, int lowFrames, int outFrames)
{
    NegatingSection2<V4> first = sections2<V4>(state, coeffs_q14, 0, 2);
    NegatingSection1<V4> second(coeffsOf<V4>(coeffs_q14[4], coeffs_q14[5]), laneWords(state, 4, 5));
    forLowFrames<4>(out, high, lowFrames, outFrames, [&](Frame* to, const Frame* highBand, int m) {
        const V4 v = loadFrameTwice<kInputBits>(low + m, V4{});
        const V4 phases = first.run(v);
        combineTwoFrames(to, highBand, second.run(lowHalfTwice(phases)));
        combineTwoFrames(to + 2, highBand + 2, second.run(highHalfTwice(phases)));
    });
    first.keep();
    second.keep();
}

/// Weight 1.0 of a fade, Q10.
constexpr int kFullWeight = 1024;

template <class V>
void fadeHighBand(Frame* out, const Frame* older, const Frame* newer, int frames)
{
    const int16_t* const b = samples(older);
    const int16_t* const a = samples(newer);
    const auto sample = [=](int n, auto lanes, auto weight) {
        using W = decltype(lanes);
        const W rest = wrapSub(set1(kFullWeight, W{}), weight);
        return wrapAdd(shiftRight<10>(mulShort(loadShorts(b + n, W{}), weight)),
                       shiftRight<10>(mulShort(loadShorts(a + n, W{}), rest)));
    };
    int32_t ramp[V::lanes];
    for (int i = 0; i < V::lanes; ++i)
        ramp[i] = kFullWeight - i / 2 * 2;
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
        const I32x1 x = sample(n, I32x1{}, set1(kFullWeight - n / 2 * 2, I32x1{}));
        samples(out)[n] = fx::sat16(x.v[0]);
    }
}

template <class V>
void mixHighBand(Frame* out, const Frame* older, const Frame* newer,
                 const int32_t (*fades_q14)[kMaxHop], int alike_q14, int frames)
{
    const int16_t* const b = samples(older);
    const int16_t* const a = samples(newer);
    const auto sample = [=](int n, auto lanes) {
        using W = decltype(lanes);
        const auto weight = [=](int unlike, int change) {
            const W more =
                mulShort(loadTwice(fades_q14[change] + n / 2, W{}), set1(alike_q14, W{}));
            return wrapAdd(loadTwice(fades_q14[unlike] + n / 2, W{}), shiftRight<14>(more));
        };
        const W old = mulShort(loadShorts(b + n, W{}), weight(0, 2));
        const W fresh = mulShort(loadShorts(a + n, W{}), weight(1, 3));
        return shiftRight<14>(wrapAdd(wrapAdd(old, fresh), set1(1 << 13, W{})));
    };
    int n = 0;
    for (; V::lanes > 1 && n + 2 * V::lanes <= 2 * frames; n += 2 * V::lanes)
        storeSaturated(samples(out) + n, sample(n, V{}), sample(n + V::lanes, V{}));
    for (; n < 2 * frames; ++n)
        samples(out)[n] = fx::sat16(sample(n, I32x1{}).v[0]);
}

template <class V>
int64_t product(const int16_t* a, const int16_t* b, int samples)
{
    constexpr int kStep = 2 * V::lanes;
    auto sum = productSum(V{});
    int n = 0;
    for (; n + kStep <= samples; n += kStep)
        addShortProducts(sum, a + n, b + n);
    auto rest = productSum(I32x1{});
    for (; n + 2 <= samples; n += 2)
        addShortProducts(rest, a + n, b + n);
    return total(sum) + total(rest);
}

} // namespace vsp::VSP_KERNEL_SET
