// Cuts each input hop into the low band, which goes through the vocoder at a reduced rate, and the
// high band, which is stretched by plain overlap-add; puts them together again after synthesis.

#include "vocoder/band_split.h"

#include <algorithm>
#include <cstring>

#include "engine/velora_vsp.h"

namespace vsp {
namespace {

// Samples enter the sections with three more fraction bits.
constexpr int kInputBits = 3;

// -W / 4 rounded toward minus infinity, which is not -(W >> 2).
VSP_INLINE int32_t minusQuarter(int32_t W)
{
    return fx::mulShift16(W, -kOneQ14);
}

// Second-order all-pass section with coefficients (p, q); W1, W2 are its delays.
VSP_INLINE int32_t allPass2(int32_t u, int32_t& W1, int32_t& W2, int32_t p_q14, int32_t q_q14)
{
    const int32_t p1 = fx::mulShift16(W1, p_q14);
    const int32_t W = fx::wrapShl(fx::wrapAdd(fx::wrapAdd(u, p1), fx::mulShift16(W2, q_q14)), 2);
    const int32_t y = fx::wrapAdd(fx::wrapAdd(minusQuarter(W2), p1), fx::mulShift16(W, q_q14));
    W2 = W1;
    W1 = W;
    return y;
}

// First-order all-pass section with coefficient p; W1 is its delay.
VSP_INLINE int32_t allPass1(int32_t u, int32_t& W1, int32_t p_q14)
{
    const int32_t W = fx::wrapShl(fx::wrapAdd(u, fx::mulShift16(W1, p_q14)), 2);
    const int32_t y = fx::wrapAdd(fx::mulShift16(W, p_q14), minusQuarter(W1));
    W1 = W;
    return y;
}

// Twice the high band plus the low band, which comes with two fraction bits.
VSP_INLINE int16_t recombine(int16_t high, int32_t low)
{
    return fx::sat16(int64_t(2 * high) + (low >> 2));
}

} // namespace

void splitChannel(Frame* low, Frame* high, const Frame* in, int channel, int32_t* state,
                  const int16_t* coeffs_q14, int frames, int factor)
{
    const int16_t* const C = coeffs_q14;
    for (int n = 0; n < frames; ++n) {
        const int32_t v = in[n][channel] * (1 << kInputBits);
        const int32_t b1 = allPass2(v, state[0], state[1], C[0], C[1]);
        const int32_t b = allPass1(b1, state[2], C[2]);
        const int32_t a1 = allPass2(v, state[3], state[4], C[3], C[4]);
        const int32_t a = allPass2(a1, state[5], state[6], C[5], C[6]);
        high[n][channel] = fx::low16(fx::wrapSub(b, a) >> 5);
        if ((n & (factor - 1)) == 0)
            (*low++)[channel] = fx::low16(fx::wrapAdd(b, a) >> 5);
    }
}

void interpolateBy2(Frame* out, const Frame* low, const Frame* high, int channel, int32_t* state,
                    const int16_t* coeffs_q14, int lowFrames, int outFrames)
{
    const int16_t* const k = coeffs_q14;
    for (int m = 0; m < lowFrames; ++m) {
        const int32_t v = low[m][channel] * (1 << kInputBits);
        const int32_t y[2] = {allPass2(v, state[0], state[1], k[0], k[1]),
                              allPass2(v, state[2], state[3], k[2], k[3])};
        for (int n = 2 * m; n < std::min(2 * m + 2, outFrames); ++n)
            out[n][channel] = recombine(high[n][channel], y[n - 2 * m]);
    }
}

void interpolateBy4(Frame* out, const Frame* low, const Frame* high, int channel, int32_t* state,
                    const int16_t* coeffs_q14, int lowFrames, int outFrames)
{
    const int16_t* const k = coeffs_q14;
    for (int m = 0; m < lowFrames; ++m) {
        const int32_t v = low[m][channel] * (1 << kInputBits);
        const int32_t yA = allPass2(v, state[0], state[1], k[0], k[1]);
        const int32_t yB = allPass2(v, state[2], state[3], k[2], k[3]);
        int32_t y[4];
        y[0] = allPass1(yA, state[4], k[4]);
        y[1] = allPass1(yA, state[5], k[5]);
        y[2] = allPass1(yB, state[4], k[4]);
        y[3] = allPass1(yB, state[5], k[5]);
        for (int n = 4 * m; n < std::min(4 * m + 4, outFrames); ++n)
            out[n][channel] = recombine(high[n][channel], y[n - 4 * m]);
    }
}

void fadeHighBand(Frame* out, const Frame* older, const Frame* newer, int frames)
{
    for (int n = 0; n < frames; ++n) {
        const int32_t weight_q10 = 1024 - 2 * n;
        for (int channel = 0; channel < 2; ++channel)
            out[n][channel] = fx::sat16(fx::mulShift16(older[n][channel] * 64, weight_q10) +
                                        fx::mulShift16(newer[n][channel] * 64, 1024 - weight_q10));
    }
}

} // namespace vsp

using namespace vsp;

void Velora_VSP::Velora_VSP_LPHP_separate(const Frame* in, int frames)
{
    turnRing(hpRing);
    if (bandFactor == 1) {
        std::memcpy(lowBandFrame, in, size_t(frames) * sizeof *in);
        return;
    }
    Frame* const high = hpRing[4];
    for (int channel = 0; channel < 2; ++channel)
        splitChannel(lowBandFrame, high, in, channel, splitState[channel], splitCoeffs, frames,
                     bandFactor);
    if (highBandGainQ15 < 32768)
        for (int n = 0; n < frames; ++n)
            for (int channel = 0; channel < 2; ++channel)
                high[n][channel] = fx::low16(fx::mulShift16(high[n][channel] * 2, highBandGainQ15));
}

void Velora_VSP::Velora_VSP_Combine_HP(int frames)
{
    turnRing(hpSegRing);
    const size_t hopBytes = size_t(frames) * sizeof *hpOut;
    std::memcpy(hpSegRing[3], hpRing[0], hopBytes);
    std::memcpy(hpSegRing[3] + frames, hpRing[1], hopBytes);
    fadeHighBand(hpOut, hpSegRing[0] + frames, hpSegRing[1], frames);
}

void Velora_VSP::Velora_VSP_LP_interpolate(Frame* dest, int lowFrames, int outFrames)
{
    // A hop shorter than one low-band frame still takes one, so that the filters move on.
    const int readFrames = std::max(lowFrames, 1);
    const int written = std::min(readFrames * bandFactor, outFrames);
    if (bandFactor == 1) {
        std::memcpy(dest, lowBandFrame, size_t(written) * sizeof *dest);
    } else {
        const auto interpolate = bandFactor == 2 ? interpolateBy2 : interpolateBy4;
        for (int channel = 0; channel < 2; ++channel)
            interpolate(dest, lowBandFrame, hpOut, channel, interpState[channel], interpCoeffs,
                        readFrames, written);
    }
    std::memset(dest + written, 0, size_t(outFrames - written) * sizeof *dest);
}
