// Recursive filter sections. A sample waits for the one before it, so the lanes are not samples but
// sections: left and right of two of them at a time. A section takes its lanes' memory from the
// channels' states when it is made, runs one sample in all lanes, and gives it back with keep().
// Of a sum's terms, the one that is known last is added last.
//
// A delay of an all-pass section is the sum S before its first product, mod 2^32. Memory holds
// W = 4 S. Values stay far below 2^29, so W >> 2 is S itself, and W c >> 16 the same as S c >> 14.
#pragma once

#include <cstdint>

#include "fixed/fixed.h"
#include "kernels/biquad_section.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// Where the words of four lanes lie: left and right of section a, left and right of section b. A
/// lane without a word begins with 0 and is not kept.
struct LaneWords {
    int32_t* aLeft;
    int32_t* aRight;
    int32_t* bLeft;
    int32_t* bRight;
};

template <int bits, class V4>
VSP_INLINE V4 gather(const LaneWords& from, V4)
{
    const auto value = [](const int32_t* word) { return word != nullptr ? *word >> bits : 0; };
    const int32_t lanes[4] = {value(from.aLeft), value(from.aRight), value(from.bLeft),
                              value(from.bRight)};
    return load(lanes, V4{});
}
template <class V4>
VSP_INLINE void scatter(const LaneWords& to, V4 a)
{
    int32_t lanes[4];
    store(lanes, a);
    const auto keep = [](int32_t* word, int32_t value) {
        if (word != nullptr)
            *word = value;
    };
    keep(to.aLeft, lanes[0]);
    keep(to.aRight, lanes[1]);
    keep(to.bLeft, lanes[2]);
    keep(to.bRight, lanes[3]);
}

/// A coefficient of two sections, left and right alike.
template <class V4>
VSP_INLINE CoeffsOf<V4> coeffsOf(int32_t a, int32_t b)
{
    const int32_t lanes[4] = {a, a, b, b};
    return loadCoeffs(lanes, V4{});
}

/// A delay of all-pass sections: the sum S, and where its W lies.
template <class V4>
struct Delay {
    V4 S;
    LaneWords memory;

    [[gnu::always_inline]] explicit Delay(const LaneWords& words)
        : S(gather<2>(words, V4{})), memory(words)
    {
    }
    [[gnu::always_inline]] void keep() const { scatter(memory, shiftLeft<2>(S)); }
};

// ---- Sections that turn the sign: S = u + p S1 + q S2, y = q S + p S1 - S2. The products of a sum
// serve both equations, and the samples that follow. ----

template <class V4>
struct NegatingSection2 {
    CoeffsOf<V4> p, q; // Q14
    Delay<V4> d1, d2;
    V4 pS1, qS1, qS2; // products of the delays

    [[gnu::always_inline]] NegatingSection2(CoeffsOf<V4> p_q14, CoeffsOf<V4> q_q14,
                                            const LaneWords& memory1, const LaneWords& memory2)
        : p(p_q14), q(q_q14), d1(memory1), d2(memory2), pS1(timesQ14(d1.S, p)),
          qS1(timesQ14(d1.S, q)), qS2(timesQ14(d2.S, q))
    {
    }
    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 S = wrapAdd(wrapAdd(u, qS2), pS1);
        const V4 qS = timesQ14(S, q);
        const V4 y = wrapAdd(wrapSub(pS1, d2.S), qS);
        pS1 = timesQ14(S, p);
        qS2 = qS1;
        qS1 = qS;
        d2.S = d1.S;
        d1.S = S;
        return y;
    }
    [[gnu::always_inline]] void keep() const
    {
        d1.keep();
        d2.keep();
    }
};

template <class V4>
struct NegatingSection1 {
    CoeffsOf<V4> p;
    Delay<V4> d1;
    V4 pS1;

    [[gnu::always_inline]] NegatingSection1(CoeffsOf<V4> p_q14, const LaneWords& memory)
        : p(p_q14), d1(memory), pS1(timesQ14(d1.S, p))
    {
    }
    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 S = wrapAdd(u, pS1);
        pS1 = timesQ14(S, p);
        const V4 y = wrapSub(pS1, d1.S);
        d1.S = S;
        return y;
    }
    [[gnu::always_inline]] void keep() const { d1.keep(); }
};

// ---- Sections that keep the sign: S = u - c0 S1 - c1 S2, y = c1 S + c0 S1 + S2. Coefficients are
// negated, not products, which would round differently: no product serves twice. ----

template <class V4>
struct Section2 {
    CoeffsOf<V4> c0, c1, minusC0, minusC1; // Q14
    Delay<V4> d1, d2;
    V4 S3{}; // the sum before those of the delays, once there is a sample

