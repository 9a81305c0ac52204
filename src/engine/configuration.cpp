// Derives the working parameters from the sample rate and returns the signal path to silence.
//
// High rates are halved once or twice; at the working rate, hop and low-band decimation are chosen
// so that every vocoder step sees 128 low-band frames.

#include <cstring>

#include <velora/fft.h>

#include "engine/velora_vsp.h"

using namespace vsp;

namespace {

int hopIndexFor(int sampleRate)
{
    switch (sampleRate) {
    case 8000:
    case 11025:
    case 12000:
        return 0;
    case 16000:
    case 22050:
    case 24000:
        return 1;
    default:
        return 2;
    }
}

template <class T>
void clear(T& array)
{
    std::memset(&array, 0, sizeof array);
}

// Points entry i of a ring at row i of its storage.
template <class T, size_t rows, size_t columns>
void resetRing(T* (&ring)[rows], T (&storage)[rows][columns])
{
    for (size_t i = 0; i < rows; ++i)
        ring[i] = storage[i];
}

template <size_t n>
void clearPhases(ComplexShort (&phasors)[n])
{
    std::fill(phasors, phasors + n, kPhaseZero);
}

} // namespace

void Velora_VSP::Velora_VSP_Init_Apply(int rate)
{
    DownSmpl2_Init();
    appliedSampleRate = rate;
    rateShift = rate <= 48000 ? 0 : rate <= 96000 ? 1 : 2;
    frameClock = 1.0f;

    const int index = hopIndexFor(rate);
    hopIndex = int16_t(index);
    bandFactor = int16_t(1 << index);
    splitCoeffs = index == 2 ? kSplitCoeffsB : kSplitCoeffsA;
    interpCoeffs = kInterpCoeffs;

    resetSignal();

    transitionCount = 0;
    effectiveSpeed = 1.0f;
    carryCount = 0;
    highBandGainQ15 = 32768;
    speedApplied = 1.0f;
    outputLimit = kNoLimit;
    prevPeak = -1;
    extensionCount = 0;
    Velora_VSP_FFT_Init(kFftLog2N);
}

// Scratch that a hop writes before it reads is left as it is.
void Velora_VSP::resetSignal()
{
    clear(splitState);
    clear(interpState);
    clear(hpBuf);
    clear(hpSegBuf);
    resetRing(hpRing, hpBuf);
    resetRing(hpSegRing, hpSegBuf);

    clear(partSpBuf);
    clear(partSpSum);
    clear(magBuf);
    clear(interpMag);
    clear(synthWinBuf);
    clear(synthSum);
    for (int c = 0; c < 2; ++c) {
        resetRing(partSpRing[c], partSpBuf[c]);
        resetRing(magRing[c], magBuf[c]);
        resetRing(phasorRing[c], phasorBuf[c]);
        resetRing(synthWinRing[c], synthWinBuf[c]);
        for (auto& phasors : phasorBuf[c])
            clearPhases(phasors);
        clearPhases(synthPhasor[c]);
    }

    clear(bandCog);
    clear(bandFlagHist);
    resetRing(bandFlagRing, bandFlagHist);
    transientThreshold = 0.0f;
    transientDecision = 0;
    transientDecisionPrev = 0;
    clear(bandStatus);
    clear(bandRingIndex);
    clear(bandHold);
}
