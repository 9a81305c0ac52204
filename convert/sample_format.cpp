// Carries audio across the border between the caller's format and rate and the engine's own: 16-bit
// stereo at the working rate. Formats change at the caller's rate, so the resamplers see 16 bits
// only.

#include "convert/sample_format.h"

#include "engine/velora_vsp.h"

namespace vsp {
namespace {

// In 64 bits, since the rounding constant may not overflow.
template <int bits>
VSP_INLINE int16_t roundToTop16(int32_t x)
{
    return fx::sat16((int64_t(x) + (1 << (bits - 1))) >> bits);
}

} // namespace

void from24Bit(int16_t* out, const int32_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = roundToTop16<8>(in[n]);
}

void from32Bit(int16_t* out, const int32_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = roundToTop16<16>(in[n]);
}

void fromFloat(int16_t* out, const float* in, int samples)
{
    for (int n = 0; n < samples; ++n) {
        const float scaled = in[n] * 32768.0f;
        // Clamped before the conversion, which has no value for anything beyond int32.
        out[n] = scaled >= 32767.0f    ? int16_t(32767)
                 : scaled <= -32768.0f ? int16_t(-32768)
                 : scaled == scaled    ? int16_t(scaled)
                                       : int16_t(0);
    }
}

void to24Bit(int32_t* out, const int16_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = in[n] * (1 << 8);
}

void to32Bit(int32_t* out, const int16_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = in[n] * (1 << 16);
}

void toFloat(float* out, const int16_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = float(in[n]) * 3.0517578125e-05f;
}

} // namespace vsp

using namespace vsp;

int Velora_VSP::Convert_UHQ2MQ(Frame* out, const void* in, int frames, int shift,
                               Velora_BitDepth_T depth)
{
    Frame* const target = shift > 0 ? uhqInStage : out;
    const Frame* source = target;
    switch (depth) {
    case Velora_BitDepth_24:
        from24Bit(*target, static_cast<const int32_t*>(in), 2 * frames);
        break;
    case Velora_BitDepth_32:
        from32Bit(*target, static_cast<const int32_t*>(in), 2 * frames);
        break;
    case Velora_BitDepth_Float:
        fromFloat(*target, static_cast<const float*>(in), 2 * frames);
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
        to24Bit(static_cast<int32_t*>(out), *source, samples);
        break;
    case Velora_BitDepth_32:
        to32Bit(static_cast<int32_t*>(out), *source, samples);
        break;
    case Velora_BitDepth_Float:
        toFloat(static_cast<float*>(out), *source, samples);
        break;
    case Velora_BitDepth_16:
        break;
    }
}
