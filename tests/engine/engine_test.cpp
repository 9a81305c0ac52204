// The engine through its public interface: speeds, transitions, limits, blocks of any size.

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/engine_probe.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using signals::Frames;
using signals::raw;

constexpr int kRate = 44100;

class Engine : public testing::Test {
protected:
    using Call = int (Velora_VSP::*)(void*, const void*, int);

    Frames exe(const Frames& in, size_t from, size_t count, Call call = &Velora_VSP::Exe)
    {
        Frames out(count * 8 + 40000);
        out.resize(size_t((probe.engine.get()->*call)(raw(out), raw(in, from), int(count))));
        return out;
    }
    Frames play(const Frames& in, size_t block = 512, Call call = &Velora_VSP::Exe)
    {
        Frames out;
        for (size_t from = 0; from < in.size(); from += block) {
            const Frames part = exe(in, from, std::min(block, in.size() - from), call);
            out.insert(out.end(), part.begin(), part.end());
        }
        return out;
    }
    void start(float speed, int rate = kRate)
    {
        probe.engine->Init(rate, Velora_BitDepth_16);
        probe.engine->SetPar(speed);
    }
    EngineProbe probe;
};

class Pitch : public Engine, public testing::WithParamInterface<float> {};

TEST_P(Pitch, StaysAtEverySpeedAndLengthFollows)
{
    const float speed = GetParam();
    const size_t seconds = 8;
    start(speed);
    play(signals::tone(6144, 440.0, kRate, 8000)); // the transition
    const size_t frames = seconds * kRate / 512 * 512;
    const Frames out = play(signals::tone(frames, 440.0, kRate, 8000));
    EXPECT_NEAR(double(out.size()), double(frames) / speed, 512.0);
    const double hertz =
        signals::measureFrequency(out, 8192, (out.size() - 8192) / 2 * 2, 440.0, kRate);
    EXPECT_LT(std::abs(1200.0 * std::log2(hertz / 440.0)), 2.0) << hertz << " Hz";
}

INSTANTIATE_TEST_SUITE_P(Speeds, Pitch, testing::Values(0.6f, 0.75f, 1.5f, 3.0f));

TEST_F(Engine, IsHeardUnchangedUntilTheFadeAndHalvedAfterIt)
{
    const Frames in = signals::tone(20480, 440.0, kRate, 8000);
    start(2.0f);
    const Frames out = play(in);
    ASSERT_EQ(out.size(), 6144u + (20480 - 6144) / 2);
    EXPECT_TRUE(std::equal(in.begin(), in.begin() + 4096, out.begin()));
    EXPECT_FALSE(std::equal(in.begin() + 4096, in.begin() + 6144, out.begin() + 4096));

    probe.engine->SetPar(1.0f);
    play(in);
    EXPECT_EQ(play(in), in) << "back at 1.0, bit for bit";
}

// The priming is lengthened when the level jumps by more than 2000, three times at most.
TEST_F(Engine, LevelJumpsLengthenTheTransition)
{
    const auto countAfterSecondHop = [&](int16_t jump) {
        start(0.8f);
        exe(signals::constant(512, 1000, 0), 0, 512);
        exe(signals::constant(512, int16_t(1000 + jump), 0), 0, 512);
        return probe.transitionCount();
    };
    EXPECT_EQ(countAfterSecondHop(2000), 6144 - 2 * 512);
    EXPECT_EQ(countAfterSecondHop(2001), 6144 - 512);

    start(0.8f);
    int hops = 0;
    do {
        exe(signals::constant(512, hops % 2 != 0 ? 10000 : 100, 0), 0, 512);
        ++hops;
    } while (probe.transitionCount() > 0 && hops < 100);
    EXPECT_EQ(hops, 12 + 3) << "capped at 6144 each time, so one hop more for each jump";
}

TEST_F(Engine, SpeedSetDuringATransitionWaitsForItsEnd)
{
    const Frames in = signals::tone(30 * 512, 300.0, kRate, 5000);
    start(0.7f);
    exe(in, 0, 512);
    probe.engine->SetPar(3.0f);
    probe.engine->SetPar(0.5f);
    exe(in, 512, 10 * 512);
    EXPECT_EQ(probe.transitionCount(), 512);
    exe(in, 11 * 512, 512);
    EXPECT_EQ(exe(in, 12 * 512, 512).size(), 1024u) << "the last value counts";
    EXPECT_TRUE(probe.hasConverter());
    probe.engine->SetPar(0.7f);
    exe(in, 13 * 512, 512);
    EXPECT_FALSE(probe.hasConverter());
}

// Frames that the limit held back and halves of a pair in the decimator are of the sound before.
TEST_F(Engine, LeavingSpeedOneStartsLikeANewEngine)
{
    const Frames before = signals::noise(40 * 512, 10000, 13);
    const Frames after = signals::noise(60 * 512, 10000, 14);
    for (const int rate : {44100, 96000, 192000}) {
        start(2.0f, rate);
        play(before);
        probe.engine->SetPar(1.0f);
        do {
            probe.engine->GetPredictedInputFrameSize(1);
            exe(before, 0, 2047);
        } while (probe.transitionCount() > 0);
        ASSERT_GT(probe.carryCount(), 0) << rate << " Hz";
        probe.engine->SetPar(0.7f);
        const Frames out = play(after, 2048);

        EngineProbe fresh;
        std::swap(probe.engine, fresh.engine);
        start(0.7f, rate);
        EXPECT_EQ(play(after, 2048), out) << rate << " Hz";
    }
}

