// Stages of the vocoder: band split, onsets, peaks, the decisions of the frame pipeline.

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "support/engine_probe.h"
#include "support/signals.h"
#include "vocoder/frame_pipeline.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;
using signals::Frames;
using signals::raw;

class BandSplit : public testing::TestWithParam<int> {
protected:
    void SetUp() override { probe.engine->Velora_VSP_Init_Apply(GetParam()); }
    int factor() const { return GetParam() == 8000 ? 1 : GetParam() == 22050 ? 2 : 4; }
    int hop() const { return kLowHop * factor(); }
    EngineProbe probe;
};

TEST_P(BandSplit, SendsAConstantToTheLowBandAtHalfItsAmplitude)
{
    const Frames in = signals::constant(size_t(hop()), 10000, -3000);
    for (int n = 0; n < 8; ++n)
        probe.engine->Velora_VSP_LPHP_separate(raw(in), hop());
    const int divisor = factor() == 1 ? 1 : 2;
    EXPECT_NEAR(probe.lowBandFrame()[kLowHop - 1][0], 10000 / divisor, 1);
    EXPECT_NEAR(probe.lowBandFrame()[kLowHop - 1][1], -3000 / divisor, 1);
    EXPECT_NEAR(probe.highBand()[hop() - 1][0], 0, 1);
}

TEST_P(BandSplit, InterpolatesWithTheKnownGainAndPolarity)
{
    const int gain = factor() == 1 ? 1 : factor() == 2 ? -2 : 2;
    Frames out = signals::silence(size_t(hop()));
    std::fill(&probe.hpOut()[0][0], &probe.hpOut()[kMaxHop][0], int16_t(0));
    for (int call = 0; call < 4; ++call) {
        std::fill(&probe.lowBandFrame()[0][0], &probe.lowBandFrame()[kLowHop][0], int16_t(1000));
        probe.engine->Velora_VSP_LP_interpolate(raw(out), probe.hpOut(), kLowHop, hop());
    }
    EXPECT_NEAR(out.back()[0], gain * 1000, 2);
    EXPECT_NEAR(out.back()[1], gain * 1000, 2);
}

TEST_P(BandSplit, InterpolatorWritesNothingBeyondItsFrames)
{
    for (int frames = 1; frames <= hop(); frames += 1 + frames / 3) {
        Frames out = signals::constant(size_t(hop()) + 8, 77, 77);
        probe.engine->Velora_VSP_LP_interpolate(raw(out), probe.hpOut(), frames / factor(), frames);
        for (size_t n = size_t(frames); n < out.size(); ++n)
            ASSERT_EQ(out[n][0], 77) << "frames " << frames << ", at " << n;
    }
}

INSTANTIATE_TEST_SUITE_P(Factors, BandSplit, testing::Values(8000, 22050, 44100));

TEST(Onsets, ClickRaisesEveryIdleBandOneHopAfterTheDecision)
{
    EngineProbe probe;
    probe.engine->Velora_VSP_Init_Apply(8000);
    Frames in = signals::noise(40 * kLowHop, 20, 5);
    for (size_t n = 20 * kLowHop + 100; n < 20 * kLowHop + 128; ++n)
        in[n] = {30000, -20000};
    Frames out(8 * kLowHop);
    bool decidedBefore = false;
    int onsets = 0;
    for (size_t hop = 0; hop < 40; ++hop) {
        const bool idle = probe.bandStatus()[0] == 0;
        probe.engine->Velora_VSP_frame(raw(out), raw(in, hop * kLowHop), kLowHop, 0);
        if (idle && decidedBefore) {
            ++onsets;
            for (int b = 0; b < kBands; ++b) {
                EXPECT_EQ(probe.bandStatus()[b], 7) << "8, counted down once at the hop's end";
                EXPECT_EQ(probe.bandRingIndex()[b], 6);
            }
        }
        decidedBefore = probe.transientDecision();
    }
    EXPECT_GE(onsets, 1);
}

TEST(Onsets, SilenceDecidesNothingAndSettlesTheThreshold)
{
    EngineProbe probe;
    const Frames in = signals::silence(kLowHop);
    for (int hop = 0; hop < 5; ++hop) {
        probe.engine->Velora_VSP_partFFT(probe.spectrum(), raw(in));
        probe.engine->Velora_VSP_computeCOG(probe.spectrum());
        probe.engine->Velora_VSP_TransientProbability();
        EXPECT_FALSE(probe.transientDecision());
        EXPECT_FLOAT_EQ(probe.transientThreshold(), 320.0f / 3520.0f);
    }
}

TEST(Onsets, ThresholdFollowsTheConfidenceBounds)
{
    EngineProbe probe;
    std::fill(probe.bandCog(), probe.bandCog() + kBands, 0.0801f);
    probe.engine->Velora_VSP_TransientProbability();
    EXPECT_TRUE(probe.transientDecision());
    EXPECT_FLOAT_EQ(probe.transientThreshold(), 0.7f * (200.0f / 280.0f));
    std::fill(probe.bandCog(), probe.bandCog() + kBands, 0.08f); // not late
    probe.engine->Velora_VSP_TransientProbability();
    EXPECT_FALSE(probe.transientDecision());
    EXPECT_FLOAT_EQ(probe.transientThreshold(), 0.99f * 0.7f * (200.0f / 280.0f));
}

