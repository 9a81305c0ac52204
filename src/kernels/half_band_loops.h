// The half-band resamplers, left and right of both branches as lanes, and their sample format.
#pragma once

#include <cstdint>

#include "fixed/fixed.h"
#include "kernels/half_band.h"
#include "kernels/recursive_sections.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// Section A in two lanes, the first-order section followed by section B in the others.
/// `lanesA`: the first lane of A, 0 or 2.
template <class V4, int lanesA>
class HalfBandSections {
public:
    [[gnu::always_inline]] HalfBandSections(HalfBandState& left, HalfBandState& right)
        : first(lanesA == 0 ? 0 : kFirstOrderQ14, lanesA == 0 ? kFirstOrderQ14 : 0,
                lanes(nullptr, nullptr, &left.ap1, &right.ap1)),
          second(lanesA == 0 ? kSectionA : kSectionB, lanesA == 0 ? kSectionB : kSectionA,
                 lanes(&left.apA1, &right.apA1, &left.apB1, &right.apB1),
                 lanes(&left.apA2, &right.apA2, &left.apB2, &right.apB2))
    {
    }

    /// The sections' outputs for inputs x, lane by lane.
    [[gnu::always_inline]] V4 run(V4 x)
    {
        const V4 y = first.run(x);
        return second.run(lanesA == 0 ? joinHalves(x, y) : joinHalves(y, x));
    }

    [[gnu::always_inline]] void keep() const
    {
        first.keep();
        second.keep();
    }

private:
    [[gnu::always_inline]] static LaneWords lanes(int32_t* aLeft, int32_t* aRight, int32_t* bLeft,
                                                  int32_t* bRight)
    {
        return lanesA == 0 ? LaneWords{aLeft, aRight, bLeft, bRight}
                           : LaneWords{bLeft, bRight, aLeft, aRight};
    }

    Section1<V4> first;
    Section2<V4> second;
};

template <class V4>
void halveRate(int32_t (*out)[2], const int32_t (*in)[2], DecimatorState* state, int pairs)
{
    HalfBandSections<V4, 0> sections(state[0], state[1]);
    const int32_t ones[4] = {1, 1, 1, 1};
    const V4 one = load(ones, V4{});
    for (int n = 0; n < pairs; ++n) {
        const V4 y = sections.run(load(in[2 * n], V4{}));
        storeTwo(out[n], shiftRight<1>(wrapAdd(wrapAdd(y, highHalfTwice(y)), one)));
    }
    sections.keep();
}

template <class V4>
void doubleRate(int32_t (*out)[2], const int32_t (*in)[2], HalfBandState* state, int frames)
{
    HalfBandSections<V4, 2> sections(state[0], state[1]);
    for (int n = 0; n < frames; ++n)
        store(out[2 * n], sections.run(lowHalfTwice(loadTwo(in[n], V4{}))));
    sections.keep();
}

// ---- Two stretches of sound at once, for tables that have four lanes in a register. Their vectors
// also have loadFramePairs(p, q, a, b), of two frames each at p and q: the first of both in a, the
// second in b; and storeFramePairs(p, q, a, b), the reverse. ----

/// Their sections as lanes in HalfBandLanes: no lane of the first-order section is idle, and branch A
/// doesn't wait for B. A step's output is asked for when the next steps are on their way.
template <class V4>
class TwoStretches {
public:
    [[gnu::always_inline]] explicit TwoStretches(HalfBandLanes& lanes)
        : first(kFirstOrderQ14, kFirstOrderQ14, words(lanes.ap1)),
          a(kSectionA, kSectionA, words(lanes.apA1), words(lanes.apA2)),
          b(kSectionB, kSectionB, words(lanes.apB1), words(lanes.apB2))
    {
    }

    /// Takes the inputs of both branches, and lets the sections know them.
    [[gnu::always_inline]] void start(V4 forA, V4 forB)
    {
        inputA = forA;
        inputB = first.run(forB);
    }
    [[gnu::always_inline]] void advance()
    {
        a.next(inputA);
        b.next(inputB);
    }
    [[gnu::always_inline]] V4 outputA() const { return a.output(); }
    [[gnu::always_inline]] V4 outputB() const { return b.output(); }

    [[gnu::always_inline]] void keep() const
    {
        first.keep();
        a.keep();
        b.keep();
    }

private:
    [[gnu::always_inline]] static LaneWords words(int32_t (&lanes)[4])
    {
        return {&lanes[0], &lanes[1], &lanes[2], &lanes[3]};
    }

    Section1<V4> first;
    Section2<V4> a, b;
    V4 inputA{}, inputB{};
};

/// start(n) and give(n) of `count` steps, each step's output two starts behind.
template <class Sections, class Start, class Give>
VSP_INLINE void inParts(Sections& sections, int count, Start start, Give give)
{
    start(0);
    sections.advance();
    if (count > 1)
        start(1);
    for (int n = 2; n < count; ++n) {
        give(n - 2);
        sections.advance();
        start(n);
    }
    if (count > 1) {
        give(count - 2);
        sections.advance();
    }
    give(count - 1);
}

template <class V4>
void halveRateTwice(int32_t (*const (&out)[2])[2], const int32_t (*const (&in)[2])[2],
                    HalfBandLanes& lanes, int pairs)
{
    if (pairs == 0)
        return;
    TwoStretches<V4> sections(lanes);
    const int32_t ones[4] = {1, 1, 1, 1};
    const V4 one = load(ones, V4{});
    inParts(
        sections, pairs,
        [&](int n) {
            V4 even, odd;
            loadFramePairs(in[0][2 * n], in[1][2 * n], even, odd);
            sections.start(even, odd);
        },
        [&](int n) {
            const V4 sum = wrapAdd(sections.outputA(), sections.outputB());
            storeTwoEach(out[0][n], out[1][n], shiftRight<1>(wrapAdd(sum, one)));
        });
    sections.keep();
}

template <class V4>
void doubleRateTwice(int32_t (*const (&out)[2])[2], const int32_t (*const (&in)[2])[2],
                     HalfBandLanes& lanes, int frames)
{
    if (frames == 0)
        return;
    TwoStretches<V4> sections(lanes);
    inParts(
        sections, frames,
        [&](int n) {
            const V4 x = loadTwoEach(in[0][n], in[1][n], V4{});
            sections.start(x, x);
        },
        [&](int n) {
            storeFramePairs(out[0][2 * n], out[1][2 * n], sections.outputB(), sections.outputA());
        });
    sections.keep();
}

template <class V>
void toQ4(int32_t* out, const int16_t* in, int samples)
{
    int n = 0;
    for (; n + V::lanes <= samples; n += V::lanes)
        store(out + n, shiftLeft<kHalfBandFractionBits>(loadShorts(in + n, V{})));
    for (; n < samples; ++n)
        out[n] = in[n] * (1 << kHalfBandFractionBits);
}

template <class V>
void fromQ4(int16_t* out, const int32_t* in, int samples)
{
    int n = 0;
    for (; n + 2 * V::lanes <= samples; n += 2 * V::lanes)
        storeSaturated(out + n, shiftRight<kHalfBandFractionBits>(load(in + n, V{})),
                       shiftRight<kHalfBandFractionBits>(load(in + n + V::lanes, V{})));
    for (; n < samples; ++n)
        out[n] = fx::sat16(in[n] >> kHalfBandFractionBits);
}

} // namespace vsp::VSP_KERNEL_SET
