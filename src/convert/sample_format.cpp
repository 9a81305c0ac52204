// Carries audio across the border between the caller's format and rate and the engine's own: 16-bit
// stereo at the working rate. Formats change at the caller's rate, so the resamplers see 16 bits
// only.

#include "engine/velora_vsp.h"

using namespace vsp;

int Velora_VSP::Convert_UHQ2MQ(Frame* out, const void* in, int frames, int shift,
                               Velora_BitDepth_T depth)
{
    Frame* const target = shift > 0 ? uhqInStage : out;
    const Frame* source = target;
    switch (depth) {
    case Velora_BitDepth_24:
        kernels.from24Bit(*target, static_cast<const int32_t*>(in), 2 * frames);
        break;
    case Velora_BitDepth_32:
        kernels.from32Bit(*target, static_cast<const int32_t*>(in), 2 * frames);
        break;
    case Velora_BitDepth_Float:
        kernels.fromFloat(*target, static_cast<const float*>(in), 2 * frames);
        break;
    case Velora_BitDepth_16:
        source = static_cast<const Frame*>(in);
        break;
    }
    return shift > 0 ? DownSmpl2_polyphase(out, source, frames, shift) : frames;
}

void Velora_VSP::Convert_MQ2UHQ(void* out, const Frame* in, int frames, int shift,
                                Velora_BitDepth_T depth)
{
    const Frame* source = in;
    if (shift > 0) {
        Frame* const target = depth == Velora_BitDepth_16 ? static_cast<Frame*>(out) : uhqOutStage;
        UpSmpl2_polyphase(target, in, frames, shift);
        source = target;
    }
    const int samples = 2 * (frames << shift);
    switch (depth) {
    case Velora_BitDepth_24:
        kernels.to24Bit(static_cast<int32_t*>(out), *source, samples);
        break;
    case Velora_BitDepth_32:
        kernels.to32Bit(static_cast<int32_t*>(out), *source, samples);
        break;
    case Velora_BitDepth_Float:
        kernels.toFloat(static_cast<float*>(out), *source, samples);
        break;
    case Velora_BitDepth_16:
        break;
    }
}
