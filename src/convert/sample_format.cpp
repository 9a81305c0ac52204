#include "convert/sample_format.h"

#include <cstdint>

namespace vsp {

void samplesTo16(const KernelTable& kernels, int16_t* out, const void* in, int samples,
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

void samplesFrom16(const KernelTable& kernels, void* out, const int16_t* in, int samples,
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

void samplesToQ4(const KernelTable& kernels, int32_t* out, const void* in, int samples,
                 Velora_BitDepth_T depth)
{
    switch (depth) {
    case Velora_BitDepth_24:
        kernels.q4From24Bit(out, static_cast<const int32_t*>(in), samples);
        break;
    case Velora_BitDepth_32:
        kernels.q4From32Bit(out, static_cast<const int32_t*>(in), samples);
        break;
    case Velora_BitDepth_Float:
        kernels.q4FromFloat(out, static_cast<const float*>(in), samples);
        break;
    case Velora_BitDepth_16:
        kernels.toQ4(out, static_cast<const int16_t*>(in), samples);
        break;
    }
}

void samplesFromQ4(const KernelTable& kernels, void* out, const int32_t* in, int samples,
                   Velora_BitDepth_T depth)
{
    switch (depth) {
    case Velora_BitDepth_24:
        kernels.q4To24Bit(static_cast<int32_t*>(out), in, samples);
        break;
    case Velora_BitDepth_32:
        kernels.q4To32Bit(static_cast<int32_t*>(out), in, samples);
        break;
    case Velora_BitDepth_Float:
        kernels.q4ToFloat(static_cast<float*>(out), in, samples);
        break;
    case Velora_BitDepth_16:
        kernels.fromQ4(static_cast<int16_t*>(out), in, samples);
        break;
    }
}

} // namespace vsp