TEST_F(Engine, PredictsItsInputAndKeepsToTheLimit)
{
    auto& engine = *probe.engine;
    engine.Init(48000, Velora_BitDepth_16);
    EXPECT_EQ(engine.GetPredictedInputFrameSize(1000), 1024);
    EXPECT_EQ(engine.GetPredictedInputFrameSize(0), 0);
    EXPECT_EQ(engine.GetPredictedInputFrameSize(-5), 0);
    EXPECT_EQ(engine.GetPredictedInputFrameSize(INT_MAX), INT_MAX / 512 * 512);

    const Frames in = signals::noise(200000, 10000, 4);
    for (float speed : {2.0f, 0.6f, 0.13f}) {
        start(speed);
        play(Frames(in.begin(), in.begin() + 40 * 512));
        size_t from = 0;
        for (int wanted : {1024, 1, 900, 512, 100}) {
            const int carried = probe.carryCount();
            const int needed = engine.GetPredictedInputFrameSize(wanted);
            const size_t got = exe(in, from, size_t(needed)).size();
            EXPECT_LE(got, size_t(std::max(wanted, carried))) << speed << ", wanted " << wanted;
            EXPECT_GE(int(got) + probe.carryCount(), needed > 0 ? wanted : 0);
            from += size_t(needed);
        }
    }
}

// Without a transition, so that no priming hides what an Init forgets to forget: it comes at every
// hop of an onset's countdown, and what follows has an onset at once, none, or some.
TEST_F(Engine, InitForgetsWhateverCameBefore)
{
    const auto play = [](EngineProbe& engine, const Frames& in, size_t hops) {
        Frames all;
        for (size_t n = 0; n < hops; ++n) {
            Frames out(4096);
            out.resize(size_t(engine.engine->Exe(raw(out), raw(in, n * 512), 512)));
            all.insert(all.end(), out.begin(), out.end());
        }
        return all;
    };
    const auto begin = [](EngineProbe& engine, float speed) {
        engine.engine->Init(kRate, Velora_BitDepth_16);
        Velora_VSP_Conductor::SetSpeedNow(engine.engine.get(), speed);
    };
    const Frames steady = signals::tone(30 * 512, 700.0, kRate, 9000.0);
    Frames rising = steady; // so slowly that its beginning is no onset
    for (size_t n = 0; n < rising.size(); ++n)
        for (int16_t& sample : rising[n])
            sample = int16_t(double(sample) * double(n) / double(rising.size()));
    Frames onsets = signals::noise(30 * 512, 40, 8);
    const Frames burst = signals::noise(512, 20000, 9);
    for (const size_t hop : {4u, 13u})
        std::copy(burst.begin(), burst.end(), onsets.begin() + std::ptrdiff_t(hop * 512 + 100));
    for (const float speed : {0.8f, 0.3f, 1.7f})
        for (const Frames& in : {steady, rising, onsets}) {
            EngineProbe fresh;
            begin(fresh, speed);
            const Frames expected = play(fresh, in, 30);
            for (size_t hops = 1; hops < 24; ++hops) {
                EngineProbe used;
                begin(used, 0.9f);
                play(used, hops % 2 == 0 ? steady : onsets, 5 + hops);
                begin(used, speed);
                EXPECT_TRUE(play(used, in, 30) == expected) << speed << ", after " << hops;
            }
        }
}

// However far it looks ahead, the prediction is what the frame clock gives hop by hop.
TEST_F(Engine, PredictsAnyAmountAsTheClockWouldGiveIt)
{
    const Frames in = signals::noise(30 * 512, 10000, 4);
    for (float speed : {0.125f, 0.7f, 0.75f, 0.99f, 1.000001f, 1.5f, 2.0f, 7.9f}) {
        start(speed);
        play(in);
        for (int wanted : {1, 5000, 1234567, INT_MAX}) {
            float clock = probe.engine->frameClock;
            int64_t input = 0;
            for (int64_t have = 0; have < wanted && input <= INT_MAX - 512; input += 512)
                for (clock -= 1.0f; clock < 1.0f; clock += speed)
                    have += 512;
            EXPECT_EQ(probe.engine->GetPredictedInputFrameSize(wanted), input) << speed;
        }
    }
}

TEST_F(Engine, BufferedCallsGiveWhatWholeChunksGive)
{
    const Frames in = signals::noise(20 * 512 + 300, 15000, 6);
    start(0.8f);
    const Frames chunks = play(Frames(in.begin(), in.begin() + 20 * 512));
    for (size_t block : {1u, 100u, 511u, 513u, 5000u}) {
        start(0.8f);
        EXPECT_EQ(play(in, block, &Velora_VSP::Exe_buffered), chunks) << "block " << block;
    }
    start(1.0f);
    EXPECT_EQ(exe(in, 0, 512, &Velora_VSP::Exe_buffered).size(), 512u) << "no frame more is needed";
}

TEST(Factory, TakesNullAndNamesItsVersion)
{
    Velora_VSP_Factory::Destroy(nullptr);
    Velora_BQ_Factory::Destroy(nullptr);
    EngineProbe probe;
    const std::string before = probe.engine->Get_Version();
    probe.engine->Init(kRate, Velora_BitDepth_16);
    EXPECT_EQ(probe.engine->Get_Version(), before);
    EXPECT_EQ(before, "Velora VSP ver. 3.16a Cppref (arm-v8 64bit). Release: 2016.6.1");
}

// Several at a time, since a single one may stand right by chance.
TEST(Factory, GivesEnginesThatBeginOnACacheLineAndFitInto320KiB)
{
    EXPECT_LE(sizeof(Velora_VSP), 320u * 1024u);
    for (const EngineProbe& probe : std::vector<EngineProbe>(5))
        EXPECT_EQ(reinterpret_cast<uintptr_t>(probe.engine.get()) % vsp::kLine, 0u);
}

} // namespace
