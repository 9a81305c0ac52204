// The engine through its public interface: speeds, transitions, limits, blocks of any size.

#include <climits>
#include <limits>

#include "support/engine_probe.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using signals::Frames;
using signals::raw;

constexpr int kRate = 44100;

class Stream : public testing::Test {
protected:
    Frames exe(const Frames& in, size_t from, size_t count)
    {
        Frames out(count * 8 + 40000);
        out.resize(size_t(probe.engine->Exe(raw(out), raw(in, from), int(count))));
        return out;
    }
    Frames play(const Frames& in, size_t block = 512)
    {
        Frames out;
        for (size_t from = 0; from < in.size(); from += block) {
            const Frames part = exe(in, from, std::min(block, in.size() - from));
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

TEST_F(Stream, PassesEverySampleAtSpeedOne)
{
    const Frames in = signals::noise(20000, 32767, 1);
    EXPECT_EQ(play(in, 777), in) << "before Init";
    start(1.0f);
    EXPECT_EQ(play(in, 5000), in);
    for (float outOfRange : {0.1f, 9.0f, -1.0f, std::numeric_limits<float>::quiet_NaN()}) {
        probe.engine->SetPar(outOfRange);
        EXPECT_EQ(play(in, 5000), in);
    }
}

class Pitch : public Stream, public testing::WithParamInterface<float> {};

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

TEST_F(Stream, IsHeardUnchangedUntilTheFadeAndHalvedAfterIt)
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
TEST_F(Stream, LevelJumpsLengthenTheTransition)
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

TEST_F(Stream, SpeedSetDuringATransitionWaitsForItsEnd)
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
TEST_F(Stream, LeavingSpeedOneStartsLikeANewEngine)
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

TEST_F(Stream, SlowSpeedsFadeTheHighBand)
{
    const std::pair<float, int> kCases[] = {{0.2f, 0},       {0.25f, 0},    {0.3f, 6553},
                                            {0.375f, 16384}, {0.4f, 19660}, {0.5f, 32768}};
    for (const auto& [speed, gain] : kCases) {
        start(speed);
        exe(signals::silence(512), 0, 512);
        EXPECT_EQ(probe.highBandGain(), gain) << speed;
    }
}

TEST_F(Stream, InitMakesAUsedEngineLikeANewOne)
{
    const Frames in = signals::noise(30000, 20000, 3);
    start(0.6f);
    const Frames first = play(in);
    probe.engine->GetPredictedInputFrameSize(1); // leaves a limit behind, then a carry
    play(in, 2048);
    probe.engine->GetPredictedInputFrameSize(1);
    start(1.7f, 96000);
    play(in);
    start(0.6f);
    EXPECT_EQ(play(in), first);
}

TEST_F(Stream, PredictsItsInputAndKeepsToTheLimit)
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

// However far it looks ahead, the prediction is what the frame clock gives hop by hop.
TEST_F(Stream, PredictsAnyAmountAsTheClockWouldGiveIt)
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

// More input than predicted: what is beyond the limit comes with the next call, whole.
TEST_F(Stream, CarriesWhateverTheLimitHoldsBack)
{
    const Frames in = signals::noise(60 * 512, 10000, 5);
    for (float speed : {0.126f, 0.4f, 1.5f}) {
        start(speed);
        const Frames free = play(in, 2048);
        start(speed);
        Frames limited;
        for (size_t from = 0; from < in.size(); from += 2048) {
            if (probe.transitionCount() == 0 && from > 20000)
                probe.engine->GetPredictedInputFrameSize(1);
            const Frames part = exe(in, from, 2048);
            limited.insert(limited.end(), part.begin(), part.end());
        }
        const Frames rest = exe(signals::silence(1), 0, 1);
        limited.insert(limited.end(), rest.begin(), rest.end());
        ASSERT_GE(limited.size(), free.size()) << speed;
        limited.resize(free.size());
        // The filters of slow speeds run on what a call returns, so only unfiltered speeds compare.
        if (speed > 0.5f) {
            EXPECT_EQ(limited, free);
        }
    }
}

TEST_F(Stream, BufferedCallsGiveWhatWholeChunksGive)
{
    const Frames in = signals::noise(20 * 512 + 300, 15000, 6);
    start(0.8f);
    const Frames chunks = play(Frames(in.begin(), in.begin() + 20 * 512));
    for (size_t block : {1u, 100u, 511u, 513u, 5000u}) {
        start(0.8f);
        Frames out;
        for (size_t from = 0; from < in.size(); from += block) {
            Frames part(20000);
            const size_t count = std::min(block, in.size() - from);
            part.resize(size_t(probe.engine->Exe_buffered(raw(part), raw(in, from), int(count))));
            out.insert(out.end(), part.begin(), part.end());
        }
        EXPECT_EQ(out, chunks) << "block " << block;
    }
}

// Every format and rate, blocks of any size, settings at any time: nothing behind the returned
// count.
TEST_F(Stream, WritesNothingBeyondTheFramesItReports)
{
    std::minstd_rand random(7);
    const auto oneOf = [&](auto... values) {
        const std::common_type_t<decltype(values)...> all[] = {values...};
        return all[random() % std::size(all)];
    };
    const Frames in = signals::noise(2 * 6000, 32767, 8); // any bytes will do, floats included
    std::vector<char> out(6000 * 64 + 600000);
    Velora_BitDepth_T depth = Velora_BitDepth_16;
    for (int call = 0; call < 1500; ++call) {
        if (random() % 16 == 0) {
            depth = static_cast<Velora_BitDepth_T>(random() % 4);
            probe.engine->Init(oneOf(8000, 11025, 22050, 44100, 64000, 96000, 192000, 0, -7),
                               depth);
        }
        if (random() % 6 == 0)
            probe.engine->SetPar(oneOf(1.0f, 0.125f, 0.126f, 0.25f, 0.4f, 0.5f, 0.7f, 1.3f, 3.0f,
                                       8.0f, std::numeric_limits<float>::infinity()));
        if (random() % 4 == 0)
            probe.engine->GetPredictedInputFrameSize(int(random() % 3000) - 100);
        const int frames = oneOf(-1, 0, 1, 2, 3, 5, 100, 511, 512, 777, 2047, 2048, 2049, 6000);
        std::fill(out.begin(), out.end(), char(0x5A));
        const int written = random() % 3 == 0
                                ? probe.engine->Exe_buffered(out.data(), raw(in), frames)
                                : probe.engine->Exe(out.data(), raw(in), frames);
        ASSERT_GE(written, 0);
        const size_t end = size_t(written) * (depth == Velora_BitDepth_16 ? 4 : 8);
        ASSERT_LE(end, out.size());
        ASSERT_TRUE(std::all_of(out.begin() + std::ptrdiff_t(end), out.end(),
                                [](char c) { return c == 0x5A; }))
            << "call " << call;
    }
}

// Above 48 kHz blocks of odd sizes lose no frame: the halves of a pair meet in a later call.
TEST_F(Stream, OddBlocksAboveFortyEightKilohertzLoseNothing)
{
    const Frames in = signals::noise(4 * 3000, 10000, 12);
    for (int rate : {96000, 192000}) {
        start(1.0f, rate);
        const Frames whole = play(in, in.size());
        start(1.0f, rate);
        EXPECT_EQ(play(in, 333), whole) << rate << " Hz";
    }
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
