// Puts a new speed in force: how it is reached from the old one, and what helpers it needs.

#include <velora/detail/floating_point.hpp>

#include "engine/velora_vsp.h"

using namespace vsp;

namespace {

constexpr float kSlowest = 0.125f;
constexpr float kFastest = 8.0f;
constexpr float kSlowestUnfiltered = 0.5f; // up to here the output filters run

constexpr int32_t kFadeOutFrames = 2048; // to 1.0: a fade
constexpr int32_t kFadeInFrames = 6144;  // away from 1.0: 4096 of priming, then a fade

// Gain of the high band: it fades out as the speed falls from 0.5 to 0.25.
int32_t highBandGain(float speed)
{
    if (speed <= 0.25f)
        return 0;
    if (speed >= 0.5f)
        return 32768;
    return int32_t((4.0f * speed - 1.0f) * 32768.0f); // exact until the truncation
}

float inRange(float speed)
{
    return speed >= kSlowest && speed <= kFastest ? speed : 1.0f; // for "not a number" too
}

} // namespace

void Velora_VSP::Velora_VSP_SetPar_Apply(float speed)
{
    speed = inRange(speed);

    if (speed != effectiveSpeed) {
        int32_t transition = 0;
        if (effectiveSpeed == 1.0f) {
            // The old speed holds until the pipeline is primed and faded in.
            transition = kFadeInFrames;
            Velora_VSP_Init_Apply(appliedSampleRate);
        } else {
            transition = speed == 1.0f ? kFadeOutFrames : 0;
            effectiveSpeed = speed;
        }
        transitionCount = transition;
        speedApplied = speed;
        highBandGainQ15 = highBandGain(speed);
        prevPeak = -1;
        extensionCount = 0;
    }

    // Applying a slow speed once more restarts its helpers.
    bqActive = speed <= kSlowestUnfiltered;
    if (bqActive)
        startFilters();
    selectConverter(speed);
    if (!srcActive)
        dropConverter();
}

void Velora_VSP::setSpeedNow(float requested)
{
    Velora_VSP_Call_InitSetPar_Apply();
    parPending = false; // one that waits for the end of a fade
    const float speed = inRange(requested);
    const bool starts = effectiveSpeed == 1.0f;
    const bool runsFilters = bqActive && !starts;
    const bool runsConverter = srcActive && !starts && speed == speedApplied;
    transitionCount = 0;
    effectiveSpeed = speed;
    speedApplied = speed;
    highBandGainQ15 = highBandGain(speed);
    bqActive = speed <= kSlowestUnfiltered;
    if (bqActive && !runsFilters)
        startFilters();
    if (!runsConverter)
        selectConverter(speed);
}

void Velora_VSP::startFilters()
{
    for (Velora_BQ** filter : {&bqA, &bqB}) {
        if (*filter == nullptr)
            *filter = createFilter();
        if (*filter != nullptr)
            (*filter)->Init(appliedSampleRate);
    }
}

// The converter knows rates by code: 5 is 24 kHz, 8 is 48 kHz, 11 is 96 kHz, 14 is 192 kHz. Only
// their ratio matters: it is the inverse of the speed, whatever the stream's rate.
void Velora_VSP::selectConverter(float speed)
{
    if (speed == 0.5f)
        startConverter(11, 8);
    else if (speed == 0.25f)
        startConverter(14, 8);
    else if (speed == 0.125f)
        startConverter(14, 5);
    else
        srcActive = false;
}

void Velora_VSP::startConverter(int outputRateCode, int inputRateCode)
{
    constexpr int kChannels = 2;
    srcActive = true;
    if (src == nullptr)
        src = createConverter();
    if (src != nullptr)
        src->Init(outputRateCode, inputRateCode, kChannels, 0, 0);
}
