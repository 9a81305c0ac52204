// Cuts each input hop into the low band, which goes through the vocoder at a reduced rate, and the
// high band, which is stretched by plain overlap-add; puts them together again after synthesis.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "fixed/fixed.h"
#include "fixed/floating_point.h"
#include "kernels/band_split.h"
#include "vocoder/vocoder.h"

namespace vsp {
namespace {

// Turns the polarity over; the one value that has no opposite becomes the nearest one.
void negate(int16_t* samples, int count)
{
    for (int n = 0; n < count; ++n)
        samples[n] = fx::sat16(-samples[n]);
}

} // namespace

void Vocoder::configure(int index)
{
    hopIndex = int16_t(index);
    bandFactor = int16_t(1 << index);
    splitCoeffs = bandFactor == 4 ? kSplitCoeffsB : kSplitCoeffsA;
    interpCoeffs = kInterpCoeffs;
    // Segments that are faded are hops of input that don't follow on one another: they have nothing
    // in common, so the squares of the weights add up to 1.
    const int frames = hopFrames();
    for (int n = 0; n < frames; ++n) {
        const double rise = (n + 0.5) / frames;
        const double fall = 1.0 - rise;
        const double scale = 16384.0 / std::sqrt(rise * rise + fall * fall);
        hpFadeQ14[0][n] = int32_t(fall * scale);
        hpFadeQ14[1][n] = int32_t(rise * scale);
    }
}

void Vocoder::Velora_VSP_LPHP_separate(const Frame* in, int frames)
{
    hpRing.turn();
    separate(in, 0, frames);
}

void Vocoder::separate(const Frame* in, int from, int to)
{
    const int frames = to - from;
    Frame* const low = lowBandFrame + from / bandFactor;
    if (bandFactor == 1) {
        std::memcpy(low, in + from, size_t(frames) * sizeof *in);
        return;
    }
    Frame* const high = hpRing.newest() + from;
    kernels.split(low, high, in + from, splitState, splitCoeffs, frames, bandFactor);
    if (bandFactor == 2 && sound != Velora_VSP_Sound_Own)
        negate(*low, 2 * ((frames + 1) / 2));
    if (highBandGainQ15 < 32768)
        for (int n = 0; n < frames; ++n)
            for (int channel = 0; channel < 2; ++channel)
                high[n][channel] = fx::low16(fx::mulShift16(high[n][channel] * 2, highBandGainQ15));
}

void Vocoder::Velora_VSP_Combine_HP(int frames)
{
    hpSegRing.turn();
    const size_t hopBytes = size_t(frames) * sizeof *hpOut;
    Frame* const segment = hpSegRing.newest();
    std::memcpy(segment, hpRing[0], hopBytes);
    std::memcpy(segment + frames, hpRing[1], hopBytes);
    hpStepRing.turn();
    hpStepRing.newest()[0] = std::exchange(hopsSinceFrame, int8_t(0));
    const Frame* const older = hpSegRing[0] + frames;
    const Frame* const newer = hpSegRing[1];
    if (!fadesEvenly())
        kernels.fadeHighBand(hpOut, older, newer, frames);
    else if (hpStepRing[1][0] == 1)
        std::memcpy(hpOut, newer, hopBytes); // both are the same hop of input
    else
        kernels.mixHighBand(hpOut, older, newer, hpFadeQ14[0], hpFadeQ14[1], frames);
}

void Vocoder::Velora_VSP_LP_interpolate(Frame* dest, int lowFrames, int outFrames)
{
    // A hop shorter than one low-band frame still takes one, so that the filters move on.
    const int readFrames = std::max(lowFrames, 1);
    const int written = std::min(readFrames * bandFactor, outFrames);
    if (bandFactor == 1) {
        std::memcpy(dest, lowBandFrame, size_t(written) * sizeof *dest);
    } else {
        const auto interpolate = bandFactor == 2 ? kernels.interpolateBy2 : kernels.interpolateBy4;
        interpolate(dest, lowBandFrame, hpOut, interpState, interpCoeffs, readFrames, written);
    }
    std::memset(dest + written, 0, size_t(outFrames - written) * sizeof *dest);
}

} // namespace vsp
