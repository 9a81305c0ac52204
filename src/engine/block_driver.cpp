// Cuts a caller's block into pieces and brings each to 16 bits at the working rate and back;
// collects small blocks until there is enough for whole hops.

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "convert/bridge.h"
#include "engine/output.h"
#include "engine/velora_vsp.h"
#include "kernels/sizes.h"

using namespace vsp;

int Velora_VSP::Exe(void* out, const void* in, int frames)
{
    Velora_VSP_Call_InitSetPar_Apply();
    const std::ptrdiff_t frameBytes = bytesPerFrame(bitDepth);
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

int Velora_VSP::Exe_buffered(void* out, const void* in, int frames)
{
    Velora_VSP_BufInit_EXE();
    const std::ptrdiff_t frameBytes = bytesPerFrame(bufBitDepth);
    auto* dst = static_cast<std::byte*>(out);
    const auto* source = static_cast<const std::byte*>(in);
    int64_t total = 0;
    for (int remaining = frames; remaining > 0;) {
        const int piece = std::min(remaining, bufChunkFrames);
        if (Kavo_VSP_WriteDataToBuf(source, piece, int(frameBytes / 2)) == 1) {
            const int written = Exe(dst, chunk(), bufChunkFrames);
            total += written;
            dst += written * frameBytes;
            dropChunk();
        }
        source += piece * frameBytes;
        remaining -= piece;
    }
    return int(std::min<int64_t>(total, INT_MAX));
}

int Velora_VSP::processPiece(void* out, const void* in, int frames)
{
    if (isWorkingForm())
        return Exe1(static_cast<Frame*>(out), static_cast<const Frame*>(in), frames);
    const int workingFrames = Convert_UHQ2MQ(mqIn, in, frames, rateShift, bitDepth);
    ConvertedOutput output(*this, mqOut, out, rateShift, bitDepth);
    return runScheduler(output, mqIn, workingFrames) << rateShift;
}

int Velora_VSP::Exe1(Frame* out, const Frame* in, int frames)
{
    DirectOutput output(out);
    return runScheduler(output, in, frames);
}

int Velora_VSP::callerHopFrames()
{
    Velora_VSP_Call_InitSetPar_Apply();
    return hopFrames() << rateShift;
}

void Velora_VSP::takeCallerHop(const void* in)
{
    const Frame* const frames = workingHop(in);
    takeHop(frames, hopFrames());
}

// A hop of the caller's as 16 bits at the working rate.
const Frame* Velora_VSP::workingHop(const void* in)
{
    const int frames = callerHopFrames();
    if (isWorkingForm())
        return static_cast<const Frame*>(in);
    Convert_UHQ2MQ(mqIn, in, frames, rateShift, bitDepth);
    return mqIn;
}

void Velora_VSP::takeCallerStage(int stage, const void* in)
{
    static_assert(Velora_VSP_Conductor::kTakeStages == kTakeStages &&
                  Velora_VSP_Conductor::kUnheardHops == kUnheardHops &&
                  Velora_VSP_Conductor::kUnheardStages == kUnheardStages);
    const Frame* const taken = isWorkingForm() ? static_cast<const Frame*>(in) : mqIn;
    takeStage(stage, stage == 0 ? workingHop(in) : taken, hopFrames());
}

int Velora_VSP::giveCallerHop(void* out)
{
    if (!hasFrame())
        return 0;
    giveFrame(roomForHop(out), hopFrames());
    finishHop(out);
    return hopFrames() << rateShift;
}

void Velora_VSP::giveCallerStage(int stage, void* out)
{
    static_assert(Velora_VSP_Conductor::kGiveStages == kGiveStages + 1);
    if (stage == kGiveStages)
        finishHop(out);
    else if (hasFrame())
        giveStage(stage, roomForHop(out), hopFrames());
}

// Where a hop is made that the caller wants at `out`, and the rest of its way there.
Frame* Velora_VSP::roomForHop(void* out)
{
    return isWorkingForm() ? static_cast<Frame*>(out) : mqOut;
}

void Velora_VSP::finishHop(void* out)
{
    Frame* const frames = roomForHop(out);
    filterOutput(frames, hopFrames());
    if (!isWorkingForm())
        Convert_MQ2UHQ(out, frames, hopFrames(), rateShift, bitDepth);
}

int Velora_VSP::runScheduler(Output& output, const Frame* in, int frames)
{
    // Settings may drop what is carried, but not what this call is about to give.
    const int carried = std::exchange(carryCount, 0);
    Velora_VSP_Call_InitSetPar_Apply();
    run(output, carried, in, frames);
    return output.written();
}
