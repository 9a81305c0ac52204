// Keeps all channels' phases in step with each other, so that what is in the middle stays there:
// every bin's analysis phases are turned by the same angle in all channels.
//
// The angle follows the running phases of the channels and of the bins beside it, each as far as it
// is heard. A partial, which covers several bins, so stays one sound, without a search for peaks.

#include <algorithm>
#include <cmath>
#include <iterator>

#include "fixed/angles.h"
#include "fixed/cache_line.h"
#include "fixed/fixed.h"
#include "fixed/floating_point.h"
#include "kernels/sizes.h"
#include "vocoder/frame_pipeline.h"
#include "vocoder/vocoder.h"

namespace vsp {

namespace {

// The whole number nearest to `place`. Halfway between two they take turns: many speeds come there
// again and again, and would be late or early as a whole.
int nearestInTurn(float place, bool& tookFirst)
{
    constexpr float kHalfway = 1.0f / 64.0f;
    const float below = std::floor(place);
    if (std::abs(place - below - 0.5f) < kHalfway) {
        tookFirst = !tookFirst;
        return int(below) + (tookFirst ? 0 : 1);
    }
    return int(std::floor(place + 0.5f));
}

} // namespace

void Vocoder::chooseRows()
{
    // At higher ones frequencies would be those of another sound.
    constexpr float kFastestInTime = 2.0f;
    rows.nearest = nearestInTurn(frameClock, tookFirst[0]);
    rows.ofStep = effectiveSpeed > kFastestInTime
                      ? rows.nearest
                      : nearestInTurn(frameClock + 0.5f * (effectiveSpeed - 1.0f), tookFirst[1]);
}

void Vocoder::sumTurns(Work& work)
{
    const int row = phaseRow();
    ComplexInt* const sum = work.turnSum();
    std::fill(work.turnSumRow, sum, ComplexInt{0, 0});
    std::fill(sum + kLastBin, std::end(work.turnSumRow), ComplexInt{0, 0});
    kernels.sumTurns(sum, {interpMag[0], interpMag[1]}, {synthPhasor[0], synthPhasor[1]},
                     {phasorRing(row)[0], phasorRing(row)[1]});
    for (int band = 0; band < kBands; ++band)
        if (bandStatus[band] != kIdle)
            std::fill(sum + bandTable[0][band], sum + bandTable[1][band] + 1, ComplexInt{0, 0});
}

void Vocoder::addTo(Agreement& total) const
{
    const ComplexInt* const own = stageWork.turnSumRow + kTurnMargin;
    const auto add = [](ComplexInt a, ComplexInt b) {
        return ComplexInt{fx::wrapAdd(a.re, b.re), fx::wrapAdd(a.im, b.im)};
    };
    std::transform(own, own + kLastBin, total.turns, total.turns, add);
    if (isApproaching())
        std::transform(stageWork.targetSum, stageWork.targetSum + kLastBin, total.targets,
                       total.targets, add);
    auto& products = total.matches.products;
    std::transform(std::begin(products), std::end(products), hpMatches.products, products,
                   fx::wrapAdd64);
    total.matches.energy = fx::wrapAdd64(total.matches.energy, hpMatches.energy);
}

void Vocoder::agreeOn(const Agreement& total)
{
    std::copy(total.turns, total.turns + kLastBin, stageWork.turnSum());
    if (isApproaching())
        std::copy(total.targets, total.targets + kLastBin, stageWork.targetSum);
    hpMatches = total.matches;
}

// The analysis phasors that the next synthesis frame would have if frequencies stayed: those that
// this frame is given, moved on as they move between the two rows whose middle lies nearest to
// the middle of this frame and the next.
const ComplexShort* Vocoder::nextPhasors(int channel, PhasorRow& room) const
{
    const int row = phaseRow();
    const int from = rows.ofStep;
    if (from == row)
        return phasorRing(row + 1)[channel];
    alignas(kLine) PhasorRow step;
    kernels.phasorStep(step, phasorRing(from)[channel], phasorRing(from + 1)[channel]);
    std::copy(phasorRing(row)[channel], phasorRing(row)[channel] + kBins, room);
    kernels.phasorAdvance(room, step);
    return room;
}

// Phases from which a band restarts. With LockedChannels they are those of the place between two
// analysis frames where the synthesis frame lies, so that an onset sounds where it belongs: the
// phasors of the nearer one, moved in time, which turns bin k by k quarters of a turn a hop.
const ComplexShort* Vocoder::phasorsToRestart(int channel, PhasorRow& room) const
{
    if (!does(Velora_VSP_Sound_LockedChannels))
        return phasorRing(0)[channel];
    const int row = rows.nearest;
    // Within an eighth of a turn.
    const Phasor step = phasorOfSmall((double(frameClock) - row) * kQuarterTurn);
    alignas(kLine) PhasorRow turn;
    double turnRe = 16384.0;
    double turnIm = 0.0;
    for (int bin = 0; bin < kBins; ++bin) {
        turn[bin] = {int16_t(turnRe), int16_t(turnIm)};
        const double before = turnRe;
        turnRe = turnRe * step.re - turnIm * step.im;
        turnIm = before * step.im + turnIm * step.re;
    }
    std::copy(phasorRing(row)[channel], phasorRing(row)[channel] + kBins, room);
    kernels.phasorAdvance(room, turn);
    return room;
}

void Vocoder::turnBands(Work& work, int channel)
{
    const int row = phaseRow();
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
        kernels.applyTurns(work.spectrum[channel] + first, synthPhasor[channel] + first,
                           work.turns + first, interpMag[channel] + first,
                           phasorRing(row)[channel] + first, next + first, bins);
    }
}

void Vocoder::compareChannels(const Frame* in, int frames)
{
    const bool isAlike =
        std::all_of(in, in + frames, [](const Frame& frame) { return frame[0] == frame[1]; });
    alikeHops = isAlike ? std::min(alikeHops + 1, kAlikeHops) : 0;
}

void Vocoder::makeChannelsAlike(Frame* out, int frames) const
{
    if (alikeHops == kAlikeHops)
        for (int n = 0; n < frames; ++n)
            out[n][1] = out[n][0];
}

} // namespace vsp
