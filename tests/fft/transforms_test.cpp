// Analysis, magnitudes and phasors, synthesis: on an engine object, without the vocoder between.

#include <cmath>
#include <complex>
#include <cstdint>
#include <random>

#include "kernels/inverse_magnitude.h"
#include "support/engine_probe.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;
using signals::Frames;
using signals::raw;

class Transforms : public testing::Test {
protected:
    void analyse(const Frames& in)
    {
        for (size_t n = 0; n < in.size(); n += kLowHop)
            probe.engine->Velora_VSP_partFFT(probe.spectrum(), raw(in, n));
    }
    EngineProbe probe;
};

// The last 512 frames under a periodic Hann window, transformed in double precision.
std::complex<double> windowedBin(const Frames& in, size_t channel, int k)
{
    std::complex<double> sum = 0;
    for (int n = 0; n < 512; ++n) {
        const double window = 0.5 - 0.5 * std::cos(2.0 * signals::kPi * n / 512.0);
        sum += window * double(in[in.size() - 512 + size_t(n)][channel]) *
               std::polar(1.0, -2.0 * signals::kPi * double(n * k % 512) / 512.0);
    }
    return sum;
}

TEST_F(Transforms, AnalysisIsTheSpectrumUnderAHannWindow)
{
    const Frames in = signals::noise(7 * kLowHop, 32767, 1);
    analyse(in);
    for (size_t c = 0; c < 2; ++c)
        for (int k = 0; k < kBins; ++k) {
            const ComplexInt bin = probe.spectrum()[c][k];
            const std::complex<double> difference =
                std::complex<double>(bin.re, bin.im) - windowedBin(in, c, k);
            EXPECT_LT(std::abs(difference), 16.0) << "channel " << c << " bin " << k;
        }
}

TEST_F(Transforms, SynthesisReturnsTheAnalysedSignal384FramesLater)
{
    const Frames in = signals::noise(20 * kLowHop, 20000, 2);
    Frames out(in.size());
    for (size_t n = 0; n < in.size(); n += kLowHop) {
        probe.engine->Velora_VSP_partFFT(probe.spectrum(), raw(in, n));
        probe.engine->Velora_VSP_partIFFT(raw(out, n), probe.spectrum()[0], probe.spectrum()[1]);
    }
    for (size_t n = 384 + 3 * kLowHop; n < in.size(); ++n)
        for (size_t c = 0; c < 2; ++c)
            EXPECT_NEAR(out[n][c], in[n - 384][c], 2) << "frame " << n;
}

TEST_F(Transforms, SynthesisSaturatesAndIgnoresImaginaryDcAndNyquist)
{
    ComplexInt loud[kBins] = {};
    loud[0] = {1 << 24, 12345};
    loud[256] = {0, -54321};
    Frames out(kLowHop);
    for (int call = 0; call < 4; ++call)
        probe.engine->Velora_VSP_partIFFT(raw(out), loud, loud);
    EXPECT_EQ(out, signals::constant(kLowHop, 32767, 32767));
}

TEST(MagnitudePhase, PhasorsHaveUnitLengthAndTheBinsDirection)
{
    ComplexInt spec[kBins];
    std::minstd_rand random(3);
    for (ComplexInt& bin : spec) {
        const int bits = 8 + int(random() % 15);
        bin = {int32_t(random() % (2u << bits)) - (1 << bits),
               int32_t(random() % (2u << bits)) - (1 << bits)};
    }
    spec[0] = {-131071, -131071}; // both components normalise to -32768
    int32_t mag[kBins];
    ComplexShort phasor[kBins];
    kPortableKernels.Velora_VSP_MagPhase_Bins(mag, phasor, spec);
    for (int k = 0; k < kBins; ++k) {
        const std::complex<double> bin(spec[k].re, spec[k].im);
        const std::complex<double> unit(phasor[k].re / 16384.0, phasor[k].im / 16384.0);
        EXPECT_GT(std::abs(unit), 0.949) << k;
        EXPECT_LT(std::abs(unit), 1.030) << k;
        EXPECT_LT(std::abs(std::arg(unit / bin)), 0.01) << k;
        EXPECT_NEAR(mag[k] / std::abs(bin), 1.02, 0.05) << k;
    }
}

TEST(MagnitudePhase, CountsLeadingZerosOfZeroAs31)
{
    EXPECT_EQ(Velora_VSP_CountLeadingZeros(0), 31);
    EXPECT_EQ(Velora_VSP_CountLeadingZeros(1), 31);
    EXPECT_EQ(Velora_VSP_CountLeadingZeros(1 << 30), 1);
    EXPECT_EQ(Velora_VSP_CountLeadingZeros(-1), 0);
}

} // namespace
