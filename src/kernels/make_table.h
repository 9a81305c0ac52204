// Instantiates every loop for one instruction set: V for loops over samples and bins, V4 for those
// over time in recursive filters.
#pragma once

#include "kernels/biquad_loops.h"
#include "kernels/fft_loops.h"
#include "kernels/filter_loops.h"
#include "kernels/format_loops.h"
#include "kernels/half_band_loops.h"
#include "kernels/kernel_table.h"
#include "kernels/peak_loops.h"
#include "kernels/spectrum_loops.h"
#include "kernels/turn_loops.h"

namespace vsp::VSP_KERNEL_SET {

template <class V, class V4>
constexpr KernelTable makeTable(const char* name)
{
    KernelTable table{};
    table.name = name;
    table.fft512 = fft512<V>;
    table.fftOfHop = fftOfHop<V>;
    table.fftFirstQuarter = fftFirstQuarter<V>;
    table.separateChannels = separateChannels<V>;
    table.mergeChannels = mergeChannels<V>;
    table.Velora_VSP_PartSp_AnalysisSum = Velora_VSP_PartSp_AnalysisSum<V>;
    table.Velora_VSP_PartSp_SynthesisSum = Velora_VSP_PartSp_SynthesisSum<V>;
    table.Velora_VSP_MagPhase_Bins = Velora_VSP_MagPhase_Bins<V>;
    table.exactMagPhase = exactMagPhase<V>;
    table.scaleOutput = scaleOutput<V>;
    table.interpMagApplyPhase = interpMagApplyPhase<V>;
    table.applyPhase = applyPhase<V>;
    table.scaleSpectrum = scaleSpectrum<V>;
    table.phasorStep = phasorStep<V>;
    table.phasorAdvance = phasorAdvance<V>;
    table.bandCentres = bandCentres<V, V4>;
    table.findPeaks = findPeaks<V>;
    table.lockPeaks = lockPeaks<V>;
    table.sumTurns = sumTurns<V>;
    table.commonTurns = commonTurns<V>;
    table.applyTurns = applyTurns<V>;
    table.split = split<V4>;
    table.interpolateBy2 = interpolateBy2<V4>;
    table.interpolateBy4 = interpolateBy4<V4>;
    table.fadeHighBand = fadeHighBand<V>;
    table.mixHighBand = mixHighBand<V>;
    table.product = product<V>;
    table.halveRate = halveRate<V4>;
    table.doubleRate = doubleRate<V4>;
    table.toQ4 = toQ4<V>;
    table.fromQ4 = fromQ4<V>;
    table.lowPassTwice = lowPassTwice<V4>;
    table.from24Bit = from32<8>;
    table.from32Bit = from32<16>;
    table.fromFloat = fromFloat<V>;
    table.to24Bit = to32<8>;
    table.to32Bit = to32<16>;
    table.toFloat = toFloat;
    table.q4From24Bit = from32<8>;
    table.q4From32Bit = from32<16>;
    table.q4FromFloat = q4FromFloat<V>;
    table.q4To24Bit = to32<8>;
    table.q4To32Bit = to32<16>;
    table.q4ToFloat = toFloat;
    return table;
}

} // namespace vsp::VSP_KERNEL_SET
