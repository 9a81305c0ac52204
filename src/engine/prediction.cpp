// Tells a caller who must fill a buffer how much input that takes, by running a copy of the frame
// clock ahead, and holds the next call to it.

#include <algorithm>
#include <climits>
#include <cstdint>

#include "engine/scheduler.h"
#include "engine/velora_vsp.h"
#include "fixed/floating_point.h"

using namespace vsp;

namespace vsp {
namespace {

// No clock makes more hops than this of `hops` hops of input: it stays below 1 + speed, and no
// rounding of it (below 9, single precision) takes more than 2^-20 from a step.
double mostOutputHops(int hops, float speed)
{
    return (hops + 1.0 + double(speed)) / (double(speed) - 0x1p-20);
}

} // namespace

int Scheduler::predictHops(int64_t frames)
{
    simClock = frameClock;
    simSpeed = effectiveSpeed;
    simTransition = transitionCount;
    const int hop = hopFrames();
    const int most = INT_MAX / hop;
    if (mostOutputHops(most, simSpeed) * hop < double(frames))
        return most;
    int hops = 0;
    bool skipped = false;
    for (int64_t have = 0; have < frames && hops < most;) {
        have += ExeSim(hop);
        ++hops;
        const bool allComesAgain = simClock == frameClock && have < frames;
        if (allComesAgain && !skipped) {
            const int rounds = int(std::min<int64_t>((frames - 1) / have, most / hops));
            have *= rounds;
            hops *= rounds;
            skipped = true;
        }
    }
    return hops;
}

int Scheduler::ExeSim(int hopFrames)
{
    const bool passThrough = simTransition <= 0 && simSpeed == 1.0f;
    return passThrough ? hopFrames : frameSim(hopFrames);
}

int Scheduler::frameSim(int hopFrames)
{
    simClock -= 1.0f;
    int produced = 0;
    for (; simClock < 1.0f; simClock += simSpeed)
        produced += hopFrames;
    return produced;
}

} // namespace vsp

int Velora_VSP::GetPredictedInputFrameSize(int outFrames)
{
    Velora_VSP_Call_InitSetPar_Apply();
    outputLimit = outFrames;
    return predictHops(int64_t(outFrames) - carryCount) * hopFrames();
}
