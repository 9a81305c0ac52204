// One second-order section of the output low-pass: coefficients b0, b1, b2, -a1, -a2 in Q30.
#pragma once

#include <cstdint>

#include "fixed/fixed.h"
#include "fixed/frame.h"

namespace vsp {

/// Memory of one channel.
struct BiquadChannelState {
    int32_t x1 = 0;       // last input, times 64
    int32_t x2 = 0;       // the one before
    int32_t y1 = 0;       // last output, times 64: four fraction bits are kept
    int32_t y2 = 0;       // the one before
    uint32_t residue = 0; // what the last output cut off, Q36: fed into the next (error feedback)
};

/// Runs one sample through the section: truncated toward minus infinity, not saturated.
VSP_INLINE int16_t Biquad_Section(int16_t sample, const int32_t* coeffs_q30, BiquadChannelState& s)
{
    const int32_t* const c = coeffs_q30;
    const int32_t x = sample * 64;
    // b0 weights both the newest and the oldest input: b2 is the same.
    const int64_t sum_q36 = int64_t(s.residue) + int64_t(c[0]) * (x + s.x2) + int64_t(c[1]) * s.x1 +
                            int64_t(c[4]) * s.y2 + int64_t(c[3]) * s.y1;
    const int32_t high = int32_t(sum_q36 >> 32);
    s.residue = uint32_t(sum_q36);
    s.x2 = s.x1;
    s.x1 = x;
    s.y2 = s.y1;
    s.y1 = fx::wrapShl(high, 2);
    return fx::low16(high >> 4);
}

/// Runs frames through one filter; `dst` may be `src`. state [channel]
VSP_INLINE void Biquad_Frames(Frame* dst, const Frame* src, int frames, BiquadChannelState* state,
                              const int32_t* coeffs_q30)
{
    BiquadChannelState left = state[0];
    BiquadChannelState right = state[1];
    for (int n = 0; n < frames; ++n) {
        dst[n][0] = Biquad_Section(src[n][0], coeffs_q30, left);
        dst[n][1] = Biquad_Section(src[n][1], coeffs_q30, right);
    }
    state[0] = left;
    state[1] = right;
}

} // namespace vsp
