// Cuts each input hop into the low band, which goes through the vocoder at a reduced rate, and the
// high band; puts them together again after synthesis.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fixed/fixed.h"
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
    setFades();
}

void Vocoder::Velora_VSP_LPHP_separate(const Frame* in, int frames)
{
    turnHighBand(frames);
    separate(in, 0, frames);
}

void Vocoder::separate(const Frame* in, int from, int to)
{
    const int frames = to - from;
    Frame* const low = lowBandFrame + from / bandFactor;
    if (bandFactor == 1) {
        copyFrames(low, in + from, frames);
        return;
    }
    Frame* const high = highBand.newest() + from;
    kernels.split(low, high, in + from, splitState, splitCoeffs, frames, bandFactor);
    if (bandFactor == 2 && sound != Velora_VSP_Sound_Own)
        negate(*low, 2 * ((frames + 1) / 2));
    if (highBandGainQ15 < 32768)
        for (int n = 0; n < frames; ++n)
            for (int channel = 0; channel < 2; ++channel)
                high[n][channel] = fx::low16(fx::mulShift16(high[n][channel] * 2, highBandGainQ15));
}

void Vocoder::Velora_VSP_LP_interpolate(Frame* dest, const Frame* hpOut, int lowFrames,
                                        int outFrames)
{
    // A hop shorter than one low-band frame still takes one, so that the filters move on.
    const int readFrames = std::max(lowFrames, 1);
    const int written = std::min(readFrames * bandFactor, outFrames);
    if (bandFactor == 1) {
        copyFrames(dest, lowBandFrame, written);
    } else {
        const auto interpolate = bandFactor == 2 ? kernels.interpolateBy2 : kernels.interpolateBy4;
        interpolate(dest, lowBandFrame, hpOut, interpState, interpCoeffs, readFrames, written);
    }
    std::memset(dest + written, 0, size_t(outFrames - written) * sizeof *dest);
}

} // namespace vsp
