// Decisions of the frame pipeline as pure functions.
#pragma once

#include "fixed/complex.h"

namespace vsp {

/// How a band is synthesised, by how long ago an onset was found in it.
enum class BandPath {
    normal, ///< interpolated magnitudes, running phases
    hold,   ///< the last magnitudes stay, so that the onset doesn't smear into the time before it
    reset,  ///< interpolated magnitudes; the running phases restart from the analysis
    frozen, ///< magnitudes of one analysis frame, not interpolated
};

/// @param status  the band's countdown: 8 at the hop after the onset was found, 0 when none runs
/// @param hold    4: the reset is due in this synthesis frame; 3 to 1: interpolated frames left
/// after
///                it; 0: frozen
BandPath bandPath(int status, int hold);

/// Gain that makes up for the energy that dense spectra lose at high speeds: 1 + w sin((speed - 1)
/// pi/2), w growing from 0 at 5 peaks to 0.4 at 15. Below 1 between the speeds 3 and 5 and above 7.
float peakDensityGain(int peaks, float speed);

} // namespace vsp
