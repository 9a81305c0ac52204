// Turns each pair of synthesis spectra into the next 128 low-band frames: Hann window once more,
// overlap-add at a hop of 128, both in the frequency domain, and one inverse transform for both
// channels.

#include "fft/synthesis.h"

#include "engine/velora_vsp.h"

namespace vsp {
namespace {

// 1 / 768 as a shift by 8 and a factor of 1/3 in Q16: 512 for the unscaled transform, 1.5 for the
// two windows at fourfold overlap. Truncates twice.
VSP_INLINE int16_t outputSample(int32_t x)
{
    constexpr int32_t kThirdQ16 = 0x5555;
    return fx::sat16((int64_t(x >> 8) * kThirdQ16) >> 16);
}

} // namespace

void Velora_VSP_PartSp_SynthesisSum(ComplexInt* sum, ComplexInt* slot, const ComplexInt* spec)
{
    ComplexInt windowed[kBins];
    hannWindow(windowed, spec);
    for (int k = 0; k < kBins; ++k) {
        const ComplexInt turned = turnQuarters(sum[k], k % 4);
        sum[k] = {fx::wrapSub(fx::wrapAdd(turned.re, windowed[k].re), slot[k].re),
                  fx::wrapSub(fx::wrapAdd(turned.im, windowed[k].im), slot[k].im)};
        slot[k] = windowed[k];
    }
}

void mergeChannels(int32_t* re, int32_t* im, const ComplexInt* left, const ComplexInt* right)
{
    for (int k : {0, kFftN / 2}) {
        re[k] = left[k].re;
        im[k] = fx::wrapNeg(right[k].re);
    }
    for (int k = 1; k < kFftN / 2; ++k) {
        const ComplexInt L = left[k];
        const ComplexInt R = right[k];
        re[k] = fx::wrapSub(L.re, R.im);
        im[k] = fx::wrapNeg(fx::wrapAdd(L.im, R.re));
        re[kFftN - k] = fx::wrapAdd(L.re, R.im);
        im[kFftN - k] = fx::wrapSub(L.im, R.re);
    }
}

} // namespace vsp

using namespace vsp;

void Velora_VSP::Velora_VSP_partIFFT(Frame* out, ComplexInt* specL, ComplexInt* specR)
{
    for (int c = 0; c < 2; ++c)
        turnRing(synthWinRing[c]);
    Velora_VSP_PartSp_SynthesisSum(synthSum[0], synthWinRing[0][3], specL);
    Velora_VSP_PartSp_SynthesisSum(synthSum[1], synthWinRing[1][3], specR);
    Velora_VSP_IFFT_PartSp(out, synthSum[0], synthSum[1]);
}

void Velora_VSP::Velora_VSP_IFFT_PartSp(Frame* out, ComplexInt* sumL, ComplexInt* sumR)
{
    mergeChannels(fftRe, fftIm, sumL, sumR);
    fftForward(fftRe, fftIm, kFftLog2N);
    for (int n = 0; n < kLowHop; ++n) {
        out[n][0] = outputSample(fftRe[n]);
        out[n][1] = outputSample(fx::wrapNeg(fftIm[n]));
    }
}
