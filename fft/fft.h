// The transform as the engine uses it: a size given by the caller, no process-wide state.
#pragma once

#include <cstdint>

namespace vsp {

/// Points of the vocoder's transform, and its log2.
inline constexpr int kFftLog2N = 9;
inline constexpr int kFftN = 1 << kFftLog2N;

/// Forward transform of 2^log2N points in place, log2N 5 to 9; see velora/fft.h for scale and
/// rounding.
void fftForward(int32_t* re, int32_t* im, int log2N);

} // namespace vsp
