// Sample formats on both sides of the border.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "convert/bridge.h"

namespace vsp {
namespace {

void toWorking(const KernelTable& kernels, int16_t* out, const void* in, int samples,
               Velora_BitDepth_T depth)
{
    switch (depth) {
    case Velora_BitDepth_24:
        kernels.from24Bit(out, static_cast<const int32_t*>(in), samples);
        break;
    case Velora_BitDepth_32:
        kernels.from32Bit(out, static_cast<const int32_t*>(in), samples);
        break;
    case Velora_BitDepth_Float:
        kernels.fromFloat(out, static_cast<const float*>(in), samples);
        break;
    case Velora_BitDepth_16:
        break;
    }
}

void toCaller(const KernelTable& kernels, void* out, const int16_t* in, int samples,
              Velora_BitDepth_T depth)
{
    switch (depth) {
    case Velora_BitDepth_24:
        kernels.to24Bit(static_cast<int32_t*>(out), in, samples);
        break;
    case Velora_BitDepth_32:
        kernels.to32Bit(static_cast<int32_t*>(out), in, samples);
        break;
    case Velora_BitDepth_Float:
        kernels.toFloat(static_cast<float*>(out), in, samples);
        break;
    case Velora_BitDepth_16:
        break;
    }
}

} // namespace

int FormatBridge::Convert_UHQ2MQ(Frame* out, const void* in, int frames, int shift,
                                 Velora_BitDepth_T depth)
{
    if (shift == 0) {
        toWorking(kernels, *out, in, 2 * frames, depth);
        return frames;
    }
    if (depth == Velora_BitDepth_16)
        return DownSmpl2_polyphase(out, static_cast<const Frame*>(in), frames, shift);
    const auto* source = static_cast<const std::byte*>(in);
    int produced = 0;
    for (int done = 0; done < frames; done += kBlockFrames) {
        const int part = std::min(kBlockFrames, frames - done);
        toWorking(kernels, *uhqInStage, source, 2 * part, depth);
        produced += DownSmpl2_polyphase(out + produced, uhqInStage, part, shift);
        source += part * bytesPerFrame(depth);
    }
    return produced;
}

void FormatBridge::Convert_MQ2UHQ(void* out, const Frame* in, int frames, int shift,
                                  Velora_BitDepth_T depth)
{
    if (shift == 0)
        return toCaller(kernels, out, *in, 2 * frames, depth);
    if (depth == Velora_BitDepth_16)
        return UpSmpl2_polyphase(static_cast<Frame*>(out), in, frames, shift);
    auto* target = static_cast<std::byte*>(out);
    const int most = kBlockFrames >> shift;
    for (int done = 0; done < frames; done += most) {
        const int part = std::min(most, frames - done);
        UpSmpl2_polyphase(uhqOutStage, in + done, part, shift);
        toCaller(kernels, target, *uhqOutStage, 2 * (part << shift), depth);
        target += (part << shift) * bytesPerFrame(depth);
    }
}

} // namespace vsp
