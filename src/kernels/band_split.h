// The pair of power-complementary filters that cut a hop into the vocoder's low band and the high
// band, and the interpolator that brings the low band back to the full rate. All are made of
// all-pass sections with Q14 coefficients; a section takes eight times the sample, and every delay
// word holds four times the section's value.
#pragma once

#include <cstdint>

namespace vsp {

/// Coefficients of the split filter, Q14: branch b is a second-order section (C0, C1) and a
/// first-order section C2, branch a two second-order sections (C3, C4) and (C5, C6).
using SplitCoeffs = int16_t[7];
inline constexpr SplitCoeffs kSplitCoeffsA = {4762, -8578, 1577, 5765, -13835, 3688, -2948};
inline constexpr SplitCoeffs kSplitCoeffsB = {21285, -11995, 7396, 23691, -15204, 17397, -6812};

/// Coefficients of the interpolator, Q14: set A is the first four, set B all six.
inline constexpr int16_t kInterpCoeffs[6] = {-13656, -1551, -21811, -6316, -2582, -10074};

/// Frames that low frequencies take through the split and through the interpolator, by log2 of the
/// decimation (measured; up to a fifth of the low band).
inline constexpr double kSplitDelay[3] = {0.0, 1.8, 4.1};
inline constexpr double kInterpDelay[3] = {0.0, 2.0, 5.0};

} // namespace vsp
