// What an engine does beyond its own sound: full band, even level, short hop.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include <velora/vsp.h>

#include "support/owners.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using signals::Frames;
using signals::raw;

constexpr uint32_t kAll =
    Velora_VSP_Sound_FullBand | Velora_VSP_Sound_EvenLevel | Velora_VSP_Sound_ShortHop;

// The closest speed to 1.0 that goes through the vocoder.
const float kNearOne = std::nextafter(1.0f, 2.0f);

// All that an engine gives for a signal at one speed.
Frames play(const Frames& in, int rate, float speed, uint32_t sound)
{
    const EngineOwner engine(Velora_VSP_Factory::Create());
    Velora_VSP_Conductor::SetSound(engine.get(), sound);
    engine->Init(rate, Velora_BitDepth_16);
    Velora_VSP_Conductor::SetSpeedNow(engine.get(), speed);
    Frames out(8 * in.size() + 8192);
    out.resize(size_t(engine->Exe(raw(out), raw(in), int(in.size()))));
    return out;
}

double power(const Frames& frames, size_t from, size_t to)
{
    double sum = 0.0;
    for (size_t n = from; n < std::min(to, frames.size()); ++n)
        sum += double(frames[n][0]) * frames[n][0] + double(frames[n][1]) * frames[n][1];
    return sum / double(to - from);
}

double decibels(double ratio)
{
    return 10.0 * std::log10(ratio);
}

// Level of the second half of the output against the signal's, dB.
double levelChange(const Frames& in, int rate, float speed, uint32_t sound)
{
    const Frames out = play(in, rate, speed, sound);
    return decibels(power(out, out.size() / 2, out.size()) / power(in, 0, in.size()));
}

TEST(Sound, FullBandKeepsTrebleAndLevelOfSlowSpeeds)
{
    const int rate = 44100;
    for (const double hertz : {300.0, 12000.0}) {
        const Frames in = signals::tone(size_t(2 * rate), hertz, rate, 9000.0);
        for (const float speed : {0.13f, 0.25f, 0.4f, 0.499f, 0.5f}) {
            EXPECT_LT(levelChange(in, rate, speed, Velora_VSP_Sound_Own), -12.0) << hertz;
            const float wanted = speed == 0.25f ? std::nextafter(speed, 1.0f) : speed;
            EXPECT_NEAR(levelChange(in, rate, wanted, Velora_VSP_Sound_FullBand), 0.0, 3.0)
                << hertz << " Hz at " << speed;
        }
    }
}

TEST(Sound, EvenLevelIsThatOfTheInputAtEverySpeed)
{
    const int rate = 44100;
    const Frames noise = signals::noise(size_t(3 * rate), 9000, 1);
    for (const uint32_t more : {0u, uint32_t(Velora_VSP_Sound_ShortHop)})
        for (const float speed : {0.3f, 0.4f, 0.6f, 0.9f, 1.3f, 2.0f, 4.0f, 7.0f}) {
            const uint32_t sound = Velora_VSP_Sound_FullBand | Velora_VSP_Sound_EvenLevel | more;
            EXPECT_NEAR(levelChange(noise, rate, speed, sound), 0.0, 0.5) << speed;
        }
}

// A gain that ran away while nothing was heard would show in the first sound behind it.
TEST(Sound, EvenLevelHoldsThroughSilence)
{
    const int rate = 44100;
    const size_t second = size_t(rate);
    Frames in = signals::noise(second, 9000, 2);
    in.resize(3 * second, {0, 0});
    const Frames again = signals::noise(second, 9000, 3);
    in.insert(in.end(), again.begin(), again.end());
    for (const float speed : {0.75f, 2.0f}) {
        const Frames out = play(in, rate, speed, Velora_VSP_Sound_EvenLevel);
        const auto at = [&](double seconds) { return size_t(seconds * rate / double(speed)); };
        EXPECT_EQ(power(out, at(1.5), at(2.8)), 0.0);
        const double change = power(out, at(3.2), at(3.6)) / power(again, 0, second);
        EXPECT_NEAR(decibels(change), 0.0, 1.0) << speed;
    }
}

TEST(Sound, ShortHopIsHalfAsLongWhereThereIsOne)
{
    const EngineOwner engine(Velora_VSP_Factory::Create());
    Velora_VSP_Conductor::SetSound(engine.get(), Velora_VSP_Sound_ShortHop);
    const auto hop = [&](int rate) {
        engine->Init(rate, Velora_BitDepth_16);
        return Velora_VSP_Conductor::HopFrames(engine.get());
    };
    EXPECT_EQ(hop(12000), 128);
    EXPECT_EQ(hop(16000), 128);
    EXPECT_EQ(hop(24000), 128);
    EXPECT_EQ(hop(44100), 256);
    EXPECT_EQ(hop(96000), 512);
    EXPECT_EQ(hop(192000), 1024);
}

