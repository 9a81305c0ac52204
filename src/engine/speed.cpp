// Puts a new speed in force: how it is reached from the old one, and what helpers it needs.

#include "engine/speeds.h"

#include <cstdint>

#include "engine/velora_vsp.h"

using namespace vsp;

namespace {

constexpr int32_t kFadeOutFrames = 2048; // to 1.0: a fade
constexpr int32_t kFadeInFrames = 6144;  // away from 1.0: 4096 of priming, then a fade

} // namespace

bool Velora_VSP::isFiltered(float speed) const
{
    return isSlow(speed) && !does(Velora_VSP_Sound_FullBand);
}

void Velora_VSP::setHighBand(float speed)
{
    highBandGainQ15 =
        does(Velora_VSP_Sound_FullBand) ? kFullHighBandQ15 : highBandGainQ15For(speed);
}

void Velora_VSP::Velora_VSP_SetPar_Apply(float requested)
{
    const float speed = speedInRange(requested);
    if (speed != effectiveSpeed) {
        if (effectiveSpeed == 1.0f) {
            // The old speed holds until the pipeline is primed and faded in.
            Velora_VSP_Init_Apply(appliedSampleRate);
            startTransition(kFadeInFrames);
        } else {
            startTransition(speed == 1.0f ? kFadeOutFrames : 0);
            effectiveSpeed = speed;
        }
        speedApplied = speed;
        setHighBand(speed);
    }

    // Applying a slow speed once more restarts its helpers.
    bqActive = isFiltered(speed);
    if (bqActive)
        startFilters(appliedSampleRate);
    selectConverter(speed);
    if (!srcActive)
        dropConverter();
}

void Velora_VSP::setSpeedNow(float requested)
{
    Velora_VSP_Call_InitSetPar_Apply();
    parPending = false; // one that waits for the end of a fade
    const float speed = speedInRange(requested);
    const bool starts = effectiveSpeed == 1.0f;
    const bool filtersGoOn = bqActive && !starts;
    const bool converterGoesOn = srcActive && !starts && speed == speedApplied;
    transitionCount = 0;
    effectiveSpeed = speed;
    speedApplied = speed;
    setHighBand(speed);
    bqActive = isFiltered(speed);
    if (bqActive && !filtersGoOn)
        startFilters(appliedSampleRate);
    if (!converterGoesOn)
        selectConverter(speed);
}
