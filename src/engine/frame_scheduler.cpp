// Decides, call by call, what a piece of audio goes through: nothing at speed 1.0, the frame
// pipeline or the converter hop by hop at other speeds, a fade between the two when the speed
// changes.

#include <cstdlib>
#include <cstring>

#include "engine/output.h"
#include "engine/velora_vsp.h"

using namespace vsp;

namespace vsp {

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

} // namespace vsp

namespace {

constexpr int32_t kFadeFrames = 2048;

// A jump of the level while the pipeline is being primed means that its history is out of date: it
// gets more time.
constexpr int32_t kLevelJump = 2000; // peak of a hop against that of the one before, 16-bit units
constexpr int32_t kExtensionFrames = 3072;
constexpr int32_t kLongestTransition = 6144;
constexpr int32_t kMostExtensions = 3;

// -13 dB with rounding, Q14.
VSP_INLINE int16_t slowSpeedGain(int16_t s)
{
    return fx::low16((s * 3668 + 8192) >> 14);
}

int32_t peakLevel(const Frame* piece, int frames)
{
    int32_t peak = 0;
    for (int n = 0; n < frames; ++n)
        peak = std::max({peak, std::abs(int32_t(piece[n][0])), std::abs(int32_t(piece[n][1]))});
    return peak;
}

void copyFrames(Frame* dst, const Frame* src, int frames)
{
    if (frames > 0)
        std::memmove(dst, src, size_t(frames) * sizeof *dst);
}

} // namespace

int Velora_VSP::Exe1(Frame* out, const Frame* in, int frames)
{
    DirectOutput output(out);
    return runScheduler(output, in, frames);
}

int Velora_VSP::runScheduler(Output& output, const Frame* in, int frames)
{
    const int carried = std::exchange(carryCount, 0);
    Velora_VSP_Call_InitSetPar_Apply(); // leaves what carryBuf holds alone
    for (int done = 0; done < carried; done += kPieceFrames)
        emit(output, carryBuf + done, std::min(kPieceFrames, carried - done));

    if (transitionCount > 0)
        runTransition(output, in, frames);
    else if (effectiveSpeed == 1.0f)
        emit(output, in, frames);
    else
        runSteady(output, in, frames);
    outputLimit = kNoLimit;
    return output.written();
}

void Velora_VSP::emit(Output& output, const Frame* frames, int count)
{
    copyFrames(output.room(), frames, count);
    output.commit(std::max(count, 0));
}

void Velora_VSP::runSteady(Output& output, const Frame* in, int frames)
{
    const int hop = hopFrames();
    for (int done = 0; done < frames; done += hop)
        output.commit(
            produceHop(output.room(), in + done, std::min(hop, frames - done), output.written()));
}

void Velora_VSP::runTransition(Output& output, const Frame* in, int frames)
{
    const int hop = hopFrames();
    const auto fadeHop = speedApplied == 1.0f ? &Velora_VSP::fadeOutHop : &Velora_VSP::fadeInHop;
    for (int done = 0; done < frames; done += hop) {
        const int pieceFrames = std::min(hop, frames - done);
        output.commit((this->*fadeHop)(output.room(), in + done, pieceFrames, output.written()));
        transitionCount = std::max(transitionCount - hop, 0);
    }
    if (transitionCount == 0)
        effectiveSpeed = speedApplied;
}

int Velora_VSP::produceHop(Frame* p, const Frame* piece, int frames, int written)
{
    const int produced = vocodeOrConvert(p, piece, frames, written);
    filterOutput(p, produced);
    return produced;
}

// In both fades the pipeline may return nothing for a hop (its clock skipped it, or the limit sent
// it to carryBuf): then there is nothing to fade, and nothing may be written.

// Back to 1.0: from the processed signal to the input.
int Velora_VSP::fadeOutHop(Frame* p, const Frame* piece, int frames, int written)
{
    const int produced = produceHop(p, piece, frames, written);
    if (!srcActive)
        Velora_VSP_CrossFade(p, piece, p, std::min(frames, produced), transitionCount);
    return produced;
}

// Away from 1.0: the input while the pipeline is being primed, then a fade to the processed signal.
int Velora_VSP::fadeInHop(Frame* p, const Frame* piece, int frames, int written)
{
    const bool priming = extendTransition(piece, frames) || transitionCount > kFadeFrames;
    if (priming) {
        const int produced = vocodeOrConvert(p, piece, frames, written);
        if (!converterInForce())
            copyFrames(p, piece, std::min(frames, produced));
        filterOutput(p, produced);
        return produced;
    }
    const int produced = produceHop(p, piece, frames, written);
    if (!srcActive)
        Velora_VSP_CrossFade(p, p, piece, std::min(frames, produced), transitionCount);
    return produced;
}

bool Velora_VSP::extendTransition(const Frame* piece, int frames)
{
    const int32_t peak = peakLevel(piece, frames);
    const int32_t before = std::exchange(prevPeak, peak);
    if (before < 0 || transitionCount < kFadeFrames || std::abs(peak - before) <= kLevelJump ||
        extensionCount >= kMostExtensions)
        return false;
    transitionCount = std::min(transitionCount + kExtensionFrames, kLongestTransition);
    ++extensionCount;
    return true;
}

int Velora_VSP::vocodeOrConvert(Frame* p, const Frame* piece, int frames, int written)
{
    return converterInForce() ? src->Exe(p, piece, frames)
                              : Velora_VSP_frame(p, piece, frames, written);
}

void Velora_VSP::filterOutput(Frame* p, int frames)
{
    if (!bqActive)
        return;
    if (bqA != nullptr && bqB != nullptr)
        Velora_BQ::ExeInSeries(kernels, *bqA, *bqB, p, frames);
    for (int n = 0; n < frames; ++n)
        for (int channel = 0; channel < 2; ++channel)
            p[n][channel] = slowSpeedGain(p[n][channel]);
}
