// The two output low-passes of slow speeds, in series. A frame waits for the one before it, so the
// lanes are left and right of the first filter, then of the second.
#pragma once

#include <type_traits>

#include "kernels/biquad_section.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

template <class V4>
class BiquadSections {
public:
    BiquadSections(const BiquadChannelState* first, const BiquadChannelState* second,
                   const int32_t* coeffs_q30)
        : b0(set1(coeffs_q30[0], V4{})), b1(set1(coeffs_q30[1], V4{})),
          minusA1(set1(coeffs_q30[3], V4{})), minusA2(set1(coeffs_q30[4], V4{}))
    {
        const BiquadChannelState* const s[4] = {first, first + 1, second, second + 1};
        int32_t words[5][4];
        for (int i = 0; i < 4; ++i) {
            words[0][i] = s[i]->x1;
            words[1][i] = s[i]->x2;
            words[2][i] = s[i]->y1;
            words[3][i] = s[i]->y2;
            words[4][i] = int32_t(s[i]->residue);
        }
        x1 = load(words[0], V4{});
        x2 = load(words[1], V4{});
        y1 = load(words[2], V4{});
        y2 = load(words[3], V4{});
        residue = load(words[4], V4{});
    }

    /// Biquad_Section in every lane. The product that waits for the last output is added last.
    [[gnu::always_inline]] V4 run(V4 samples)
    {
        const V4 x = shiftLeft<6>(samples);
        auto sum_q36 = unsignedSums(residue);
        addProducts(sum_q36, wrapAdd(x, x2), b0);
        addProducts(sum_q36, x1, b1);
        addProducts(sum_q36, y2, minusA2);
        addProducts(sum_q36, y1, minusA1);
        const V4 high = highWords(sum_q36);
        residue = lowWords(sum_q36);
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = shiftLeft<2>(high);
        return shiftRight<16>(shiftLeft<12>(high)); // low 16 bits of high >> 4
    }

    [[gnu::always_inline]] void keep(BiquadChannelState* first, BiquadChannelState* second) const
    {
        int32_t words[5][4];
        store(words[0], x1);
        store(words[1], x2);
        store(words[2], y1);
        store(words[3], y2);
        store(words[4], residue);
        BiquadChannelState* const s[4] = {first, first + 1, second, second + 1};
        for (int i = 0; i < 4; ++i)
            *s[i] = {words[0][i], words[1][i], words[2][i], words[3][i], uint32_t(words[4][i])};
    }

private:
    V4 b0, b1, minusA1, minusA2; // Q30
    V4 x1, x2, y1, y2, residue;  // as in BiquadChannelState
};

// The second filter is so many frames behind the first that no lane waits for another's output.
constexpr int kLagFrames = 2;

/// `count` is above kLagFrames.
template <class V4>
VSP_INLINE void lowPassInLanes(Frame* frames, BiquadChannelState* first, BiquadChannelState* second,
                               const int32_t* coeffs_q30, int count)
{
    Biquad_Frames(frames, frames, kLagFrames, first, coeffs_q30);
    BiquadSections<V4> sections(first, second, coeffs_q30);
    V4 older = loadFrameTwice<0>(frames, V4{});
    V4 newer = loadFrameTwice<0>(frames + 1, V4{});
    for (int n = kLagFrames; n < count; ++n) {
        const V4 y = sections.run(joinHalves(loadFrameTwice<0>(frames + n, V4{}), older));
        older = newer;
        newer = lowHalfTwice(y);
        storeHighFrame(frames + n - kLagFrames, y);
    }
    sections.keep(first, second);
    Frame* const last = frames + count - kLagFrames;
    storeTwoFrames(last, joinHalves(older, newer));
    Biquad_Frames(last, last, kLagFrames, second, coeffs_q30);
}

/// Without vector registers the sections of two channels are as much as the machine can hold.
template <class V4>
void lowPassTwice(Frame* frames, BiquadChannelState* first, BiquadChannelState* second,
                  const int32_t* coeffs_q30, int count)
{
    if constexpr (!std::is_same_v<V4, I32x4Scalar>)
        if (count > kLagFrames)
            return lowPassInLanes<V4>(frames, first, second, coeffs_q30, count);
    Biquad_Frames(frames, frames, count, first, coeffs_q30);
    Biquad_Frames(frames, frames, count, second, coeffs_q30);
}

} // namespace vsp::VSP_KERNEL_SET