TEST(FramePipeline, ChoosesTheBandPathByCountdownAndHold)
{
    for (int hold = -1; hold <= 6; ++hold) {
        for (int status : {-1, 0, 8, 9})
            EXPECT_EQ(bandPath(status, hold), BandPath::normal);
        EXPECT_EQ(bandPath(7, hold), BandPath::hold);
        EXPECT_EQ(bandPath(6, hold), BandPath::hold);
        EXPECT_EQ(bandPath(1, hold), BandPath::frozen);
        for (int status = 2; status <= 5; ++status)
            EXPECT_EQ(bandPath(status, hold), hold == 4               ? BandPath::reset
                                              : hold >= 1 && hold < 4 ? BandPath::normal
                                                                      : BandPath::frozen);
    }
}

TEST(FramePipeline, PeakDensityGainPeaksAtDoubleSpeed)
{
    EXPECT_EQ(peakDensityGain(5, 2.0f), 1.0f);
    EXPECT_EQ(peakDensityGain(0, 2.0f), 1.0f);
    EXPECT_EQ(int32_t(peakDensityGain(15, 2.0f) * 16384.0f), 22937);
    EXPECT_EQ(peakDensityGain(85, 2.0f), peakDensityGain(15, 2.0f));
    EXPECT_NEAR(peakDensityGain(10, 1.5f), 1.0 + 0.2 * std::sqrt(0.5), 1e-6);
    EXPECT_NEAR(peakDensityGain(15, 4.0f), 0.6, 1e-6);
}

class PeakLocking : public testing::Test {
protected:
    int find() { return kPortableKernels.findPeaks(peaks, &listed, mag, status, bandTable); }

    int32_t mag[kBins] = {};
    int8_t status[kBands] = {};
    int16_t peaks[kPeakRoom] = {};
    int listed = -1;
};

TEST_F(PeakLocking, FindsStrictPeaksAndListsThoseInIdleBands)
{
    mag[2] = 500;
    mag[10] = mag[11] = 900; // a plateau is no peak
    mag[50] = 100;           // not above the floor
    mag[120] = 101;
    mag[254] = 700;
    status[9] = 3; // bin 254's band counts down
    EXPECT_EQ(find(), 3);
    EXPECT_EQ(listed, 2);
    EXPECT_EQ(peaks[0], 2);
    EXPECT_EQ(peaks[1], 120);
}

TEST_F(PeakLocking, DensestSpectrumFitsTheList)
{
    for (int k = 2; k < 255; k += 3)
        mag[k] = 1000;
    EXPECT_EQ(find(), kMaxPeaks);
    EXPECT_EQ(listed, kMaxPeaks);
}

// Each peak has a phasor of its own length, which its region takes over.
TEST_F(PeakLocking, RegionsEndAtTheFirstBinsAndWhereCloseNeighboursBegin)
{
    const int16_t at[] = {3, 10, 13, 20, 24, 254};
    const int16_t regions[][2] = {{2, 5}, {8, 11}, {11, 15}, {18, 22}, {22, 26}, {252, 256}};
    ComplexInt X[kBins] = {};
    ComplexShort S[kBins] = {};
    ComplexShort A[kBins] = {};
    int expected[kBins] = {};
    for (int k = 0; k < kBins; ++k) {
        X[k] = {1000, 1000};
        A[k] = {16384, 0};
    }
    for (int i = 0; i < 6; ++i) {
        S[at[i]] = {int16_t(1000 * (i + 1)), 0};
        for (int k = regions[i][0]; k <= regions[i][1]; ++k)
            expected[k] = i + 1;
    }
    kPortableKernels.lockPeaks(X, S, A, at, 6);
    for (int k = 0; k < kBins; ++k)
        EXPECT_EQ(S[k].re, 1000 * expected[k]) << k;
    // A turn measures the modulus of these bins 3 % low: only the one midway is turned twice.
    EXPECT_EQ(X[12].re, X[14].re);
    EXPECT_LT(X[22].re, X[14].re);
}

// Neighbours keep their magnitude and take the peak's synthesis phase plus their analysis offset.
TEST_F(PeakLocking, NeighboursFollowTheirPeak)
{
    const auto phasor = [](double angle) {
        return ComplexShort{int16_t(std::lround(16384 * std::cos(angle))),
                            int16_t(std::lround(16384 * std::sin(angle)))};
    };
    ComplexInt X[kBins] = {};
    ComplexShort S[kBins] = {};
    ComplexShort A[kBins] = {};
    for (int k = 98; k <= 102; ++k) {
        X[k] = {int32_t(100000 * std::cos(0.1 * k)), int32_t(100000 * std::sin(0.1 * k))};
        S[k] = phasor(0.7 * k);
        A[k] = phasor(2.5 * (k - 100));
    }
    const ComplexInt peak = X[100];
    const int16_t at = 100;
    kPortableKernels.lockPeaks(X, S, A, &at, 1);
    EXPECT_EQ(X[100].re, peak.re);
    for (int k = 98; k <= 102; ++k) {
        const double offset = 2.5 * (k - 100);
        const double spectrumError =
            std::remainder(std::atan2(X[k].im, X[k].re) - 0.1 * 100 - offset, 2 * signals::kPi);
        const double phasorError =
            std::remainder(std::atan2(S[k].im, S[k].re) - 0.7 * 100 - offset, 2 * signals::kPi);
        EXPECT_NEAR(spectrumError, 0, 0.002) << k;
        EXPECT_NEAR(phasorError, 0, 0.002) << k;
        EXPECT_NEAR(std::hypot(X[k].re, X[k].im), 100000, 10000) << k;
    }
}

} // namespace
