// The pair of power-complementary filters that cut a hop into the vocoder's low band and the high
// band, and the interpolator that brings the low band back to the full rate. All are made of
// all-pass sections in Q14; every delay word holds four times the section's value, input is 8 times
// the sample.
#pragma once

#include "fixed/frame.h"

namespace vsp {

/// Coefficients of the split filter, Q14: branch b is a second-order section (C0, C1) and a
/// first-order section C2, branch a two second-order sections (C3, C4) and (C5, C6).
using SplitCoeffs = int16_t[7];
inline constexpr SplitCoeffs kSplitCoeffsA = {4762, -8578, 1577, 5765, -13835, 3688, -2948};
inline constexpr SplitCoeffs kSplitCoeffsB = {21285, -11995, 7396, 23691, -15204, 17397, -6812};

/// Coefficients of the interpolator, Q14: set A is the first four, set B all six.
inline constexpr int16_t kInterpCoeffs[6] = {-13656, -1551, -21811, -6316, -2582, -10074};

/// Splits one channel of a hop; the low band keeps every `factor`-th sample from the first on.
/// @param low     [ceil(frames / factor)] frames; this channel's sample of each is written
/// @param high    [frames] frames; this channel's sample of each is written
/// @param in      [frames] frames; this channel's sample of each is read
/// @param state   [7] delays of this channel: two of (C0, C1), one of C2, two each of (C3, C4),
/// (C5, C6)
/// @param factor  2 or 4
/// Half the amplitude in each pass band. Wraps rather than saturates.
void splitChannel(Frame* low, Frame* high, const Frame* in, int channel, int32_t* state,
                  const int16_t* coeffs_q14, int frames, int factor);

/// Interpolates one channel of the low band by 2 or 4 and adds twice the high band, saturated.
/// @param out        [outFrames] frames; this channel's sample of each is written
/// @param low        [lowFrames] frames
/// @param high       [outFrames] frames
/// @param state      [4] (factor 2) or [6] (factor 4) delays of this channel
/// @param outFrames  at most lowFrames * factor: what the last low frame gives beyond it is dropped
/// The gain at zero frequency is -2 for factor 2 and +2 for factor 4.
void interpolateBy2(Frame* out, const Frame* low, const Frame* high, int channel, int32_t* state,
                    const int16_t* coeffs_q14, int lowFrames, int outFrames);
void interpolateBy4(Frame* out, const Frame* low, const Frame* high, int channel, int32_t* state,
                    const int16_t* coeffs_q14, int lowFrames, int outFrames);

/// Fades from the second half of the older high-band segment to the first half of the newer one.
/// The weight of the older one is 1024 - 2 n in Q10, however long the hop is. All arrays [frames],
/// at most 512.
void fadeHighBand(Frame* out, const Frame* older, const Frame* newer, int frames);

} // namespace vsp
