// Synthesis in the frequency domain: window and overlap-add as sums of spectra, one transform for
// both channels.
#pragma once

#include "fixed/complex.h"

namespace vsp {

/// Windows a synthesis spectrum and adds it to one channel's overlap-add sum. All arrays [kBins].
/// @param sum   i^k * sum + windowed - slot: its inverse transform begins with the finished hop
/// @param slot  windowed spectrum of the frame four hops ago; replaced by that of `spec`
/// @param spec  synthesis spectrum
void Velora_VSP_PartSp_SynthesisSum(ComplexInt* sum, ComplexInt* slot, const ComplexInt* spec);

/// conj(left + i right) over all kFftN bins, from the halves of two Hermitian spectra [kBins]. The
/// imaginary parts of bins 0 and 256 are ignored.
void mergeChannels(int32_t* re, int32_t* im, const ComplexInt* left, const ComplexInt* right);

} // namespace vsp
