#include "aligned_stream.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include <velora/src384.h>

namespace {

// The engine's own piece size in caller frames: a whole number of hops at every rate.
constexpr int kBlockFrames = 2048;

// How long a new speed takes to be primed and faded in, in working-rate frames.
constexpr int kTransitionFrames = 6144;

// Caller frames per working-rate frame, as a power of two.
int rateShift(int sampleRate)
{
    return sampleRate <= 48000 ? 0 : sampleRate <= 96000 ? 1 : 2;
}

bool usesConverter(float speed)
{
    return speed == 0.5f || speed == 0.25f || speed == 0.125f;
}

// Group delay in seconds of the two 2 kHz Butterworth sections that speeds up to 0.5 pass,
// sqrt(2) / (2 pi 2000 Hz) each.
double lowPassDelay(float speed)
{
    return speed <= 0.5f ? 2.25e-4 : 0.0;
}

// Delay of the output behind (input time / speed), in caller frames of output. The vocoder shows
// the middle of a window four hops after its first frame came in, two hops behind its clock. Left
// out: the half-band filters of high rates, a quarter of a millisecond at the most.
int64_t engineDelay(int sampleRate, int hop, float speed)
{
    const double path = usesConverter(speed) ? int(Velora_SRC384_DelayFrames) / double(speed)
                                             : (4.0 / double(speed) + 2.0) * hop;
    const double workingFrames = path + lowPassDelay(speed) * sampleRate;
    return std::llround(workingFrames * (1 << rateShift(sampleRate)));
}

} // namespace

AlignedStream::AlignedStream(int rate, Velora_BitDepth_T depth, double timeSpeed, float engineSpeed,
                             Sink outputSink)
    : engine(Velora_VSP_Factory::Create()), speed(timeSpeed), sink(std::move(outputSink)),
      frameBytes(depth == Velora_BitDepth_16 ? 4 : 8)
{
    engine->Init(rate, depth);
    const int hop = engine->GetPredictedInputFrameSize(1); // working-rate frames
    engine->Init(rate, depth);                             // lifts the limit set by asking

    const int shift = rateShift(rate);
    const size_t hopFrames = size_t(hop) << shift;
    // A block gives its length / speed, rounded to hops, but as long as it is while being primed.
    const double slowest = std::min(double(engineSpeed), 1.0);
    const size_t room = size_t(std::ceil(kBlockFrames / slowest)) + 4 * hopFrames;
    block.resize(kBlockFrames * frameBytes);
    output.resize(room * frameBytes);

    // In silence, so that the fade is over and the clock at its start when the music comes.
    engine->SetPar(engineSpeed);
    for (int primed = 0; primed < kTransitionFrames << shift; primed += kBlockFrames)
        engine->Exe(output.data(), block.data(), kBlockFrames);
    framesToDrop = engineDelay(rate, hop, engineSpeed);
}

void AlignedStream::process(const void* in, int frames)
{
    inputFrames += frames;
    const auto* source = static_cast<const std::byte*>(in);
    while (frames > 0) {
        const int part = std::min(frames, kBlockFrames - blockFrames);
        const size_t bytes = size_t(part) * frameBytes;
        std::memcpy(block.data() + size_t(blockFrames) * frameBytes, source, bytes);
        source += bytes;
        frames -= part;
        blockFrames += part;
        if (blockFrames == kBlockFrames)
            feedBlock();
    }
}

void AlignedStream::finish()
{
    framesToGive = std::llround(double(inputFrames) / speed) - givenFrames;
    while (framesToGive > 0) {
        const size_t used = size_t(blockFrames) * frameBytes;
        std::fill(block.begin() + ptrdiff_t(used), block.end(), std::byte(0));
        feedBlock();
    }
}

void AlignedStream::feedBlock()
{
    blockFrames = 0;
    const int produced = engine->Exe(output.data(), block.data(), kBlockFrames);
    const int dropped = int(std::min<int64_t>(produced, framesToDrop));
    const int count = int(std::min<int64_t>(produced - dropped, framesToGive));
    framesToDrop -= dropped;
    framesToGive -= count;
    givenFrames += count;
    if (count > 0)
        sink(output.data() + size_t(dropped) * frameBytes, count);
}
