// Keeps all channels' phases in step with each other, so that what is in the middle stays there:
// every bin's analysis phases are turned by the same angle in all channels.
//
// The angle follows the running phases of the channels and of the bins beside it, each as far as it
// is heard. A partial, which covers several bins, so stays one sound, without a search for peaks.

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "fixed/fixed.h"
#include "fixed/floating_point.h"
#include "kernels/sizes.h"
#include "vocoder/frame_pipeline.h"
#include "vocoder/vocoder.h"

namespace vsp {

// Where a hop of output takes less than a hop of input, the running phases expect sound to be nearer
// to the frame's beginning than it is, and what isn't a partial would come early: by some
// milliseconds at 0.3. The neighbours' turns lean the other way, which moves the sound inside of a
// partial's bins and leaves its pitch alone. 0.4 lies between what the envelopes and what the spectra
// of recordings ask for.
NeighbourWeights neighbourWeights(float speed)
{
    const double t = 0.4 * std::max(1.0 - double(speed), 0.0); // tangent of half the angle
    const double re = (1.0 - t * t) / (1.0 + t * t);
    const double im = 2.0 * t / (1.0 + t * t);
    return {int32_t(re * 32768.0), int32_t(im * 32768.0), int32_t((re * re - im * im) * 8192.0),
            int32_t(2.0 * re * im * 8192.0)};
}

void Vocoder::sumTurns()
{
    const int nearest = nearestRow();
    kernels.sumTurns(turnSum(), {interpMag[0], interpMag[1]}, {synthPhasor[0], synthPhasor[1]},
                     {phasorRing[0][nearest], phasorRing[1][nearest]});
    for (int band = 0; band < kBands; ++band)
        if (bandStatus[band] != kIdle)
            std::fill(turnSum() + bandTable[0][band], turnSum() + bandTable[1][band] + 1,
                      ComplexInt{0, 0});
}

void Vocoder::addTurnsTo(ComplexInt* total) const
{
    const ComplexInt* const own = turnSumRow + kTurnMargin;
    for (int bin = 0; bin < kLastBin; ++bin)
        total[bin] = {fx::wrapAdd(total[bin].re, own[bin].re),
                      fx::wrapAdd(total[bin].im, own[bin].im)};
}

void Vocoder::takeTurns(const ComplexInt* total)
{
    std::copy(total, total + kLastBin, turnSum());
}

void Vocoder::turnBands(int channel)
{
    const int nearest = nearestRow();
    for (int band = 0; band < kBands;) {
        if (bandStatus[band] != kIdle) {
            ++band;
            continue;
        }
        const int first = bandTable[0][band];
        while (band < kBands && bandStatus[band] == kIdle)
            ++band;
        const int bins = bandTable[1][band - 1] + 1 - first;
        kernels.applyTurns(spectrum[channel] + first, synthPhasor[channel] + first, turns + first,
                           interpMag[channel] + first, phasorRing[channel][nearest] + first,
                           phasorRing[channel][nearest + 1] + first, bins);
    }
}

void Vocoder::compareChannels(const Frame* in, int frames)
{
    int difference = 0;
    for (int n = 0; n < frames; ++n)
        difference |= in[n][0] ^ in[n][1];
    alikeHops = difference == 0 ? std::min(alikeHops + 1, kAlikeHops) : 0;
}

void Vocoder::makeChannelsAlike(Frame* out, int frames) const
{
    if (alikeHops == kAlikeHops)
        for (int n = 0; n < frames; ++n)
            out[n][1] = out[n][0];
}

} // namespace vsp
