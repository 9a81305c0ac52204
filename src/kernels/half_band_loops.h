// The half-band resamplers' all-pass sections: left and right of both branches as lanes.
#pragma once

#include "kernels/half_band.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// Lanes of section A and of the first-order section followed by section B, one pair of channels
/// each; `lanesA` is the first lane of A, 0 or 2.
template <class V4, int lanesA>
struct HalfBandSections {
    CoeffsOf<V4> c0, c1, minusC0, minusC1; // second-order sections
    CoeffsOf<V4> p, minusP;                // first-order section, in the lanes of B
    V4 S1, S2, S0;                         // sums as in filter_loops.h: a quarter of the delays
    FactorOf<V4> W1, W2, W0;               // the delays

    [[gnu::always_inline]] explicit HalfBandSections(const HalfBandState& left,
                                                     const HalfBandState& right)
    {
        struct Lanes {
            int32_t lane[4];
        };
        const auto lanes = [](int32_t aLeft, int32_t aRight, int32_t bLeft, int32_t bRight) {
            return lanesA == 0 ? Lanes{aLeft, aRight, bLeft, bRight}
                               : Lanes{bLeft, bRight, aLeft, aRight};
        };
        const auto both = [&](int32_t a, int32_t b) {
            return loadCoeffs(lanes(a, a, b, b).lane, V4{});
        };
        const auto sums = [&](int32_t aLeft, int32_t aRight, int32_t bLeft, int32_t bRight) {
            return load(lanes(aLeft >> 2, aRight >> 2, bLeft >> 2, bRight >> 2).lane, V4{});
        };
        c0 = both(kSectionA.c0_q14, kSectionB.c0_q14);
        c1 = both(kSectionA.c1_q14, kSectionB.c1_q14);
        minusC0 = both(-kSectionA.c0_q14, -kSectionB.c0_q14);
        minusC1 = both(-kSectionA.c1_q14, -kSectionB.c1_q14);
        p = both(0, kFirstOrderQ14);
        minusP = both(0, -kFirstOrderQ14);
        S1 = sums(left.apA1, right.apA1, left.apB1, right.apB1);
        S2 = sums(left.apA2, right.apA2, left.apB2, right.apB2);
        S0 = sums(0, 0, left.ap1, right.ap1);
        W1 = timesFour(S1);
        W2 = timesFour(S2);
        W0 = timesFour(S0);
    }

    /// The sections' outputs for inputs x, lane by lane.
    [[gnu::always_inline]] V4 run(V4 x)
    {
        const V4 S = wrapAdd(x, mulShift16(W0, minusP));
        W0 = timesFour(S);
        const V4 first = wrapAdd(S0, mulShift16(W0, p));
        S0 = S;
        return second(lanesA == 0 ? joinHalves(x, first) : joinHalves(first, x));
    }

    [[gnu::always_inline]] void keep(HalfBandState& left, HalfBandState& right) const
    {
        int32_t w[3][4];
        store(w[0], shiftLeft<2>(S1));
        store(w[1], shiftLeft<2>(S2));
        store(w[2], shiftLeft<2>(S0));
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
        const V4 S = wrapAdd(wrapAdd(x, mulShift16(W2, minusC1)), mulShift16(W1, minusC0));
        const auto W = timesFour(S);
        const V4 y = wrapAdd(wrapAdd(mulShift16(W1, c0), S2), mulShift16(W, c1));
        S2 = S1;
        S1 = S;
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
