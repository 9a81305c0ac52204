// Peaks of a spectrum and the bins that follow them.
#pragma once

#include "vocoder/bands.h"

namespace vsp {

/// A peak that is to be locked, and the bins that follow it.
struct PeakRegion {
    int16_t first;
    int16_t last;
};

/// Peaks stand at least three bins apart in 2..254.
inline constexpr int kMaxPeaks = 85;

/// Magnitude that a peak must exceed.
inline constexpr int32_t kPeakFloor = 100;

/// Gives each peak two bins on each side, or up to the middle bin it shares with a close neighbour.
/// @param regions   [count]
/// @param peakList  [count] ascending, count at least 1
void peakRegions(PeakRegion* regions, const int16_t* peakList, int count);

} // namespace vsp
