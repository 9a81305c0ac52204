// One hop through the phase vocoder: analysed once, synthesised as often as the frame clock asks
// for.

#include "vocoder/frame_pipeline.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "fixed/floating_point.h"
#include "kernels/sizes.h"
#include "vocoder/vocoder.h"

namespace vsp {

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
    endHop();
    hopPart = HopPart::analysed;
    frameClock -= 1.0f;
    ++hopsSinceFrame;
    Velora_VSP_LPHP_separate(in, frames);
    if (does(Velora_VSP_Sound_EvenLevel))
        levelKeeper.tookHop(kernels.energy(*lowBandFrame, 2 * kLowHop));
    Velora_VSP_partFFT(lowBandFrame);
    Velora_VSP_Extract_MagPhase();
    Velora_VSP_computeCOG();
    Velora_VSP_TransientProbability();
    Velora_VSP_ModifyBandStatus();
}

void Vocoder::giveFrame(Frame* out, int frames)
{
    synthesiseSpectrum(hopPart == HopPart::analysed);
    hopPart = HopPart::synthesised;
    if (does(Velora_VSP_Sound_EvenLevel))
        for (auto& channel : spectrum)
            kernels.scaleSpectrum(channel, levelKeeper.gainQ14());
    Velora_VSP_partIFFT(lowBandFrame, spectrum[0], spectrum[1]);
    if (does(Velora_VSP_Sound_EvenLevel))
        levelKeeper.gaveHop(kernels.energy(*lowBandFrame, 2 * kLowHop), frameClock, effectiveSpeed);
    Velora_VSP_Combine_HP(frames);
    Velora_VSP_LP_interpolate(out, frames >> hopIndex, frames);
    for (int8_t& hold : bandHold)
        hold = hold > 0 ? int8_t(hold - 1) : int8_t(0);
    frameClock += effectiveSpeed;
}

void Vocoder::endHop()
{
    if (hopPart != HopPart::none)
        countDownBands();
    hopPart = HopPart::none;
}

void Vocoder::synthesiseSpectrum(bool firstOfHop)
{
    const int32_t f_q15 = int32_t(frameClock * 32768.0f);
    for (int c = 0; c < 2; ++c)
        synthesiseBands(c, f_q15);

    if (firstOfHop)
        for (int c = 0; c < 2; ++c)
            kernels.phasorStep(phaseAdvance[c], phasorRing[c][0], phasorRing[c][1]);
    for (int c = 0; c < 2; ++c)
        kernels.phasorAdvance(synthPhasor[c], phaseAdvance[c]);

    const int nearest = f_q15 >= 16384 ? 1 : 0;
    for (int c = 0; c < 2; ++c) {
        const int peaks = peakphaselock(spectrum[c], magRing[c][nearest], phasorRing[c][nearest],
                                        synthPhasor[c], bandStatus, bandTable);
        if (effectiveSpeed > 1.0f && !does(Velora_VSP_Sound_EvenLevel))
            kernels.scaleSpectrum(spectrum[c],
                                  int32_t(peakDensityGain(peaks, effectiveSpeed) * 16384.0f));
    }
}

void Vocoder::synthesiseBands(int channel, int32_t f_q15)
{
    const int32_t* const older = magRing[channel][0];
    const int32_t* const newer = magRing[channel][1];
    for (int band = 0; band < kBands; ++band) {
        const int first = bandTable[0][band];
        const int n = bandTable[1][band] - first + 1;
        ComplexInt* const X = spectrum[channel] + first;
        ComplexShort* const S = synthPhasor[channel] + first;
        int32_t* const M = interpMag[channel] + first;
        switch (bandPath(bandStatus[band], bandHold[band])) {
        case BandPath::normal:
            kernels.interpMagApplyPhase(X, M, older + first, newer + first, S, f_q15, n);
            break;
        case BandPath::reset: {
            const ComplexShort* const analysed = phasorRing[channel][0] + first;
            kernels.interpMagApplyPhase(X, M, older + first, newer + first, analysed, f_q15, n);
            std::copy(analysed, analysed + n, S);
            break;
        }
        case BandPath::hold:
            kernels.applyPhase(X, M, S, n);
            break;
        case BandPath::frozen:
            // Once it is frozen before its frame has come, it stays on the oldest one.
            if (bandRingIndex[band] >= magRing[channel].size)
                bandRingIndex[band] = 0;
            kernels.applyPhase(X, magRing[channel][bandRingIndex[band]] + first, S, n);
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
