// Every fixed-point operation of the engine, named once, with its rounding and its corner cases.
//
// `+` and `<<` in the engine's code claim that nothing overflows; the names below say where
// wrapping, truncating or saturating is meant. Right shifts are arithmetic: toward minus infinity.
#pragma once

#include <cstdint>

// Forced inline, so no copy compiled for a newer CPU can be linked into code for an older one.
#define VSP_INLINE [[gnu::always_inline]] static inline

namespace fx {

/// a + b modulo 2^32.
VSP_INLINE constexpr int32_t wrapAdd(int32_t a, int32_t b)
{
    return int32_t(uint32_t(a) + uint32_t(b));
}

/// a - b modulo 2^32.
VSP_INLINE constexpr int32_t wrapSub(int32_t a, int32_t b)
{
    return int32_t(uint32_t(a) - uint32_t(b));
}

/// -a modulo 2^32: the most negative value stays as it is.
VSP_INLINE constexpr int32_t wrapNeg(int32_t a)
{
    return int32_t(0u - uint32_t(a));
}

/// |a| modulo 2^32: the most negative value stays as it is.
VSP_INLINE constexpr int32_t wrapAbs(int32_t a)
{
    return a < 0 ? wrapNeg(a) : a;
}

/// a * 2^bits modulo 2^32; bits 0 to 31.
VSP_INLINE constexpr int32_t wrapShl(int32_t a, int bits)
{
    return int32_t(uint32_t(a) << bits);
}

/// a + b modulo 2^64.
VSP_INLINE constexpr int64_t wrapAdd64(int64_t a, int64_t b)
{
    return int64_t(uint64_t(a) + uint64_t(b));
}

/// (a * b) >> 16 from the 64-bit product, toward minus infinity; keeps the low 32 bits.
/// (-c) * x >> 16 is therefore not -(c * x >> 16).
VSP_INLINE constexpr int32_t mulShift16(int32_t a, int32_t b)
{
    return int32_t((int64_t(a) * b) >> 16);
}

/// Rounding doubling multiply-high: Q31 x Qn -> Qn, halves upward. Not for MIN * MIN, which has no
/// result: no twiddle factor is MIN.
VSP_INLINE constexpr int32_t mulRoundQ31(int32_t a, int32_t b)
{
    return int32_t((int64_t(a) * b + (int64_t(1) << 30)) >> 31);
}

/// The low 16 bits, as a signed value.
VSP_INLINE constexpr int16_t low16(int32_t a)
{
    return int16_t(a);
}

/// Clamps to -32768..32767.
VSP_INLINE constexpr int16_t sat16(int64_t a)
{
    return int16_t(a < INT16_MIN ? INT16_MIN : a > INT16_MAX ? INT16_MAX : a);
}

} // namespace fx
