// Whether a sound that was made of another is as loud and at the same pitch, band by band.
#pragma once

#include <optional>
#include <vector>

#include "sound_picture.h"

/// A band of the input, and what became of it.
struct BandCheck {
    double hertz;                // its middle
    double in;                   // decibels below a full-scale sine
    double out;                  // where the pitch is to put it
    std::optional<double> cents; // of the output above where it is to be; none where no tone tells
};

/// @param perOctave  1 or 3
/// @param pitch      frequency that is to come out for each that went in
std::vector<BandCheck> checkBands(const MeanSpectrum& in, const MeanSpectrum& out, int perOctave,
                                  double pitch);
