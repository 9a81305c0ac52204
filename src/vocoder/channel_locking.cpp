// Keeps all channels' phases in step with each other, so that what is in the middle stays there:
// every bin's analysis phases are turned by the same angle in all channels.
//
// The angle follows the running phases of the channels and of the bins beside it, each as far as it
// is heard. A partial, which covers several bins, so stays one sound, without a search for peaks.

#include <algorithm>
#include <iterator>

#include "fixed/fixed.h"
#include "kernels/sizes.h"
#include "vocoder/frame_pipeline.h"
#include "vocoder/vocoder.h"

namespace vsp {

void Vocoder::sumTurns()
{
    const int nearest = nearestRow();
    kernels.sumTurns(turnSum, {interpMag[0], interpMag[1]}, {synthPhasor[0], synthPhasor[1]},
                     {phasorRing[0][nearest], phasorRing[1][nearest]});
    for (int band = 0; band < kBands; ++band)
        if (bandStatus[band] != kIdle)
            std::fill(turnSum + bandTable[0][band], turnSum + bandTable[1][band] + 1,
                      ComplexInt{0, 0});
}

void Vocoder::addTurnsTo(ComplexInt* total) const
{
    for (int bin = 0; bin < kLastBin; ++bin)
        total[bin] = {fx::wrapAdd(total[bin].re, turnSum[bin].re),
                      fx::wrapAdd(total[bin].im, turnSum[bin].im)};
}

void Vocoder::takeTurns(const ComplexInt* total)
{
    std::copy(total, total + kLastBin, turnSum);
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

} // namespace vsp
