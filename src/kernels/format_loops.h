// Between 16-bit samples, or Q4 that was or will be 16 bits, and the caller's formats: plain loops
// that the compiler vectorises, but for two that it makes too much of.
#pragma once

#include <cstdint>

#include "fixed/fixed.h"
#include "fixed/floating_point.h"
#include "kernels/half_band.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

/// What the loops make of 16 bits and take for them: 16 bits themselves, or Q4.
VSP_INLINE void put16(int16_t& out, int32_t sample)
{
    out = int16_t(sample);
}
VSP_INLINE void put16(int32_t& out, int32_t sample)
{
    out = sample * (1 << kHalfBandFractionBits);
}
VSP_INLINE int32_t clamp16(int32_t x)
{
    return x < INT16_MIN ? INT16_MIN : x > INT16_MAX ? INT16_MAX : x;
}
VSP_INLINE int32_t get16(int16_t sample)
{
    return sample;
}
VSP_INLINE int32_t get16(int32_t q4)
{
    return clamp16(q4 >> kHalfBandFractionBits);
}

// Exact, since every step truncates or clamps: (x + half) / 2^bits toward minus infinity without
// the overflow of x + half.
template <int bits, class Out>
void from32(Out* out, const int32_t* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        put16(out[n], clamp16((in[n] >> bits) + ((in[n] >> (bits - 1)) & 1)));
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

template <class V>
void q4FromFloat(int32_t* out, const float* in, int samples)
{
    int n = 0;
    for (; V::lanes > 1 && n + V::lanes <= samples; n += V::lanes) {
        const V x = min(max(loadQ15(in + n, V{}), set1(INT16_MIN, V{})), set1(INT16_MAX, V{}));
        store(out + n, shiftLeft<kHalfBandFractionBits>(x));
    }
    for (; n < samples; ++n)
        put16(out[n], loadQ15(in + n, I32x1{}).v[0]);
}

template <int bits, class In>
void to32(int32_t* out, const In* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = get16(in[n]) * (1 << bits);
}

template <class In>
void toFloat(float* out, const In* in, int samples)
{
    for (int n = 0; n < samples; ++n)
        out[n] = float(get16(in[n])) * 3.0517578125e-05f;
}

} // namespace vsp::VSP_KERNEL_SET
