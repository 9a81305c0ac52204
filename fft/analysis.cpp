// Turns each low-band hop into the Hann-windowed spectrum of the last 512 frames, per channel.
//
// Only the 128 new frames are transformed, zero-padded and both channels at once; the spectrum of
// the whole frame is the sum of four hops' partial spectra, each turned by i^k for every hop of
// age.

#include "fft/analysis.h"

#include <algorithm>

#include "engine/velora_vsp.h"

namespace vsp {
namespace {

VSP_INLINE int32_t windowTaps(int32_t below, int32_t x, int32_t above)
{
    return fx::wrapSub(fx::wrapSub(x, below >> 1), above >> 1) >> 1;
}

} // namespace

void separateChannels(ComplexInt* left, ComplexInt* right, const int32_t* re, const int32_t* im)
{
    for (int k : {0, kFftN / 2}) {
        left[k] = {re[k], 0};
        right[k] = {im[k], 0};
    }
    for (int k = 1; k < kFftN / 2; ++k) {
        const int mirror = kFftN - k;
        left[k] = {fx::wrapAdd(re[k], re[mirror]) >> 1, fx::wrapSub(im[k], im[mirror]) >> 1};
        right[k] = {fx::wrapAdd(im[k], im[mirror]) >> 1, fx::wrapSub(re[mirror], re[k]) >> 1};
    }
}

void hannWindow(ComplexInt* out, const ComplexInt* X)
{
    constexpr int kLast = kBins - 1;
    out[0] = {fx::wrapSub(X[0].re, X[1].re) >> 1, X[0].im >> 1};
    for (int k = 1; k < kLast; ++k)
        out[k] = {windowTaps(X[k - 1].re, X[k].re, X[k + 1].re),
                  windowTaps(X[k - 1].im, X[k].im, X[k + 1].im)};
    out[kLast] = {fx::wrapSub(X[kLast].re, X[kLast - 1].re) >> 1, X[kLast].im >> 1};
}

void Velora_VSP_PartSp_AnalysisSum(ComplexInt* out, ComplexInt* sum, const ComplexInt* oldest,
                                   const ComplexInt* newest)
{
    for (int k = 0; k < kBins; ++k) {
        const ComplexInt t = {fx::wrapAdd(fx::wrapSub(sum[k].re, oldest[k].re), newest[k].re),
                              fx::wrapAdd(fx::wrapSub(sum[k].im, oldest[k].im), newest[k].im)};
        sum[k] = turnQuarters(t, k % 4);
    }
    hannWindow(out, sum);
}

} // namespace vsp

using namespace vsp;

void Velora_VSP::Velora_VSP_partFFT(const Frame* in)
{
    Velora_VSP_FFT_PartSp(partSpRing[0][4], partSpRing[1][4], in);
    for (int c = 0; c < 2; ++c)
        Velora_VSP_PartSp_AnalysisSum(spectrum[c], partSpSum[c], partSpRing[c][0],
                                      partSpRing[c][4]);
    for (int c = 0; c < 2; ++c)
        turnRing(partSpRing[c]);
}

void Velora_VSP::Velora_VSP_FFT_PartSp(ComplexInt* outL, ComplexInt* outR, const Frame* in)
{
    for (int n = 0; n < kLowHop; ++n) {
        fftRe[n] = in[n][0];
        fftIm[n] = in[n][1];
    }
    std::fill(fftRe + kLowHop, fftRe + kFftN, 0);
    std::fill(fftIm + kLowHop, fftIm + kFftN, 0);
    fftForward(fftRe, fftIm, kFftLog2N);
    separateChannels(outL, outR, fftRe, fftIm);
}
