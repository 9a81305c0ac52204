// Arithmetic of the onset detector that its fast loops share.
#pragma once

#include <cstdint>

#include "fixed/fixed.h"
#include "fixed/floating_point.h"

namespace vsp {

/// The derivative with respect to frequency is taken of y(k), what a recursive filter makes of the bins
/// up to k.
inline constexpr int kMirroredBins = 13;        // from which the values below bin 0 are had
inline constexpr int kFilterSegments = 4;       // that fast loops filter at once
inline constexpr int kFilterEarlyBins = 32;     // that they start each of them early
inline constexpr int32_t kCogFeedback1 = -8168; // Q14, on y(k - 1)
inline constexpr int32_t kCogFeedback2 = -204;  // Q14, on y(k - 2)
inline constexpr int32_t kCogAbove = 11639;     // Q14, weight of y(k + 1)
inline constexpr int32_t kCogHere = 9534;       // Q14, weight of y(k)
inline constexpr int32_t kCogBelow = -16776;    // Q14, weight of y(k - 1)

/// Where in time, within the frame, a band's energy lies: from its middle, in lengths of the frame.
/// A silent band gives 0 / 0, which no comparison takes for late.
VSP_INLINE float centreOfGravity(int64_t cross, int64_t energy)
{
    constexpr float kTwoPi = 6.2831855f;
    return (-float(cross) / float(energy)) / kTwoPi;
}

} // namespace vsp