    /// @param a, b  coefficients c0 and c1 in lanes 0 and 1, in lanes 2 and 3
    template <class Coeffs>
    [[gnu::always_inline]] Section2(const Coeffs& a, const Coeffs& b, const LaneWords& memory1,
                                    const LaneWords& memory2)
        : c0(coeffsOf<V4>(a.c0_q14, b.c0_q14)), c1(coeffsOf<V4>(a.c1_q14, b.c1_q14)),
          minusC0(coeffsOf<V4>(-a.c0_q14, -b.c0_q14)), minusC1(coeffsOf<V4>(-a.c1_q14, -b.c1_q14)),
          d1(memory1), d2(memory2)
    {
    }
    [[gnu::always_inline]] V4 run(V4 u)
    {
        next(u);
        return output();
    }
    /// The two halves of run(), for loops that do them at different times.
    [[gnu::always_inline]] void next(V4 u)
    {
        const V4 S = wrapAdd(wrapAdd(u, timesQ14(d2.S, minusC1)), timesQ14(d1.S, minusC0));
        S3 = d2.S;
        d2.S = d1.S;
        d1.S = S;
    }
    [[gnu::always_inline]] V4 output() const
    {
        return wrapAdd(wrapAdd(timesQ14(d2.S, c0), S3), timesQ14(d1.S, c1));
    }
    [[gnu::always_inline]] void keep() const
    {
        d1.keep();
        d2.keep();
    }
};

template <class V4>
struct Section1 {
    CoeffsOf<V4> c, minusC; // Q14
    Delay<V4> d1;

    [[gnu::always_inline]] Section1(int32_t a_q14, int32_t b_q14, const LaneWords& memory)
        : c(coeffsOf<V4>(a_q14, b_q14)), minusC(coeffsOf<V4>(-a_q14, -b_q14)), d1(memory)
    {
    }
    [[gnu::always_inline]] V4 run(V4 u)
    {
        const V4 S = wrapAdd(u, timesQ14(d1.S, minusC));
        const V4 y = wrapAdd(d1.S, timesQ14(S, c));
        d1.S = S;
        return y;
    }
    [[gnu::always_inline]] void keep() const { d1.keep(); }
};

// ---- Biquad_Section in every lane ----

template <class V4>
class BiquadSections {
public:
    /// @param first, second  states [channel]: lanes 0 and 1, lanes 2 and 3
    [[gnu::always_inline]] BiquadSections(BiquadChannelState* first, BiquadChannelState* second,
                                          const int32_t* coeffs_q30)
        : b0(set1(coeffs_q30[0], V4{})), b1(set1(coeffs_q30[1], V4{})),
          minusA1(set1(coeffs_q30[3], V4{})), minusA2(set1(coeffs_q30[4], V4{})), a(first),
          b(second), x1(gather<0>(memory(&BiquadChannelState::x1), V4{})),
          x2(gather<0>(memory(&BiquadChannelState::x2), V4{})),
          y1(gather<0>(memory(&BiquadChannelState::y1), V4{})),
          y2(gather<0>(memory(&BiquadChannelState::y2), V4{})),
          residue(gather<0>(memory(&BiquadChannelState::residue), V4{}))
    {
    }

    /// The product that waits for the last output is added last.
    [[gnu::always_inline]] V4 run(V4 samples)
    {
        const V4 x = shiftLeft<6>(samples);
        auto sum_q36 = unsignedSums(residue);
        addProducts(sum_q36, y2, minusA2);
        addProducts(sum_q36, x1, b1);
        addProducts(sum_q36, wrapAdd(x, x2), b0);
        addProducts(sum_q36, y1, minusA1);
        const V4 high = highWords(sum_q36);
        residue = lowWords(sum_q36);
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = shiftLeft<2>(high);
        return shiftRight<16>(shiftLeft<12>(high)); // low 16 bits of high >> 4
    }

    [[gnu::always_inline]] void keep() const
    {
        scatter(memory(&BiquadChannelState::x1), x1);
        scatter(memory(&BiquadChannelState::x2), x2);
        scatter(memory(&BiquadChannelState::y1), y1);
        scatter(memory(&BiquadChannelState::y2), y2);
        scatter(memory(&BiquadChannelState::residue), residue);
    }

private:
    template <class Word>
    [[gnu::always_inline]] LaneWords memory(Word BiquadChannelState::*member) const
    {
        const auto word = [](Word& w) { return reinterpret_cast<int32_t*>(&w); };
        return {word(a[0].*member), word(a[1].*member), word(b[0].*member), word(b[1].*member)};
    }

    V4 b0, b1, minusA1, minusA2; // Q30
    BiquadChannelState* a;
    BiquadChannelState* b;
    V4 x1, x2, y1, y2, residue; // as in BiquadChannelState
};

} // namespace vsp::VSP_KERNEL_SET
