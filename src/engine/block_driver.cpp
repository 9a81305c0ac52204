// Cuts a caller's block into pieces and brings each to 16 bits at the working rate and back.

#include <cstddef>

#include "engine/output.h"
#include "engine/velora_vsp.h"

using namespace vsp;

int Velora_VSP::Exe(void* out, const void* in, int frames)
{
    Velora_VSP_Call_InitSetPar_Apply();
    const std::ptrdiff_t frameBytes = bytesPerFrame();
    auto* dst = static_cast<std::byte*>(out);
    const auto* source = static_cast<const std::byte*>(in);
    int64_t total = 0;
    for (int remaining = frames; remaining > 0; remaining -= kPieceFrames) {
        const int piece = std::min(remaining, kPieceFrames);
        const int written = processPiece(dst, source, piece);
        total += written;
        dst += written * frameBytes;
        source += piece * frameBytes;
    }
    return int(std::min<int64_t>(total, INT_MAX));
}

int Velora_VSP::processPiece(void* out, const void* in, int frames)
{
    if (rateShift == 0 && bitDepth == Velora_BitDepth_16)
        return Exe1(static_cast<Frame*>(out), static_cast<const Frame*>(in), frames);
    const int workingFrames = Convert_UHQ2MQ(mqIn, in, frames, rateShift, bitDepth);
    ConvertedOutput output(*this, out);
    return runScheduler(output, mqIn, workingFrames) << rateShift;
}

void Velora_VSP::ConvertedOutput::commit(int frames)
{
    // The interpolator's state carries on, so cutting leaves the samples as they are.
    const int most = kOutStageFrames >> engine.rateShift;
    for (int done = 0; done < frames; done += most) {
        const int part = std::min(most, frames - done);
        engine.Convert_MQ2UHQ(out, engine.mqOut + done, part, engine.rateShift, engine.bitDepth);
        out += (part << engine.rateShift) * engine.bytesPerFrame();
    }
    count += frames;
}
