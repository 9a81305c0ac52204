// What each hop goes through, and the fades from and to speed 1.0.

#include "engine/scheduler.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "fixed/fixed.h"
#include "kernels/sizes.h"

namespace vsp {
namespace {

// Mixes two sounds: the weight of `b`, Q11, falls by one a frame from `weight` on, and stays at 0.
// `dst` may be `a` or `b`. Keeps the low 16 bits.
void Velora_VSP_CrossFade(Frame* dst, const Frame* a, const Frame* b, int frames, int weight)
{
    for (int n = 0; n < frames; ++n) {
        for (int channel = 0; channel < 2; ++channel) {
            const int32_t difference = (b[n][channel] - a[n][channel]) * 32;
            dst[n][channel] = fx::low16(a[n][channel] + fx::mulShift16(difference, weight));
        }
        weight = std::max(weight - 1, 0);
    }
}

constexpr int32_t kFadeFrames = 2048;

// A jump of the level while the pipeline is being primed means that its history is out of date: it
// gets more time.
constexpr int32_t kLevelJump = 2000; // peak of a hop against that of the one before, 16-bit units
constexpr int32_t kExtensionFrames = 3072;
constexpr int32_t kLongestTransition = 6144;
constexpr int32_t kMostExtensions = 3;

int32_t peakLevel(const Frame* hop, int frames)
{
    int32_t peak = 0;
    for (int n = 0; n < frames; ++n)
        peak = std::max({peak, std::abs(int32_t(hop[n][0])), std::abs(int32_t(hop[n][1]))});
    return peak;
}

} // namespace

void Scheduler::run(Output& output, int carried, const Frame* in, int frames)
{
    for (int done = 0; done < carried; done += kPieceFrames)
        emit(output, carryBuf + done, std::min(kPieceFrames, carried - done));
    if (transitionCount > 0)
        runTransition(output, in, frames);
    else if (effectiveSpeed == 1.0f)
        emit(output, in, frames);
    else
        runSteady(output, in, frames);
    outputLimit = kNoLimit;
}

void Scheduler::emit(Output& output, const Frame* frames, int count)
{
    copyFrames(output.room(), frames, count);
    output.commit(std::max(count, 0));
}

void Scheduler::runSteady(Output& output, const Frame* in, int frames)
{
    const int most = hopFrames();
    for (int done = 0; done < frames; done += most)
        output.commit(
            produceHop(output.room(), in + done, std::min(most, frames - done), output.written()));
}

void Scheduler::runTransition(Output& output, const Frame* in, int frames)
{
    const int most = hopFrames();
    const auto fadeHop = speedApplied == 1.0f ? &Scheduler::fadeOutHop : &Scheduler::fadeInHop;
    for (int done = 0; done < frames; done += most) {
        const int count = std::min(most, frames - done);
        output.commit((this->*fadeHop)(output.room(), in + done, count, output.written()));
        transitionCount = std::max(transitionCount - most, 0);
    }
    if (transitionCount == 0)
        effectiveSpeed = speedApplied;
}

int Scheduler::produceHop(Frame* p, const Frame* hop, int frames, int written)
{
    const int produced = vocodeOrConvert(p, hop, frames, written);
    filterOutput(p, produced);
    return produced;
}

// In both fades the pipeline may return nothing for a hop (its clock skipped it, or the limit sent
// it to carryBuf): then there is nothing to fade, and nothing may be written.

// Back to 1.0: from the processed signal to the input.
int Scheduler::fadeOutHop(Frame* p, const Frame* hop, int frames, int written)
{
    const int produced = produceHop(p, hop, frames, written);
    Velora_VSP_CrossFade(p, hop, p, std::min(frames, produced), transitionCount);
    return produced;
}

// Away from 1.0: the input while the pipeline is being primed, then a fade to the processed signal.
int Scheduler::fadeInHop(Frame* p, const Frame* hop, int frames, int written)
{
    const bool priming = extendTransition(hop, frames) || transitionCount > kFadeFrames;
    if (priming) {
        const int produced = vocodeOrConvert(p, hop, frames, written);
        if (!converterInForce())
            copyFrames(p, hop, std::min(frames, produced));
        filterOutput(p, produced);
        return produced;
    }
    const int produced = produceHop(p, hop, frames, written);
    if (!srcActive)
        Velora_VSP_CrossFade(p, p, hop, std::min(frames, produced), transitionCount);
    return produced;
}

bool Scheduler::extendTransition(const Frame* hop, int frames)
{
    const int32_t peak = peakLevel(hop, frames);
    const int32_t before = std::exchange(prevPeak, peak);
    if (before < 0 || transitionCount < kFadeFrames || std::abs(peak - before) <= kLevelJump ||
        extensionCount >= kMostExtensions)
        return false;
    transitionCount = std::min(transitionCount + kExtensionFrames, kLongestTransition);
    ++extensionCount;
    return true;
}

int Scheduler::vocodeOrConvert(Frame* p, const Frame* hop, int frames, int written)
{
    return converterInForce() ? src->Exe(p, hop, frames)
                              : Velora_VSP_frame(p, hop, frames, written);
}

} // namespace vsp
