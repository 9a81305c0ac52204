// Tells a caller who must fill a buffer how much input that takes, by running a copy of the frame
// clock ahead, and holds the next call to it.

#include <velora/detail/floating_point.hpp>

#include "engine/velora_vsp.h"

using namespace vsp;

int Velora_VSP::GetPredictedInputFrameSize(int outFrames)
{
    Velora_VSP_Call_InitSetPar_Apply();
    int64_t have = carryCount;
    const int hop = hopFrames();
    simClock = frameClock;
    simSpeed = effectiveSpeed;
    simTransition = transitionCount;
    int input = 0;
    while (outFrames > have && input <= INT_MAX - hop) {
        have += ExeSim(hop);
        input += hop;
    }
    outputLimit = outFrames;
    return input;
}

int Velora_VSP::ExeSim(int hopFrames)
{
    const bool passThrough = simTransition <= 0 && simSpeed == 1.0f;
    return passThrough ? hopFrames : frameSim(hopFrames);
}

int Velora_VSP::frameSim(int hopFrames)
{
    simClock -= 1.0f;
    int produced = 0;
    for (; simClock < 1.0f; simClock += simSpeed)
        produced += hopFrames;
    return produced;
}
