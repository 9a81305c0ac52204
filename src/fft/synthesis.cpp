// Turns each pair of synthesis spectra into the next low-band hop: Hann window once more, fourfold
// overlap-add, both in the frequency domain, and one inverse transform for both channels.

#include <cstdint>

#include "fft/spectra.h"
#include "fixed/cache_line.h"
#include "kernels/sizes.h"

namespace vsp {

void Spectra::Velora_VSP_partIFFT(Frame* out, const ComplexInt* specL, const ComplexInt* specR)
{
    overlapAdd(specL, specR);
    Velora_VSP_IFFT_PartSp(out, synthSum[0], synthSum[1]);
}

void Spectra::overlapAdd(const ComplexInt* specL, const ComplexInt* specR)
{
    synthesisPlace.turn();
    const ComplexInt* const spectra[] = {specL, specR};
    for (int c = 0; c < 2; ++c)
        kernels.Velora_VSP_PartSp_SynthesisSum(synthSum[c], synthWinRing(kOverlap - 1)[c],
                                               spectra[c]);
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
