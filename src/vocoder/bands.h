// The spectrum as the vocoder sees it: 257 bins, ten bands that are treated alike around an onset.
#pragma once

#include <cstdint>

namespace vsp {

inline constexpr int kBins = 257; // 0 (DC) to 256 (Nyquist)
inline constexpr int kBands = 10;

/// Row 0: first bins, row 1: last bins. Bin 256 belongs to no band.
inline constexpr int16_t bandTable[2][kBands] = {
    {0, 9, 19, 29, 43, 59, 80, 108, 147, 205},
    {8, 18, 28, 42, 58, 79, 107, 146, 204, 255},
};

} // namespace vsp
