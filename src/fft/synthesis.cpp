// Turns each pair of synthesis spectra into the next low-band hop: Hann window once more, fourfold
// overlap-add, both in the frequency domain, and one inverse transform for both channels.

#include <cstdint>

#include "fft/spectra.h"
#include "fixed/cache_line.h"
#include "kernels/sizes.h"

namespace vsp {

void Spectra::Velora_VSP_partIFFT(Frame* out, ComplexInt* specL, ComplexInt* specR)
{
    overlapAdd(0, specL);
    overlapAdd(1, specR);
    Velora_VSP_IFFT_PartSp(out, synthSum[0], synthSum[1]);
}

void Spectra::overlapAdd(int channel, ComplexInt* spec)
{
    synthWinRing[channel].turn();
    kernels.Velora_VSP_PartSp_SynthesisSum(synthSum[channel], synthWinRing[channel].newest(), spec);
}

void Spectra::Velora_VSP_IFFT_PartSp(Frame* out, ComplexInt* sumL, ComplexInt* sumR)
{
    alignas(kLine) int32_t fftRe[kFftN];
    alignas(kLine) int32_t fftIm[kFftN];
    alignas(kLine) int32_t re[kLowHop];
    alignas(kLine) int32_t im[kLowHop];
    kernels.mergeChannels(fftRe, fftIm, sumL, sumR);
    kernels.fftFirstQuarter(re, im, fftRe, fftIm);
    kernels.scaleOutput(out, re, im);
}

} // namespace vsp
