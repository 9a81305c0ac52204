// Between 16-bit samples and the caller's formats: plain loops that the compiler vectorises, but for
// one that it makes too much of.
#pragma once

#include <cstdint>

#include "fixed/floating_point.h"
#include "kernels/vector_scalar.h"

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

template <class V>
void fromFloat(int16_t* out, const float* in, int samples)
{
    int n = 0;
    for (; V::lanes > 1 && n + 2 * V::lanes <= samples; n += 2 * V::lanes)
        storeSaturated(out + n, loadQ15(in + n, V{}), loadQ15(in + n + V::lanes, V{}));
    for (; n < samples; ++n)
        out[n] = int16_t(loadQ15(in + n, I32x1{}).v[0]);
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
