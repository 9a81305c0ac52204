// The size of the vocoder's transform.
#pragma once

namespace vsp {

inline constexpr int kFftLog2N = 9;
inline constexpr int kFftN = 1 << kFftLog2N;

} // namespace vsp
