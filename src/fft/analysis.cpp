// Turns each low-band hop into the Hann-windowed spectrum of the last four, per channel.
//
// Only the new frames are transformed, zero-padded and both channels at once; the spectrum of the
// whole frame is the sum of four hops' partial spectra, each turned by i^k for every hop of age.

#include "fft/spectra.h"

namespace vsp {

void Spectra::Velora_VSP_partFFT(SpectrumRow (&spectrum)[2], const Frame* in)
{
    Velora_VSP_FFT_PartSp(spectrum[0], spectrum[1], in);
    addHop(spectrum);
}

void Spectra::addHop(SpectrumRow (&spectrum)[2])
{
    for (int c = 0; c < 2; ++c)
        kernels.Velora_VSP_PartSp_AnalysisSum(spectrum[c], partSpSum[c], partSpRing(0)[c],
                                              spectrum[c]);
    partSpPlace.turn();
}

void Spectra::Velora_VSP_FFT_PartSp(ComplexInt* outL, ComplexInt* outR, const Frame* in)
{
    alignas(kLine) int32_t fftRe[kFftN];
    alignas(kLine) int32_t fftIm[kFftN];
    kernels.fftOfHop(fftRe, fftIm, in);
    kernels.separateChannels(outL, outR, fftRe, fftIm);
}

} // namespace vsp
