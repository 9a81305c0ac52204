// One hop through the phase vocoder: analysed once, synthesised as often as the frame clock asks
// for.

#include "vocoder/frame_pipeline.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "fixed/cache_line.h"
#include "fixed/floating_point.h"
#include "kernels/sizes.h"
#include "vocoder/vocoder.h"

namespace vsp {

namespace {

// Stage of takeHop that follows the band split.
constexpr int kFirstAfterSeparation = 2;

} // namespace

BandPath bandPath(int status, int hold)
{
    if (status <= kIdle || status >= kCountdownStart)
        return BandPath::normal;
    if (status >= kLastHeldHop)
        return BandPath::hold;
    if (status == kFrozenHop || hold <= 0 || hold > kHoldStart)
        return BandPath::frozen;
    return hold == kHoldStart ? BandPath::reset : BandPath::normal;
}

float peakDensityGain(int peaks, float speed)
{
    constexpr float kMostGain = 0.4f;
    constexpr double kPi = 3.141592653589793;
    const float w = std::clamp(float(peaks - 5) / 10.0f * kMostGain, 0.0f, kMostGain);
    return 1.0f + float(std::sin((double(speed) - 1.0) * kPi * 0.5) * double(w));
}

int Vocoder::Velora_VSP_frame(Frame* out, const Frame* in, int frames, int written)
{
    takeHop(in, frames);
    int count = 0;
    int pos = written;
    while (hasFrame()) {
        pos += frames;
        if (pos <= outputLimit) {
            giveFrame(out + count, frames);
            count += frames;
        } else {
            giveFrame(carryBuf + carryCount, frames);
            carryCount += frames;
        }
    }
    endHop();
    return count;
}

void Vocoder::takeHop(const Frame* in, int frames)
{
    beginHop(in, frames);
    Velora_VSP_LPHP_separate(in, frames);
    Work work;
    for (int stage = kFirstAfterSeparation; stage < kTakeStages; ++stage)
        takeStage(work, stage, in, frames);
}

void Vocoder::takeStage(int stage, const Frame* in, int frames)
{
    takeStage(stageWork, stage, in, frames);
}

void Vocoder::takeStage(Work& work, int stage, const Frame* in, int frames)
{
    switch (stage) {
    case 0:
        beginHop(in, frames);
        turnHighBand(frames);
        separate(in, 0, frames / 2);
        break;
    case 1:
        separate(in, frames / 2, frames);
        break;
    case kFirstAfterSeparation:
        if (does(Velora_VSP_Sound_EvenLevel))
            levelKeeper.tookHop(kernels.product(*lowBandFrame, *lowBandFrame, 2 * kLowHop));
        Velora_VSP_FFT_PartSp(work.spectrum[0], work.spectrum[1], lowBandFrame);
        if (!isHeard)
            addHops(work);
        break;
    case 3:
        if (isHeard)
            analyse(work);
        break;
    default:
        if (isHeard)
            findOnset(work);
    }
}

void Vocoder::beginHop(const Frame* in, int frames)
{
    endHop();
    hopPart = HopPart::analysed;
    frameClock -= 1.0f;
    ++hopsSinceFrame;
    isHeard = unheardHops == 0;
    unheardHops -= isHeard ? 0 : 1;
    if (does(Velora_VSP_Sound_LockedChannels))
        compareChannels(in, frames);
    fetchBeginnings(partSpRing(0), partSpSum, magRing(0), phasorRing(0));
    if (hasFrame()) {
        fetchBeginnings(magRing(1), magRing(2), phasorRing(1), phasorRing(2), interpMag,
                        phaseAdvance, synthPhasor, synthWinRing(0), synthSum);
        highBand.fetchNext();
    }
}

void Vocoder::keepLastBins(const Work& work)
{
    for (int c = 0; c < 2; ++c)
        lastBin[c] = work.spectrum[c][kLastBin];
}

void Vocoder::addHops(Work& work)
{
    addHop(work.spectrum);
    keepLastBins(work);
}

void Vocoder::analyse(Work& work)
{
    addHops(work);
    turnAnalysis();
    for (int c = 0; c < 2; ++c)
        if (does(Velora_VSP_Sound_LockedChannels))
            extractExactly(c, work.spectrum[c]);
        else
            Velora_VSP_Extract_MagPhase(c, work.spectrum[c]);
}

void Vocoder::synthesise(Work& work)
{
    keepLastBins(work);
    overlapAdd(work.spectrum[0], work.spectrum[1]);
}

void Vocoder::findOnset(const Work& work)
{
    Velora_VSP_computeCOG(work.spectrum);
    Velora_VSP_TransientProbability();
    Velora_VSP_ModifyBandStatus();
}

void Vocoder::giveFrame(Frame* out, int frames)
{
    Work work;
    for (int stage = 0; stage < kGiveStages; ++stage)
        giveStage(work, stage, out, frames);
}

void Vocoder::giveStage(int stage, Frame* out, int frames)
{
    giveStage(stageWork, stage, out, frames);
}

void Vocoder::giveStage(Work& work, int stage, Frame* out, int frames)
{
    switch (stage) {
    case 0:
        nearsOnset = false;
        if (does(Velora_VSP_Sound_LockedChannels))
            chooseRows();
        for (int c = 0; c < 2; ++c)
            synthesiseBands(work, c);
        if (does(Velora_VSP_Sound_LockedChannels)) {
            sumTurns(work);
            if (isApproaching())
                sumTargets(work);
        }
        advancePhases();
        matchSegments(frames);
        break;
    case 1:
        lockPhases(work, 0);
        break;
    case 2:
        lockPhases(work, 1);
        if (does(Velora_VSP_Sound_EvenLevel))
            for (auto& channel : work.spectrum)
                kernels.scaleSpectrum(channel, levelKeeper.gainQ14());
        synthesise(work);
        break;
    case 3:
        Velora_VSP_IFFT_PartSp(lowBandFrame, synthSum[0], synthSum[1]);
        if (does(Velora_VSP_Sound_EvenLevel))
            levelKeeper.gaveHop(kernels.product(*lowBandFrame, *lowBandFrame, 2 * kLowHop),
                                frameClock, effectiveSpeed);
        break;
    default:
        Velora_VSP_Combine_HP(work.hpOut, frames);
        Velora_VSP_LP_interpolate(out, work.hpOut, frames >> hopIndex, frames);
        if (does(Velora_VSP_Sound_LockedChannels))
            makeChannelsAlike(out, frames);
        for (int8_t& hold : bandHold)
            hold = hold > 0 ? int8_t(hold - 1) : int8_t(0);
        frameClock += effectiveSpeed;
    }
}

void Vocoder::prime(float hops)
{
    constexpr float kMost = 1 << 20;
    frameClock = hops > 1.0f ? std::min(hops, kMost) : 1.0f;
    startsInPhase = true;
    unheardHops = kUnheardHops;
    levelKeeper.startInPhase();
}

void Vocoder::endHop()
{
    if (hopPart != HopPart::none)
        countDownBands();
    hopPart = HopPart::none;
}

int32_t Vocoder::positionInHop() const
{
    return int32_t(frameClock * 32768.0f);
}

int Vocoder::nearestRow() const
{
    return positionInHop() >= 16384 ? 1 : 0;
}

void Vocoder::advancePhases()
{
    const bool firstOfHop = hopPart == HopPart::analysed;
    hopPart = HopPart::synthesised;
    startsInPhase = false;
    // Bands that are locked between the channels get their phases from there.
    if (does(Velora_VSP_Sound_LockedChannels) &&
        std::all_of(std::begin(bandStatus), std::end(bandStatus),
                    [](int8_t status) { return status == kIdle; }))
        return;
    if (firstOfHop)
        for (int c = 0; c < 2; ++c)
            kernels.phasorStep(phaseAdvance[c], phasorRing(0)[c], phasorRing(1)[c]);
    for (int c = 0; c < 2; ++c)
        kernels.phasorAdvance(synthPhasor[c], phaseAdvance[c]);
}

void Vocoder::lockPhases(Work& work, int channel)
{
    int32_t* const mag = magRing(nearestRow())[channel];
    const bool gains = effectiveSpeed > 1.0f && !does(Velora_VSP_Sound_EvenLevel);
    int peaks = 0;
    if (does(Velora_VSP_Sound_LockedChannels)) {
        if (channel == 0) {
            kernels.commonTurns(work.turns, work.turnSum());
            if (isApproaching())
                steerTurns(work);
        }
        turnBands(work, channel);
        int16_t peakList[kPeakRoom];
        int listed = 0;
        if (gains)
            peaks = kernels.findPeaks(peakList, &listed, mag, bandStatus, bandTable);
    } else {
        peaks = peakphaselock(work.spectrum[channel], mag, phasorRing(nearestRow())[channel],
                              synthPhasor[channel], bandStatus, bandTable);
    }
    if (gains)
        kernels.scaleSpectrum(work.spectrum[channel],
                              int32_t(peakDensityGain(peaks, effectiveSpeed) * 16384.0f));
}

void Vocoder::synthesiseBands(Work& work, int channel)
{
    if (startsInPhase)
        std::copy(std::begin(phasorRing(0)[channel]), std::end(phasorRing(0)[channel]),
                  synthPhasor[channel]);
    work.spectrum[channel][kLastBin] = lastBin[channel];
    const int32_t f_q15 = positionInHop();
    const int32_t* const older = magRing(0)[channel];
    const int32_t* const newer = magRing(1)[channel];
    const auto pathOf = [this](int band) { return bandPath(bandStatus[band], bandHold[band]); };
    for (int band = 0, next = 0; band < kBands; band = next) {
        const BandPath path = pathOf(band);
        // Bands beside each other go together, but for those that may be frozen on different frames.
        next = band + 1;
        while (next < kBands && path != BandPath::frozen && pathOf(next) == path)
            ++next;
        const int first = bandTable[0][band];
        const int n = bandTable[1][next - 1] - first + 1;
        ComplexInt* const X = work.spectrum[channel] + first;
        ComplexShort* const S = synthPhasor[channel] + first;
        int32_t* const M = interpMag[channel] + first;
        switch (path) {
        case BandPath::normal:
            kernels.interpMagApplyPhase(X, M, older + first, newer + first, S, f_q15, n);
            break;
        case BandPath::reset: {
            nearsOnset = true;
            alignas(kLine) PhasorRow moved;
            const ComplexShort* const analysed = phasorsToRestart(channel, moved) + first;
            kernels.interpMagApplyPhase(X, M, older + first, newer + first, analysed, f_q15, n);
            std::copy(analysed, analysed + n, S);
            break;
        }
        case BandPath::hold:
            nearsOnset = true;
            kernels.applyPhase(X, M, S, n);
            break;
        case BandPath::frozen:
            // Once it is frozen before its frame has come, it stays on the oldest one.
            if (bandRingIndex[band] >= kAnalyses)
                bandRingIndex[band] = 0;
            kernels.applyPhase(X, magRing(bandRingIndex[band])[channel] + first, S, n);
            break;
        }
    }
}

void Vocoder::countDownBands()
{
    for (int b = 0; b < kBands; ++b) {
        bandStatus[b] = bandStatus[b] > 0 ? int8_t(bandStatus[b] - 1) : int8_t(0);
        bandRingIndex[b] = bandRingIndex[b] > 0 ? int8_t(bandRingIndex[b] - 1) : int8_t(0);
        if (bandStatus[b] == kResetHop)
            bandHold[b] = kHoldStart;
    }
}

} // namespace vsp
