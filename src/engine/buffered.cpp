// Takes blocks of any size: collects input in a ring, in the caller's format, and processes it in
// chunks of 512 working-rate frames, which never wrap around the end of the ring.

#include <cstddef>
#include <cstring>

#include "engine/velora_vsp.h"

using namespace vsp;

void Velora_VSP::Velora_VSP_BufInit(int rate, Velora_BitDepth_T depth)
{
    bufBitDepth = depth;
    bufSampleRate = rate;
    bufInitPending = 1;
}

void Velora_VSP::Velora_VSP_BufInit_Apply()
{
    bufChunkFrames = bufSampleRate <= 48000 ? 512 : bufSampleRate <= 96000 ? 1024 : 2048;
    bufWritePos = 0;
    bufReadPos = 0;
    bufFill = 0;
}

void Velora_VSP::Velora_VSP_BufInit_EXE()
{
    if (bufInitPending != 0) {
        Velora_VSP_BufInit_Apply();
        bufInitPending = 0;
    }
}

int Velora_VSP::Kavo_VSP_WriteDataToBuf(const void* source, int frames, int bytesPerSample)
{
    const size_t frameBytes = 2 * size_t(bytesPerSample);
    const size_t untilEnd = size_t(std::min(frames, kRingFrames - bufWritePos)) * frameBytes;
    const size_t all = size_t(frames) * frameBytes;
    std::memcpy(bufRing + size_t(bufWritePos) * frameBytes, source, untilEnd);
    std::memcpy(bufRing, static_cast<const std::byte*>(source) + untilEnd, all - untilEnd);
    bufWritePos = (bufWritePos + frames) % kRingFrames;
    bufFill += frames;
    return bufFill >= bufChunkFrames ? 1 : 0;
}

int Velora_VSP::Exe_buffered(void* dst, const void* source, int frames)
{
    const int bytesPerSample = bufBitDepth != Velora_BitDepth_16 ? 4 : 2;
    const std::ptrdiff_t frameBytes = 2 * bytesPerSample;
    Velora_VSP_BufInit_EXE();
    auto* out = static_cast<std::byte*>(dst);
    const auto* in = static_cast<const std::byte*>(source);
    int64_t total = 0;
    for (int remaining = frames; remaining > 0;) {
        const int piece = std::min(remaining, bufChunkFrames);
        if (Kavo_VSP_WriteDataToBuf(in, piece, bytesPerSample) == 1) {
            const int produced = Exe(out, bufRing + bufReadPos * frameBytes, bufChunkFrames);
            total += produced;
            out += produced * frameBytes;
            bufReadPos = (bufReadPos + bufChunkFrames) % kRingFrames;
            bufFill -= bufChunkFrames;
        }
        in += piece * frameBytes;
        remaining -= piece;
    }
    return int(std::min<int64_t>(total, INT_MAX));
}
