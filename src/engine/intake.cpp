// Takes blocks of any size: collects input in the caller's format until a chunk is whole.

#include "engine/intake.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vsp {

void Intake::Velora_VSP_BufInit(int sampleRate, Velora_BitDepth_T bitDepth)
{
    bufBitDepth = bitDepth;
    bufSampleRate = sampleRate;
    bufInitPending = 1;
}

void Intake::Velora_VSP_BufInit_Apply()
{
    bufChunkFrames = kMaxHop << rateShiftOf(bufSampleRate);
    bufWritePos = 0;
    bufReadPos = 0;
    bufFill = 0;
}

void Intake::Velora_VSP_BufInit_EXE()
{
    if (bufInitPending != 0) {
        Velora_VSP_BufInit_Apply();
        bufInitPending = 0;
    }
}

int Intake::Kavo_VSP_WriteDataToBuf(const void* in, int frames, int bytesPerSample)
{
    const size_t frameBytes = 2 * size_t(bytesPerSample);
    const size_t untilEnd = size_t(std::min(frames, kRingFrames - bufWritePos)) * frameBytes;
    const size_t all = size_t(frames) * frameBytes;
    std::memcpy(bufRing + size_t(bufWritePos) * frameBytes, in, untilEnd);
    std::memcpy(bufRing, static_cast<const std::byte*>(in) + untilEnd, all - untilEnd);
    bufWritePos = (bufWritePos + frames) % kRingFrames;
    bufFill += frames;
    return bufFill >= bufChunkFrames ? 1 : 0;
}

void Intake::dropChunk()
{
    bufReadPos = (bufReadPos + bufChunkFrames) % kRingFrames;
    bufFill -= bufChunkFrames;
}

} // namespace vsp
