// Decisions of the frame pipeline as pure functions.
#pragma once

#include <cstdint>

namespace vsp {

/// A band's countdown around an onset, in hops. When it starts, the frame with the onset is row 2
/// of the rings; two hops later it is row 0, the one that synthesis starts from.
enum Countdown : int8_t {
    kIdle = 0,
    kFrozenHop = 1,   ///< whatever the hold says
    kResetHop = 5,    ///< from here on the hold decides
    kLastHeldHop = 6, ///< of the two after the first
    kCountdownStart = 8,
};

/// Row of the magnitude ring that is to be frozen, when the countdown starts: it falls by one a
/// hop, as the ring turns, and is there (row 3, the newest) one hop after the reset.
inline constexpr int8_t kFrozenRowStart = 7;

/// A band's hold, in synthesis frames, when the reset is due.
inline constexpr int8_t kHoldStart = 4;

/// How a band is synthesised, by how long ago an onset was found in it.
enum class BandPath {
    normal, ///< interpolated magnitudes, running phases
    hold,   ///< the last magnitudes stay, so that the onset doesn't smear into the time before it
    reset,  ///< interpolated magnitudes; the running phases restart from the analysis
    frozen, ///< magnitudes of one analysis frame, not interpolated
};

/// @param status  the band's countdown
/// @param hold    kHoldStart: the reset is due in this synthesis frame; below: interpolated frames
///                left after it; 0: frozen
BandPath bandPath(int status, int hold);

/// Gain that makes up for the energy that dense spectra lose at high speeds: 1 + w sin((speed - 1)
/// pi/2), w growing from 0 at 5 peaks to 0.4 at 15. Below 1 between the speeds 3 and 5 and above 7.
float peakDensityGain(int peaks, float speed);

} // namespace vsp
