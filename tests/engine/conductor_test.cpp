// Engines led as one: speeds put in force without a transition, onsets that count for all.

#include <algorithm>
#include <array>
#include <cstdlib>

#include "support/engine_probe.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using signals::Frames;
using signals::raw;

constexpr size_t kHop = 512;

Frames play(Velora_VSP& engine, const Frames& in)
{
    Frames out(8 * in.size() + 8 * kHop);
    out.resize(size_t(engine.Exe(raw(out), raw(in), int(in.size()))));
    return out;
}

// A transition counts down by a whole hop for every call, however short, and at speed 0.5 a short
// call costs no sound: silence of a few frames brings an engine to where it can be started at once.
void startThroughATransition(Velora_VSP& engine, float speed)
{
    engine.Init(44100, Velora_BitDepth_16);
    engine.SetPar(0.5f);
    for (int call = 0; call < 12; ++call)
        play(engine, Frames(1));
    engine.SetPar(speed);
}

TEST(Conductor, StartsAnEngineWithoutATransition)
{
    const Frames in = signals::noise(30 * kHop, 9000, 1);
    for (const float speed : {0.3f, 0.5f, 0.7f, 3.0f}) {
        EngineProbe expected;
        startThroughATransition(*expected.engine, speed);
        EngineProbe used;
        Velora_VSP_Conductor::SetSpeedNow(used.engine.get(), 0.4f);
        play(*used.engine, in);
        used.engine->Init(44100, Velora_BitDepth_16);
        Velora_VSP_Conductor::SetSpeedNow(used.engine.get(), speed);
        EXPECT_EQ(play(*used.engine, in), play(*expected.engine, in)) << speed;
    }
}

TEST(Conductor, ASpeedPutInForceDropsOneThatWaits)
{
    const Frames in = signals::noise(20 * kHop, 9000, 2);
    EngineProbe probe;
    probe.engine->SetPar(0.7f);
    play(*probe.engine, Frames(1));
    probe.engine->SetPar(3.0f); // after the transition to 0.7
    Velora_VSP_Conductor::SetSpeedNow(probe.engine.get(), 1.0f);
    play(*probe.engine, in);
    EXPECT_EQ(play(*probe.engine, in), in);
}

TEST(Conductor, HopsInStagesAreHopsInOne)
{
    const Frames in = signals::noise(24 * kHop, 9000, 3);
    for (const Velora_BitDepth_T depth : {Velora_BitDepth_16, Velora_BitDepth_Float})
        for (const int rate : {8000, 22050, 44100, 96000}) {
            std::array<EngineProbe, 2> probes;
            for (EngineProbe& probe : probes) {
                probe.engine->Init(rate, depth);
                Velora_VSP_Conductor::SetSpeedNow(probe.engine.get(), 0.7f);
            }
            Velora_VSP_Interface* const whole = probes[0].engine.get();
            Velora_VSP_Interface* const staged = probes[1].engine.get();
            const auto* hop = reinterpret_cast<const char*>(raw(in));
            std::array<std::array<char, 8 * 2048>, 2> out{}; // a hop at the highest rate
            for (int n = 0; n < 12; ++n) {
                Velora_VSP_Conductor::TakeHop(whole, hop);
                for (int stage = 0; stage < Velora_VSP_Conductor::kTakeStages; ++stage)
                    Velora_VSP_Conductor::TakeStage(staged, stage, hop);
                while (Velora_VSP_Conductor::GiveHop(whole, out[0].data()) > 0) {
                    for (int stage = 0; stage < Velora_VSP_Conductor::kGiveStages; ++stage)
                        Velora_VSP_Conductor::GiveStage(staged, stage, out[1].data());
                    ASSERT_EQ(out[0], out[1]) << rate << " Hz, hop " << n;
                }
                hop += 1024;
            }
            // Where none is due, the stages do nothing to the engine.
            for (int stage = 0; stage < Velora_VSP_Conductor::kGiveStages; ++stage)
                Velora_VSP_Conductor::GiveStage(staged, stage, out[1].data());
            EXPECT_EQ(Velora_VSP_Conductor::GiveHop(staged, out[1].data()), 0);
        }
}

// What the engine gives at 1.0 is then the input, but for rounding, from its first whole hop on.
TEST(Conductor, APrimedEngineStartsInPhase)
{
    constexpr int kPrimed = 7;
    constexpr size_t kDelay = 9; // frames that its filters take
    const Frames in = signals::tone(40 * kHop, 997.0, 44100.0, 9000.0);
    EngineProbe probe;
    Velora_VSP_Interface* const engine = probe.engine.get();
    Velora_VSP_Conductor::SetSpeedNow(engine, std::nextafter(1.0f, 2.0f));
    Velora_VSP_Conductor::Prime(engine, kPrimed);
    Frames out(kHop);
    int given = 0;
    for (int taken = 1; taken <= 20; ++taken) {
        Velora_VSP_Conductor::TakeHop(engine, raw(in, size_t(taken - 1) * kHop));
        const bool isDue = Velora_VSP_Conductor::GiveHop(engine, raw(out)) > 0;
        EXPECT_EQ(isDue, taken >= kPrimed);
        given += isDue ? 1 : 0;
        if (given <= 4) // overlap-add and high band fill up
            continue;
        const size_t from = size_t(taken - kPrimed) * kHop - kDelay;
        double error = 0.0;
        double power = 0.0;
        for (size_t n = 0; n < kHop; ++n) {
            error += std::pow(out[n][0] - in[from + n][0], 2);
            power += std::pow(in[from + n][0], 2);
        }
        EXPECT_LT(error, 0.01 * power) << "hop " << taken;
    }
}

TEST(Conductor, SlowSpeedsGlideThroughTheFilters)
{
    const Frames in = signals::tone(40 * kHop, 300.0, 44100.0, 9000.0);
    EngineProbe probe;
    Velora_VSP_Conductor::SetSpeedNow(probe.engine.get(), 0.3f);
    const Frames before = play(*probe.engine, in);
    Velora_VSP_Conductor::SetSpeedNow(probe.engine.get(), 0.32f);
    const Frames after = play(*probe.engine, Frames(in.begin(), in.begin() + kHop));
    EXPECT_GT(std::abs(before.back()[0]), 300);
    EXPECT_NEAR(after.front()[0], before.back()[0], 150) << "filters that start anew begin at 0";
}

TEST(Conductor, AnOnsetInOneEngineCountsForAll)
{
    std::array<EngineProbe, 3> probes;
    std::array<Velora_VSP_Interface*, 3> engines;
    for (size_t n = 0; n < 3; ++n) {
        engines[n] = probes[n].engine.get();
        Velora_VSP_Conductor::SetSpeedNow(engines[n], 0.8f);
    }
    bool found = false;
    for (size_t hop = 0; hop < 20; ++hop) {
        Frames click(kHop);
        if (hop == 10)
            click[100] = {20000, 20000};
        for (size_t n = 0; n < 3; ++n)
            play(*probes[n].engine, n == 1 ? click : Frames(kHop));
        found = found || probes[1].transientDecision();
        Velora_VSP_Conductor::ShareOnsets(engines.data(), 3);
        for (const size_t n : {0u, 2u})
            EXPECT_TRUE(std::equal(probes[1].bandStatus(), probes[1].bandStatus() + vsp::kBands,
                                   probes[n].bandStatus()))
                << "hop " << hop << ", engine " << n;
    }
    EXPECT_TRUE(found);
}

} // namespace
