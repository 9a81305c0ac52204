// Steps of peak phase locking on one channel, as functions on plain arrays.
#pragma once

#include "fixed/complex.h"
#include "vocoder/bands.h"

namespace vsp {

/// A peak that is to be locked, and the bins that follow it.
struct PeakRegion {
    int16_t first;
    int16_t last;
};

/// Peaks stand at least three bins apart in 2..254.
inline constexpr int kMaxPeaks = 85;

/// Finds the peaks of a magnitude spectrum: bins above 100 and above their two neighbours on each
/// side.
/// @param peakList   [kMaxPeaks] takes the peaks in bands whose status is 0, ascending
/// @param listed     takes their number
/// @param mag        [kBins]
/// @param status     [kBands]
/// @returns the number of all peaks in bins 2..254
int findPeaks(int16_t* peakList, int& listed, const int32_t* mag, const int8_t* status,
              const int16_t (*bands)[kBands]);

/// Gives each peak two bins on each side, or up to the middle bin it shares with a close neighbour.
/// @param regions   [count]
/// @param peakList  [count] ascending, count at least 1
void peakRegions(PeakRegion* regions, const int16_t* peakList, int count);

/// Gives the bins of a region the phase of their peak plus their own analysis phase offset from it,
/// in the spectrum X and in the running phasors S; the peak itself stays. A: analysis phasors. All
/// [kBins].
void lockRegion(ComplexInt* X, ComplexShort* S, const ComplexShort* A, int peak, PeakRegion region);

} // namespace vsp
