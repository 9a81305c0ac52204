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

void copy(Frame* out, const Frame* in, int frames)
{
    std::memcpy(out, in, size_t(frames) * sizeof *in);
}

} // namespace

void Vocoder::configure(int index)
{
    hopIndex = int16_t(index);
    bandFactor = int16_t(1 << index);
    splitCoeffs = bandFactor == 4 ? kSplitCoeffsB : kSplitCoeffsA;
    interpCoeffs = kInterpCoeffs;
    // Segments that are faded are stretches of input that don't follow on one another: they have
    // nothing in common, so the squares of the weights add up to 1.
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
    turnHighBand();
    separate(in, 0, frames);
}

void Vocoder::turnHighBand()
{
    if (does(Velora_VSP_Sound_LockedChannels))
        copy(hpBefore, hpRing[0], kMaxHop);
    hpRing.turn();
}

// Hops of high band by age: 0 is the oldest, 1 the oldest that the bare engine has.
const Frame* Vocoder::highBandHop(int number) const
{
    return number == 0 ? hpBefore : hpRing[number - 1];
}

void Vocoder::separate(const Frame* in, int from, int to)
{
    const int frames = to - from;
    Frame* const low = lowBandFrame + from / bandFactor;
    if (bandFactor == 1) {
        copy(low, in + from, frames);
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

// Where the next segment starts, in frames from the oldest hop on. The bare engine keeps to
// whole hops, as its low band does. Else the middle of the segment, a hop of output behind the
// middle of the synthesis frame, is to sound the input that belongs there: to the frame at onsets;
// otherwise it goes on where the one before ended, which is heard least, as long as it comes within
// half a hop.
int Vocoder::segmentStart(int frames) const
{
    if (!does(Velora_VSP_Sound_LockedChannels))
        return frames;
    const int last = (hpRing.size - 1) * frames;
    const int wanted = std::min(int((frameClock + effectiveSpeed) * float(frames)), last);
    constexpr float kNoneFollows = 2.0f;
    if (nearsOnset || effectiveSpeed >= kNoneFollows)
        return wanted;
    const int following = hpStart + (1 - hopsSinceFrame) * frames;
    const int nearest = std::clamp(following, std::max(wanted - frames / 2, 0),
                                   std::min(wanted + frames / 2, last));
    // Where it can't, it comes as far off on the other side.
    return nearest == following ? following : std::clamp(2 * wanted - nearest, 0, last);
}

void Vocoder::Velora_VSP_Combine_HP(int frames)
{
    const int start = segmentStart(frames);
    const int row = start / frames;
    const int offset = start % frames;
    hpSegRing.turn();
    Frame* const segment = hpSegRing.newest();
    copy(segment, highBandHop(row) + offset, frames - offset);
    copy(segment + frames - offset, highBandHop(row + 1), frames);
    if (offset > 0)
        copy(segment + 2 * frames - offset, highBandHop(row + 2), offset);
    hpStepRing.turn();
    hpStepRing.newest()[0] = std::exchange(hopsSinceFrame, 0) * frames + start - hpStart;
    hpStart = start;
    const Frame* const older = hpSegRing[0] + frames;
    const Frame* const newer = hpSegRing[1];
    if (!fadesEvenly())
        kernels.fadeHighBand(hpOut, older, newer, frames);
    else if (hpStepRing[1][0] == frames)
        copy(hpOut, newer, frames); // both are the same input
    else
        kernels.mixHighBand(hpOut, older, newer, hpFadeQ14[0], hpFadeQ14[1], frames);
}

void Vocoder::Velora_VSP_LP_interpolate(Frame* dest, int lowFrames, int outFrames)
{
    // A hop shorter than one low-band frame still takes one, so that the filters move on.
    const int readFrames = std::max(lowFrames, 1);
    const int written = std::min(readFrames * bandFactor, outFrames);
    if (bandFactor == 1) {
        copy(dest, lowBandFrame, written);
    } else {
        const auto interpolate = bandFactor == 2 ? kernels.interpolateBy2 : kernels.interpolateBy4;
        interpolate(dest, lowBandFrame, hpOut, interpState, interpCoeffs, readFrames, written);
    }
    std::memset(dest + written, 0, size_t(outFrames - written) * sizeof *dest);
}

} // namespace vsp
