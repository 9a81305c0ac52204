// What output that is the same on every machine asks of float and double arithmetic. Every file
// whose results hang on it includes this, so that a build that would differ is refused.
#pragma once

#include <cfloat>

// "Not a number" must stay one, and sums keep their order. Not every compiler tells each part of
// -ffast-math by a macro of its own; GCC says by __GCC_IEC_559 that one of them was given.
#if defined(__FAST_MATH__) || (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__) ||           \
    defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__) ||                               \
    (defined(__GCC_IEC_559) && __GCC_IEC_559 == 0)
#error "Velora VSP gives the same output everywhere: build without -ffast-math and its parts"
#endif

static_assert(
    FLT_EVAL_METHOD == 0,
    "Velora VSP gives the same output everywhere: a float must be rounded to a float and a "
    "double to a double. For 32-bit x86 build with -msse2 -mfpmath=sse");
static_assert(FLT_RADIX == 2 && FLT_MANT_DIG == 24 && DBL_MANT_DIG == 53,
              "Velora VSP takes float and double for the types of IEEE 754");
