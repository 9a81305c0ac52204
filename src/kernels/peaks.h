// Peaks of a magnitude spectrum.
#pragma once

#include <cstdint>

#include "kernels/sizes.h"

namespace vsp {

/// A peak is larger than this many neighbours on each side, which then follow it.
inline constexpr int kPeakReach = 2;
inline constexpr int kFirstPeakBin = kPeakReach;
inline constexpr int kLastPeakBin = kLastBin - kPeakReach;
inline constexpr int kMaxPeaks = (kLastPeakBin - kFirstPeakBin) / (kPeakReach + 1) + 1;

/// Magnitude that a peak must exceed.
inline constexpr int32_t kPeakFloor = 100;

} // namespace vsp
