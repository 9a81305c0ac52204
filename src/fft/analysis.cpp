// Turns each low-band hop into the Hann-windowed spectrum of the last 512 frames, per channel.
//
// Only the 128 new frames are transformed, zero-padded and both channels at once; the spectrum of
// the whole frame is the sum of four hops' partial spectra, each turned by i^k for every hop of
// age.

#include "engine/velora_vsp.h"

using namespace vsp;

void Velora_VSP::Velora_VSP_partFFT(const Frame* in)
{
    Velora_VSP_FFT_PartSp(partSpRing[0][4], partSpRing[1][4], in);
    for (int c = 0; c < 2; ++c) {
        kernels.Velora_VSP_PartSp_AnalysisSum(spectrum[c], partSpSum[c], partSpRing[c][0],
                                              partSpRing[c][4]);
        turnRing(partSpRing[c]);
    }
}

void Velora_VSP::Velora_VSP_FFT_PartSp(ComplexInt* outL, ComplexInt* outR, const Frame* in)
{
    kernels.fftOfHop(fftRe, fftIm, in);
    kernels.separateChannels(outL, outR, fftRe, fftIm);
}
