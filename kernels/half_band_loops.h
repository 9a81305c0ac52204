// The half-band resamplers' all-pass sections: left and right of both branches as lanes.
#pragma once

#include "convert/half_band.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// Lanes of section A and of the first-order section followed by section B, one pair of channels
/// each; `lanesA` is the first lane of A, 0 or 2.
template <class V4, int lanesA>
struct HalfBandSections {
    V4 c0, c1, minusC0, minusC1, W1, W2; // second-order sections
    V4 p, minusP, W0;                    // first-order section, in the lanes of B

    [[gnu::always_inline]] explicit HalfBandSections(const HalfBandState& left,
                                                     const HalfBandState& right)
    {
        const auto lanes = [](int32_t aLeft, int32_t aRight, int32_t bLeft, int32_t bRight) {
            const int32_t aFirst[4] = {aLeft, aRight, bLeft, bRight};
            const int32_t bFirst[4] = {bLeft, bRight, aLeft, aRight};
            return load(lanesA == 0 ? aFirst : bFirst, V4{});
        };
        const auto both = [&](int32_t a, int32_t b) { return lanes(a, a, b, b); };
        c0 = both(kSectionA.c0_q14, kSectionB.c0_q14);
        c1 = both(kSectionA.c1_q14, kSectionB.c1_q14);
        minusC0 = both(-kSectionA.c0_q14, -kSectionB.c0_q14);
        minusC1 = both(-kSectionA.c1_q14, -kSectionB.c1_q14);
        p = both(0, kFirstOrderQ14);
        minusP = both(0, -kFirstOrderQ14);
        W1 = lanes(left.apA1, right.apA1, left.apB1, right.apB1);
        W2 = lanes(left.apA2, right.apA2, left.apB2, right.apB2);
        W0 = lanes(0, 0, left.ap1, right.ap1);
    }

    /// The sections' outputs for inputs x, lane by lane.
    [[gnu::always_inline]] V4 run(V4 x)
    {
        const V4 W = shiftLeft<2>(wrapAdd(x, mulShift16(W0, minusP)));
        const V4 first = wrapAdd(shiftRight<2>(W0), mulShift16(W, p));
        W0 = W;
        return second(lanesA == 0 ? joinHalves(x, first) : joinHalves(first, x));
    }

    [[gnu::always_inline]] void keep(HalfBandState& left, HalfBandState& right) const
    {
        int32_t w[3][4];
        store(w[0], W1);
        store(w[1], W2);
        store(w[2], W0);
        constexpr int kA = lanesA;
        constexpr int kB = 2 - lanesA;
        left.apA1 = w[0][kA];
        left.apA2 = w[1][kA];
        left.apB1 = w[0][kB];
        left.apB2 = w[1][kB];
        left.ap1 = w[2][kB];
        right.apA1 = w[0][kA + 1];
        right.apA2 = w[1][kA + 1];
        right.apB1 = w[0][kB + 1];
        right.apB2 = w[1][kB + 1];
        right.ap1 = w[2][kB + 1];
    }

private:
    [[gnu::always_inline]] V4 second(V4 x)
    {
        // The negated coefficient is multiplied, not the product negated: they round differently.
        const V4 feedback = wrapAdd(mulShift16(W2, minusC1), mulShift16(W1, minusC0));
        const V4 W = shiftLeft<2>(wrapAdd(x, feedback));
        const V4 y = wrapAdd(wrapAdd(mulShift16(W1, c0), shiftRight<2>(W2)), mulShift16(W, c1));
        W2 = W1;
        W1 = W;
        return y;
    }
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
    sections.keep(state[0], state[1]);
}

template <class V4>
void doubleRate(int32_t (*out)[2], const int32_t (*in)[2], HalfBandState* state, int frames)
{
    HalfBandSections<V4, 2> sections(state[0], state[1]);
    for (int n = 0; n < frames; ++n)
        store(out[2 * n], sections.run(lowHalfTwice(loadTwo(in[n], V4{}))));
    sections.keep(state[0], state[1]);
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
