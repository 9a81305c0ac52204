// Analysis in the frequency domain: partial spectra of hops, summed to the spectrum of four hops,
// windowed by a three-tap convolution.
#pragma once

#include "fixed/complex.h"

namespace vsp {

/// Low-band frames of a hop.
inline constexpr int kLowHop = 128;

/// Separates the transform of left + i right into the two channels' spectra.
/// @param left, right  [kBins]
/// @param re, im       [kFftN] the transform
void separateChannels(ComplexInt* left, ComplexInt* right, const int32_t* re, const int32_t* im);

/// The spectrum under a periodic Hann window: X[k] / 2 - X[k - 1] / 4 - X[k + 1] / 4, halved in
/// steps that truncate. Bins outside 0..256 are the conjugates of their mirror images. Both
/// [kBins], not the same array.
void hannWindow(ComplexInt* out, const ComplexInt* X);

/// Moves one channel's sum of partial spectra on by a hop and windows it. All arrays [kBins].
/// @param out     spectrum of the last four hops under a Hann window, in units of 16-bit samples
/// @param sum     i^k * (sum - oldest + newest): the unwindowed spectrum of the last four hops
/// @param oldest  partial spectrum of the hop that leaves
/// @param newest  partial spectrum of the hop that enters
void Velora_VSP_PartSp_AnalysisSum(ComplexInt* out, ComplexInt* sum, const ComplexInt* oldest,
                                   const ComplexInt* newest);

} // namespace vsp
