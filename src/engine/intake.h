// The intake of the buffered front end: input of any block size, handed on in whole chunks.
#pragma once

#include <cstddef>
#include <cstdint>

#include <velora/vsp.h>

#include "convert/bridge.h"
#include "kernels/sizes.h"

namespace vsp {

/// A ring of caller frames, in the caller's format, that wait for a whole chunk of kMaxHop
/// working-rate frames. Chunks never wrap around its end.
class Intake {
public:
    /// Records the format of what comes; applied by the next Velora_VSP_BufInit_EXE.
    void Velora_VSP_BufInit(int sampleRate, Velora_BitDepth_T bitDepth);
    /// Sets the chunk size for the recorded rate and forgets what waits.
    void Velora_VSP_BufInit_Apply();
    /// Applies a format that was recorded since the last call.
    void Velora_VSP_BufInit_EXE();
    /// Appends caller frames to the ring.
    /// @param in      [frames] of 2 * bytesPerSample bytes
    /// @param frames  at most a chunk
    /// @returns       1 if the ring now holds a whole chunk, else 0
    int Kavo_VSP_WriteDataToBuf(const void* in, int frames, int bytesPerSample);

protected:
    const std::byte* chunk() const { return bufRing + bufReadPos * bytesPerFrame(bufBitDepth); }
    void dropChunk();

    int32_t bufChunkFrames = kMaxHop;                   // settings: caller frames, see above
    Velora_BitDepth_T bufBitDepth = Velora_BitDepth_16; // settings

private:
    static constexpr int kRingFrames = 2 * kPieceFrames;
    static_assert(kRingFrames % (kMaxHop << rateShiftOf(INT32_MAX)) == 0, "chunks don't wrap");

    int32_t bufSampleRate = 44100; // settings: caller's rate, Hz
    int32_t bufInitPending = 0;    // settings: a format is waiting to be applied
    int32_t bufWritePos = 0;       // history: frame index in the ring
    int32_t bufReadPos = 0;        // history: frame index, a multiple of bufChunkFrames
    int32_t bufFill = 0;           // history: frames written and not yet handed on
    // History: in the caller's format; 2-byte samples use the first half.
    alignas(int32_t) std::byte bufRing[kRingFrames * bytesPerFrame(Velora_BitDepth_32)] = {};
};

} // namespace vsp
