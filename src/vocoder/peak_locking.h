// Peaks of a spectrum.
#pragma once

#include "vocoder/bands.h"

namespace vsp {

/// Peaks stand at least three bins apart in 2..254.
inline constexpr int kMaxPeaks = 85;

/// Magnitude that a peak must exceed.
inline constexpr int32_t kPeakFloor = 100;

} // namespace vsp
