// Phases locked between channels: what was between them stays, for two channels and for more.

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "kernels/kernel_table.h"
#include "kernels/sizes.h"
#include "kernels/turns.h"
#include "support/engine_probe.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;
using signals::Frames;
using signals::raw;

constexpr double kRate = 44100.0;
constexpr size_t kHop = 512;
constexpr size_t kHops = 300;

// A band of noise, 100 Hz to 3 kHz or so: as hard on phases as dense music.
std::vector<double> softNoise(unsigned seed)
{
    std::minstd_rand random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<double> out(kHops * kHop);
    double fast = 0.0;
    double slow = 0.0;
    for (double& sample : out) {
        fast += 0.35 * (value(random) - fast);
        slow += 0.015 * (fast - slow);
        sample = fast - slow;
    }
    return out;
}

// Channels that have `common` in common and something of their own each.
Frames mix(const std::vector<double>& common, unsigned seed)
{
    const std::vector<double> left = softNoise(seed);
    const std::vector<double> right = softNoise(seed + 1);
    Frames out(common.size());
    for (size_t n = 0; n < out.size(); ++n)
        out[n] = {int16_t(20000 * common[n] + 8000 * left[n]),
                  int16_t(12000 * common[n] - 9000 * right[n])};
    return out;
}

double correlation(const Frames& a, size_t channelA, const Frames& b, size_t channelB)
{
    double ab = 0.0;
    double aa = 0.0;
    double bb = 0.0;
    for (size_t n = 20 * kHop; n < std::min(a.size(), b.size()); ++n) {
        const double x = a[n][channelA];
        const double y = b[n][channelB];
        ab += x * y;
        aa += x * x;
        bb += y * y;
    }
    return ab / std::sqrt(aa * bb);
}

void start(Velora_VSP& engine, float speed, uint32_t sound)
{
    Velora_VSP_Conductor::SetSound(&engine, sound);
    engine.Init(int(kRate), Velora_BitDepth_16);
    Velora_VSP_Conductor::SetSpeedNow(&engine, speed);
}

Frames play(const Frames& in, float speed, uint32_t sound)
{
    EngineProbe probe;
    start(*probe.engine, speed, sound);
    Frames out(size_t(double(in.size()) / double(speed)) + 9 * kHop);
    out.resize(size_t(probe.engine->Exe(raw(out), raw(in), int(in.size()))));
    return out;
}

TEST(ChannelLocking, WhatChannelsHaveInCommonStays)
{
    const Frames in = mix(softNoise(1), 2);
    const double before = correlation(in, 0, in, 1);
    for (const float speed : {0.6f, 0.75f, 0.95f, 1.2f, 1.5f, 2.0f, 3.0f}) {
        const Frames locked = play(in, speed, Velora_VSP_Sound_LockedChannels);
        EXPECT_NEAR(correlation(locked, 0, locked, 1), before, 0.08) << speed;
        const Frames own = play(in, speed, Velora_VSP_Sound_Own);
        EXPECT_LT(correlation(own, 0, own, 1), 0.5 * before) << "the sound is no test, " << speed;
    }
}

// Tones at the same pitch whose phases differ between the channels, under slow tremolos that differ,
// too: as an instrument before spaced microphones.
TEST(ChannelLocking, TonesKeepTheirPhaseBetweenTheChannels)
{
    constexpr std::array<double, 5> kHertz = {220.0, 331.0, 505.0, 1013.0, 2750.0};
    Frames in(kHops * kHop);
    for (size_t n = 0; n < in.size(); ++n) {
        const double t = double(n) / kRate;
        double left = 0.0;
        double right = 0.0;
        for (size_t i = 0; i < kHertz.size(); ++i) {
            const double phase = 2.0 * signals::kPi * kHertz[i] * t;
            const double beat = std::sin(2.0 * signals::kPi * (0.9 + 0.3 * double(i)) * t);
            left += (1.0 + 0.6 * beat) * std::sin(phase + 0.3 * beat);
            right += (1.0 - 0.6 * beat) * std::sin(phase + 0.3 * beat + 0.7 * double(i));
        }
        in[n] = {int16_t(3000 * left), int16_t(3000 * right)};
    }
    for (const float speed : {0.6f, 0.75f, 1.5f, 2.5f}) {
        const Frames out = play(in, speed, Velora_VSP_Sound_LockedChannels);
        for (size_t i = 0; i < kHertz.size(); ++i) {
            // The mean over windows of 93 ms of left times the conjugate of right, around the tone.
            std::complex<double> cross = 0.0;
            for (size_t from = 20 * kHop; from + 4096 <= out.size(); from += 2048) {
                std::complex<double> bin[2] = {};
                for (size_t n = 0; n < 4096; ++n) {
                    const double window =
                        0.5 - 0.5 * std::cos(2.0 * signals::kPi * double(n) / 4096.0);
                    const auto turn =
                        std::polar(window, -2.0 * signals::kPi * kHertz[i] * double(n) / kRate);
                    bin[0] += turn * double(out[from + n][0]);
                    bin[1] += turn * double(out[from + n][1]);
                }
                cross += bin[1] * std::conj(bin[0]);
            }
            EXPECT_NEAR(std::remainder(std::arg(cross) - 0.7 * double(i), 2.0 * signals::kPi), 0.0,
                        0.05)
                << kHertz[i] << " Hz at " << speed;
        }
    }
}

