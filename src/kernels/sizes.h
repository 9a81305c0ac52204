// The sizes that all stages share: pieces and hops of a stream; the vocoder's transform, its hop,
// its bins, and the bands that are treated alike around an onset.
#pragma once

#include <cstdint>

namespace vsp {

inline constexpr int kFftLog2N = 9;
inline constexpr int kFftN = 1 << kFftLog2N; // points
inline constexpr int kLowHop = kFftN / 4;    // low-band frames: hops overlap fourfold
inline constexpr int kMaxHop = 4 * kLowHop;  // working-rate frames: the low band keeps every fourth
inline constexpr int kSlowestRatio = 8;      // most hops that come out for one that goes in
inline constexpr int kPieceFrames = 2048; // most frames that are converted or scheduled at a time
inline constexpr int kBins = kFftN / 2 + 1;
inline constexpr int kLastBin = kBins - 1; // Nyquist; bin 0 is DC
inline constexpr int kBands = 10;

/// Row 0: first bins, row 1: last bins. The last bin of the spectrum belongs to no band.
inline constexpr int16_t bandTable[2][kBands] = {
    {0, 9, 19, 29, 43, 59, 80, 108, 147, 205},
    {8, 18, 28, 42, 58, 79, 107, 146, 204, 255},
};
static_assert(
    [] {
        for (int band = 1; band < kBands; ++band)
            if (bandTable[0][band] != bandTable[1][band - 1] + 1)
                return false;
        return bandTable[0][0] == 0 && bandTable[1][kBands - 1] == kLastBin - 1;
    }(),
    "bands adjoin and fill the spectrum");

} // namespace vsp
