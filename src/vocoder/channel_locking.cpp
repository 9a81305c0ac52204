// Keeps all channels' phases in step with each other, so that what is in the middle stays there:
// every bin's analysis phases are turned by the same angle in all channels.
//
// The angle follows the running phases of the channels and of the bins beside it, each as far as it
// is heard. A partial, which covers several bins, so stays one sound, without a search for peaks.

#include <algorithm>
#include <iterator>

#include "fixed/cache_line.h"
#include "fixed/fixed.h"
#include "fixed/floating_point.h"
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

// The analysis phasors that the next synthesis frame would have if frequencies stayed: those of the
// row nearest to this frame, moved on as they move between the two rows whose middle lies nearest to
// the middle of this frame and the next.
const ComplexShort* Vocoder::nextPhasors(int channel, PhasorRow& room) const
{
    const auto& rows = phasorRing[channel];
    const int nearest = nearestRow();
    const int from = std::min(int(frameClock + 0.5f * effectiveSpeed), rows.size - 2);
    if (from == nearest)
        return rows[nearest + 1];
    alignas(kLine) PhasorRow step;
    kernels.phasorStep(step, rows[from], rows[from + 1]);
    std::copy(rows[nearest], rows[nearest] + kBins, room);
    kernels.phasorAdvance(room, step);
    return room;
}

void Vocoder::turnBands(int channel)
{
    const int nearest = nearestRow();
    alignas(kLine) PhasorRow extrapolated;
    const ComplexShort* const next = nextPhasors(channel, extrapolated);
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
                           next + first, bins);
    }
}

} // namespace vsp