TEST(ChannelLocking, AConstantInOneChannelStaysOneBesideTones)
{
    Frames in = mix(softNoise(3), 4);
    for (auto& frame : in)
        frame = {int16_t(frame[0] / 2), int16_t(frame[1] / 2 + 8000)};
    for (const float speed : {0.75f, 1.5f, 2.5f}) {
        const Frames out =
            play(in, speed, Velora_VSP_Sound_LockedChannels | Velora_VSP_Sound_EvenLevel);
        double sum = 0.0;
        for (size_t n = 20 * kHop; n < out.size(); ++n)
            sum += out[n][1];
        EXPECT_NEAR(sum / double(out.size() - 20 * kHop), 8000.0, 400.0) << speed;
    }
}

TEST(ChannelLocking, EqualChannelsComeOutEqual)
{
    Frames in = mix(softNoise(5), 6);
    for (size_t n = 0; n < in.size(); ++n)
        if (n < 50 * kHop || n > 60 * kHop)
            in[n][1] = in[n][0];
    for (const float speed : {0.3f, 0.75f, 1.5f, 8.0f}) {
        const Frames out =
            play(in, speed, Velora_VSP_Sound_LockedChannels | Velora_VSP_Sound_FullBand);
        const size_t first = size_t(45.0 / double(speed)) * kHop;
        const size_t again = size_t(110.0 / double(speed)) * kHop;
        int differing = 0;
        for (size_t n = 0; n < out.size(); ++n) {
            const int difference = std::abs(out[n][0] - out[n][1]);
            if (n < first || n > again) {
                ASSERT_EQ(difference, 0) << "frame " << n << " at " << speed;
            }
            differing += difference > 1000 ? 1 : 0;
        }
        EXPECT_GT(differing, 100) << "what differs is still heard, at " << speed;
    }
}

TEST(ChannelLocking, SeveralEnginesKeepWhatTheyHaveInCommon)
{
    const std::vector<double> common = softNoise(7);
    const std::array<Frames, 3> in = {mix(common, 8), mix(common, 10), mix(common, 12)};
    const double before = correlation(in[0], 0, in[2], 1);
    for (const float speed : {0.75f, 1.5f}) {
        std::array<EngineProbe, 3> probes;
        std::array<Velora_VSP_Interface*, 3> engines{};
        std::array<Frames, 3> out;
        for (size_t i = 0; i < 3; ++i) {
            engines[i] = probes[i].engine.get();
            start(*probes[i].engine, speed, Velora_VSP_Sound_LockedChannels);
        }
        for (size_t from = 0; from < in[0].size(); from += kHop) {
            for (size_t i = 0; i < 3; ++i)
                Velora_VSP_Conductor::TakeHop(engines[i], raw(in[i], from));
            Velora_VSP_Conductor::ShareOnsets(engines.data(), 3);
            while (probes[0].engine->hasFrame()) {
                for (auto* engine : engines)
                    Velora_VSP_Conductor::GiveStage(engine, 0, nullptr);
                Velora_VSP_Conductor::ShareTurns(engines.data(), 3);
                for (size_t i = 0; i < 3; ++i) {
                    out[i].resize(out[i].size() + kHop);
                    for (int stage = 1; stage < Velora_VSP_Conductor::kGiveStages; ++stage)
                        Velora_VSP_Conductor::GiveStage(engines[i], stage,
                                                        raw(out[i], out[i].size() - kHop));
                }
            }
        }
        EXPECT_NEAR(correlation(out[0], 0, out[2], 1), before, 0.06) << speed;
        EXPECT_NEAR(correlation(out[1], 1, out[2], 0), before, 0.06) << speed;
    }
}

