// Between 16-bit samples and the caller's formats: plain loops that the compiler vectorises.
#pragma once

#include <cstdint>

#include "fixed/floating_point.h"

namespace vsp::VSP_KERNEL_SET {

// Exact, since every step truncates or clamps: (x + half) / 2^bits toward minus infinity without
// the overflow of x + half.
template <int bits>
void from32(int16_t* out, const int32_t* in, int samples)
{
    for (int n = 0; n < samples; ++n) {
        const int32_t rounded = (in[n] >> bits) + ((in[n] >> (bits - 1)) & 1);
        out[n] = int16_t(rounded < INT16_MIN   ? INT16_MIN
                         : rounded > INT16_MAX ? INT16_MAX
                                               : rounded);
    }
}

inline void fromFloat(int16_t* out, const float* in, int samples)
{
    for (int n = 0; n < samples; ++n) {
        const float scaled = in[n] * 32768.0f;
        // Clamped before the conversion, which has no value for anything beyond int32.
        const float known = scaled == scaled ? scaled : 0.0f;
        const float above = known > -32768.0f ? known : -32768.0f;
        out[n] = int16_t(int32_t(above < 32767.0f ? above : 32767.0f));
    }
}

template <int bits>
void to32(int32_t* out, const int16_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = in[n] * (1 << bits);
}

inline void toFloat(float* out, const int16_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = float(in[n]) * 3.0517578125e-05f;
}

} // namespace vsp::VSP_KERNEL_SET
