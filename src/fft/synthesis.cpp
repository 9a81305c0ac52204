// Turns each pair of synthesis spectra into the next 128 low-band frames: Hann window once more,
// overlap-add at a hop of 128, both in the frequency domain, and one inverse transform for both
// channels.

#include "engine/velora_vsp.h"

using namespace vsp;

void Velora_VSP::Velora_VSP_partIFFT(Frame* out, ComplexInt* specL, ComplexInt* specR)
{
    for (int c = 0; c < 2; ++c)
        turnRing(synthWinRing[c]);
    kernels.Velora_VSP_PartSp_SynthesisSum(synthSum[0], synthWinRing[0][3], specL);
    kernels.Velora_VSP_PartSp_SynthesisSum(synthSum[1], synthWinRing[1][3], specR);
    Velora_VSP_IFFT_PartSp(out, synthSum[0], synthSum[1]);
}

void Velora_VSP::Velora_VSP_IFFT_PartSp(Frame* out, ComplexInt* sumL, ComplexInt* sumR)
{
    alignas(kLine) int32_t re[kLowHop];
    alignas(kLine) int32_t im[kLowHop];
    kernels.mergeChannels(fftRe, fftIm, sumL, sumR);
    kernels.fftFirstQuarter(re, im, fftRe, fftIm);
    kernels.scaleOutput(out, re, im);
}