// Power of `in` at `hertz` and near it.
double powerAt(const Frames& in, double hertz, double rate)
{
    constexpr size_t kBlock = 1024;
    double sum = 0.0;
    for (size_t block = in.size() / 4; block + kBlock <= in.size(); block += kBlock / 2) {
        std::complex<double> bin = 0;
        for (size_t n = 0; n < kBlock; ++n) {
            const double window = 0.5 - 0.5 * std::cos(2.0 * signals::kPi * double(n) / kBlock);
            bin += window * in[block + n][0] *
                   std::polar(1.0, -2.0 * signals::kPi * hertz * double(n) / rate);
        }
        sum += std::norm(bin);
    }
    return sum / double(in.size());
}

TEST(Sound, BandsAddUpAcrossTheCrossover)
{
    const double rate = 44100;
    const Frames noise = signals::noise(size_t(6 * rate), 9000, 4);
    const struct {
        uint32_t sound;
        double crossover; // Hz
    } kCases[] = {{kAll, 0.223 * rate},
                  {Velora_VSP_Sound_FullBand | Velora_VSP_Sound_EvenLevel, 0.118 * rate}};
    for (const auto& c : kCases) {
        const Frames out = play(noise, int(rate), kNearOne, c.sound);
        for (double hertz = c.crossover - 600.0; hertz < c.crossover + 600.0; hertz += 150.0) {
            double before = 0.0, after = 0.0;
            for (double near = -60.0; near <= 60.0; near += 40.0) {
                before += powerAt(noise, hertz + near, rate);
                after += powerAt(out, hertz + near, rate);
            }
            EXPECT_NEAR(decibels(after / before), 0.0, 1.0) << hertz << " Hz, " << c.sound;
        }
    }
}

// Highest value of the correlation of the left channels over lags of up to 8192 frames, by size.
double correlation(const Frames& a, const Frames& b)
{
    double highest = 0.0;
    constexpr size_t kFrom = 20000, kFrames = 4000;
    for (size_t lag = 0; lag < 8192; ++lag) {
        double cross = 0.0, left = 0.0, right = 0.0;
        for (size_t n = kFrom; n < kFrom + kFrames; ++n) {
            cross += double(a[n][0]) * b[n + lag][0];
            left += double(a[n][0]) * a[n][0];
            right += double(b[n + lag][0]) * b[n + lag][0];
        }
        const double value = cross / std::sqrt(left * right + 1.0);
        highest = std::abs(value) > std::abs(highest) ? value : highest;
    }
    return highest;
}

TEST(Sound, LowBandHasThePolarityOfTheInput)
{
    // Low-passed noise: all of it is low band.
    Frames in = signals::noise(40000, 20000, 5);
    for (size_t n = 1; n < in.size(); ++n)
        for (size_t c = 0; c < 2; ++c)
            in[n][c] = int16_t(in[n - 1][c] + (in[n][c] - in[n - 1][c]) / 16);
    EXPECT_LT(correlation(in, play(in, 22050, kNearOne, Velora_VSP_Sound_Own)), -0.3);
    EXPECT_GT(correlation(in, play(in, 22050, kNearOne, Velora_VSP_Sound_FullBand)), 0.3);
    EXPECT_GT(correlation(in, play(in, 22050, kNearOne, kAll)), 0.3);
    EXPECT_GT(correlation(in, play(in, 44100, kNearOne, kAll)), 0.3);
}

TEST(Sound, HoldsFromTheNextInitOn)
{
    const Frames in = signals::noise(20000, 9000, 6);
    const auto playAfter = [&](bool initAgain) {
        const EngineOwner engine(Velora_VSP_Factory::Create());
        engine->Init(44100, Velora_BitDepth_16);
        Velora_VSP_Conductor::SetSpeedNow(engine.get(), 0.4f);
        Velora_VSP_Conductor::SetSound(engine.get(), kAll);
        if (initAgain)
            engine->Init(44100, Velora_BitDepth_16);
        Velora_VSP_Conductor::SetSpeedNow(engine.get(), 0.4f);
        Frames out(8 * in.size());
        out.resize(size_t(engine->Exe(raw(out), raw(in), int(in.size()))));
        return out;
    };
    EXPECT_EQ(playAfter(false), play(in, 44100, 0.4f, Velora_VSP_Sound_Own));
    EXPECT_EQ(playAfter(true), play(in, 44100, 0.4f, kAll));
}

} // namespace
