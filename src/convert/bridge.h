// The border between the caller's format and rate and the engine's own: 16-bit stereo at the
// working rate. Formats change at the caller's rate, so the resamplers see 16 bits only (as Q4).
#pragma once

#include <cstddef>
#include <cstdint>

#include <velora/vsp.h>

#include "fixed/frame.h"
#include "fixed/ring.h"
#include "kernels/half_band.h"
#include "kernels/kernel_table.h"
#include "kernels/sizes.h"

namespace vsp {

/// log2 of a caller's rate (Hz) over the working rate.
constexpr int rateShiftOf(int sampleRate)
{
    return sampleRate <= 48000 ? 0 : sampleRate <= 96000 ? 1 : 2;
}

constexpr std::ptrdiff_t bytesPerFrame(Velora_BitDepth_T depth)
{
    return 2 * (depth == Velora_BitDepth_16 ? sizeof(int16_t) : sizeof(int32_t));
}

class FormatBridge {
public:
    explicit FormatBridge(const KernelTable& table) : kernels(table) {}

    /// Caller format and rate to 16 bits at the working rate. Frames without their partners for one
    /// of these wait for the next call.
    /// @param out     [frames >> shift, and one more where some were waiting]
    /// @param in      [frames], 0 to kPieceFrames
    /// @param shift   0 to 2; 0 for 16-bit audio leaves `out` as it is
    /// @returns       frames written at `out`
    int Convert_UHQ2MQ(Frame* out, const void* in, int frames, int shift, Velora_BitDepth_T depth);
    /// 16 bits at the working rate to caller format and rate.
    /// @param out    [frames << shift]
    /// @param in     [frames], any number
    /// @param shift  0 to 2; 0 for 16-bit audio leaves `out` as it is
    void Convert_MQ2UHQ(void* out, const Frame* in, int frames, int shift, Velora_BitDepth_T depth);

    /// Starts the resamplers from silence.
    void DownSmpl2_Init() { clear(dsState, dsState2, usState, usState2); }
    /// Halves the rate `shift` times, 1 or 2.
    /// @param out  as for Convert_UHQ2MQ; saturated
    /// @param in   [frames], up to kPieceFrames
    int DownSmpl2_polyphase(Frame* out, const void* in, int frames, int shift,
                            Velora_BitDepth_T depth = Velora_BitDepth_16);
    /// Doubles the rate `shift` times, 1 or 2.
    /// @param out  [frames << shift], saturated; not `in`
    void UpSmpl2_polyphase(void* out, const Frame* in, int frames, int shift,
                           Velora_BitDepth_T depth = Velora_BitDepth_16);

private:
    const KernelTable& kernels; // the hot loops, for this machine

    DecimatorState dsState[2];  // history: [channel], stage at the caller's rate
    DecimatorState dsState2[2]; // history: [channel], second stage at shift 2
    HalfBandState usState[2];   // history: [channel], stage from the working rate
    HalfBandState usState2[2];  // history: [channel], second stage at shift 2
};

} // namespace vsp