// ---- The kernels against doubles ----

std::complex<double> of(ComplexShort p)
{
    return {p.re / 16384.0, p.im / 16384.0};
}
ComplexShort phasor(double angle)
{
    return {int16_t(std::lround(16384 * std::cos(angle))),
            int16_t(std::lround(16384 * std::sin(angle)))};
}

struct Row {
    ComplexShort S[kBins];
    ComplexShort A[kBins];
    int32_t M[kBins];
};

void fill(Row& row, std::minstd_rand& random)
{
    std::uniform_real_distribution<double> angle(-signals::kPi, signals::kPi);
    std::uniform_real_distribution<double> octave(0.0, 22.5);
    for (int k = 0; k < kBins; ++k) {
        row.S[k] = phasor(angle(random));
        row.A[k] = phasor(angle(random));
        row.M[k] = int32_t(std::exp2(octave(random)));
    }
}

TEST(ChannelLocking, TurnsAreTheWeightedMeanOfTheirNeighbourhood)
{
    std::minstd_rand random(16);
    Row rows[2];
    for (Row& row : rows)
        fill(row, random);
    ComplexInt padded[kBins + 2 * kTurnReach] = {};
    ComplexInt* const sum = padded + kTurnReach;
    kPortableKernels.sumTurns(sum, {rows[0].M, rows[1].M}, {rows[0].S, rows[1].S},
                              {rows[0].A, rows[1].A});
    std::complex<double> expected[kBins + 2 * kTurnReach] = {};
    for (int k = 0; k < kLastBin; ++k) {
        std::complex<double>& turn = expected[k + kTurnReach];
        double loud = 0.0;
        for (const Row& row : rows) {
            turn += double(row.M[k]) * of(row.S[k]) * std::conj(of(row.A[k]));
            loud += row.M[k];
        }
        const std::complex<double> found{double(sum[k].re), double(sum[k].im)};
        EXPECT_LT(std::abs(found - turn), 3.0 + 2e-4 * loud) << k;
    }

    ComplexShort turns[kBins];
    kPortableKernels.commonTurns(turns, sum);
    for (int k = 2; k < kLastBin; ++k) {
        const std::complex<double>* const here = expected + k + kTurnReach;
        const std::complex<double> mean =
            here[0] + (here[-1] + here[1]) / 2.0 + (here[-2] + here[2]) / 32.0;
        EXPECT_NEAR(std::abs(of(turns[k])), 1.0, 0.005) << k;
        if (std::abs(mean) > 20000) {
            EXPECT_NEAR(std::arg(of(turns[k]) * std::conj(mean)), 0.0, 0.002) << k;
        }
    }
}

TEST(ChannelLocking, BothFramesOfATurnKeepTheirMagnitudesAndOffsets)
{
    std::minstd_rand random(17);
    Row row;
    fill(row, random);
    Row next;
    fill(next, random);
    ComplexShort turns[kBins];
    std::copy(std::begin(next.S), std::end(next.S), turns);
    ComplexInt X[kBins];
    kPortableKernels.applyTurns(X, row.S, turns, row.M, row.A, next.A, kBins);
    for (int k = 0; k < kBins; ++k) {
        const std::complex<double> x{double(X[k].re), double(X[k].im)};
        EXPECT_LT(std::abs(x - double(row.M[k]) * of(turns[k]) * of(row.A[k])),
                  2.0 + 2e-4 * row.M[k])
            << k;
        EXPECT_LT(std::abs(of(row.S[k]) - of(turns[k]) * of(next.A[k])), 2e-4) << k;
    }
}

TEST(ChannelLocking, AConstantAndSilenceKeepTheirPhase)
{
    ComplexInt padded[kBins + 2 * kTurnReach] = {};
    ComplexInt* const sum = padded + kTurnReach;
    ComplexShort turns[kBins];
    for (const bool constant : {false, true}) {
        sum[0] = {0, constant ? 90000 : 70000};
        sum[1] = {-80000, 0};
        kPortableKernels.commonTurns(turns, sum);
        EXPECT_EQ(turns[0].re, kOneQ14);
        EXPECT_EQ(turns[1].re == kOneQ14 && turns[1].im == 0, constant);
        EXPECT_EQ(turns[100].re, kOneQ14);
        EXPECT_EQ(turns[100].im, 0);
    }
}

} // namespace
