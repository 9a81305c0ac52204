// The half-band resamplers run long stretches as two segments at once. It must not be heard, whatever
// the second one takes for its state.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "convert/bridge.h"
#include "convert/segments.h"
#include "kernels/half_band.h"
#include "kernels/kernel_table.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;
using signals::Frames;
using signals::raw;

using Random = std::minstd_rand;
int16_t anySample(Random& random)
{
    return int16_t(random());
}

// Samples by pair of frames: steady sound, sound that ends shortly before the second segment of 512 pairs
// begins, and sound that is full-scale or next to nothing all the time.
struct Sound {
    const char* name;
    std::function<int16_t(Random&, size_t)> sample;
};
constexpr int kSteadySounds = 3; // the first ones
const Sound kSounds[] = {
    {"silence", [](Random&, size_t) { return 0; }},
    {"a unit below", [](Random&, size_t) { return -1; }},
    {"the lowest constant", [](Random&, size_t) { return INT16_MIN; }},
    {"noise, then silence",
     [](Random& random, size_t n) { return n % 512 < 192 ? anySample(random) : 0; }},
    {"noise, then a unit below",
     [](Random& random, size_t n) { return n % 512 < 170 ? anySample(random) : -1; }},
    {"noise", [](Random& random, size_t) { return anySample(random); }},
    {"three levels", [](Random& random, size_t) { return int(random() % 3) - 1; }},
    {"a square wave", [](Random&, size_t n) { return n / 37 % 2 == 0 ? INT16_MAX : INT16_MIN; }},
    {"half the rate", [](Random&, size_t n) { return n % 2 == 0 ? INT16_MAX : INT16_MIN; }},
};

// A decimator that takes pairs one by one, and one that takes them in segments.
class Decimators {
public:
    Decimators(const Sound& sound, int pairs, const HalfBandState& state)
        : in(size_t(4 * pairs)), expected(size_t(2 * pairs)), actual(expected.size())
    {
        Random random(1);
        for (size_t n = 0; n < in.size(); ++n)
            in[n] = sound.sample(random, n / 4) * 16;
        for (DecimatorState* decimator : {plain, inSegments})
            for (int channel = 0; channel < 2; ++channel)
                static_cast<HalfBandState&>(decimator[channel]) = state;
    }

    // Takes the next pairs; returns how many of them the segments did.
    int take(int pairs)
    {
        run(expected, plain, 0, pairs);
        const int done = runInTwoSegments(
            inSegments, pairs, [this](HalfBandLanes& lanes, int begin, int end, int ahead) {
                for (int lane = 0; lane < 4; lane += 2) {
                    DecimatorState state[2];
                    for (int channel = 0; channel < 2; ++channel)
                        static_cast<HalfBandState&>(state[channel]) = laneOf(lanes, lane + channel);
                    run(actual, state, begin + lane / 2 * ahead, end - begin);
                    for (int channel = 0; channel < 2; ++channel)
                        setLane(lanes, lane + channel, state[channel]);
                }
            });
        run(actual, inSegments, done, pairs - done);
        taken += pairs;
        return done;
    }
    bool agree() const { return expected == actual && std::equal(plain, plain + 2, inSegments); }

private:
    // Pairs from the first one on that isn't taken yet.
    void run(std::vector<int32_t>& out, DecimatorState* state, int from, int pairs)
    {
        kPortableKernels.halveRate(
            reinterpret_cast<int32_t(*)[2]>(out.data()) + taken + from,
            reinterpret_cast<const int32_t(*)[2]>(in.data()) + 2 * (taken + from), state, pairs);
    }

    std::vector<int32_t> in, expected, actual;
    DecimatorState plain[2], inSegments[2];
    int taken = 0;
};

// As far as sound can drive the delays, and as they are in silence.
const HalfBandState kStates[] = {{},
                                 {1 << 25, -(1 << 25), 1 << 24, 1 << 25, -(1 << 25)},
                                 {-(1 << 25), 1 << 25, -(1 << 24), -(1 << 25), 1 << 25}};

TEST(Segments, GiveWhatOneStepAfterTheOtherGives)
{
    int wholly = 0;
    int again = 0;
    for (const Sound& sound : kSounds)
        for (const HalfBandState& state : kStates) {
            Decimators decimators(sound, 25000, state);
            for (int round = 0; round < 5; ++round)
                for (int pairs : {512, kLeastSteps, kLeastSteps - 1, 1, 0, 417, 600, 1024, 519}) {
                    const int done = decimators.take(pairs);
                    ASSERT_TRUE(pairs >= kLeastSteps || done == 0);
                    wholly += done >= pairs - kSteadySteps && done > 0 ? 1 : 0;
                    again += done > 0 && done < pairs - 2 * kSteadySteps ? 1 : 0;
                }
            EXPECT_TRUE(decimators.agree()) << sound.name;
        }
    EXPECT_GT(wholly, 100);
    EXPECT_GT(again, 20);
}

// Or silence would cost more than music.
TEST(Segments, SteadySoundIsntRunAgain)
{
    for (int steady = 0; steady < kSteadySounds; ++steady)
        for (const HalfBandState& state : kStates) {
            const Sound& sound = kSounds[steady];
            Decimators decimators(sound, 20 * 600, state);
            decimators.take(512);
            for (int block = 1; block < 20; ++block) {
                const int pairs = 500 + 5 * block;
                ASSERT_GT(decimators.take(pairs), pairs - 2 * kSteadySteps)
                    << sound.name << ", block " << block;
            }
        }
}

class EveryTable : public testing::TestWithParam<const KernelTable*> {};

// Of 2048 frames at a time, which go in segments, and of parts too short for that.
TEST_P(EveryTable, BlocksOfAnySizeGiveTheSame)
{
    constexpr int kFrames = 3 * kPieceFrames;
    for (const Sound& sound : kSounds)
        for (int shift : {1, 2})
            for (int most : {kPieceFrames, 1024, 777}) {
                Random random(1);
                Frames in(kFrames);
                for (size_t n = 0; n < in.size(); ++n)
                    in[n] = {sound.sample(random, n / 2), sound.sample(random, n / 2)};
                const auto play = [&](int block, bool isUp) {
                    FormatBridge bridge(*GetParam());
                    Frames out(size_t(kFrames << shift));
                    int done = 0;
                    for (int from = 0; from < kFrames; from += block) {
                        const int count = std::min(block, kFrames - from);
                        if (isUp) {
                            bridge.Convert_MQ2UHQ(raw(out, size_t(done)), raw(in, size_t(from)),
                                                  count, shift, Velora_BitDepth_16);
                            done += count << shift;
                        } else {
                            done +=
                                bridge.Convert_UHQ2MQ(raw(out, size_t(done)), raw(in, size_t(from)),
                                                      count, shift, Velora_BitDepth_16);
                        }
                    }
                    return out;
                };
                EXPECT_EQ(play(most, false), play(61, false)) << sound.name << " down";
                EXPECT_EQ(play(most, true), play(61, true)) << sound.name << " up";
            }
}

std::vector<const KernelTable*> tables()
{
    std::vector<const KernelTable*> all;
    for (const KernelTable* const* table = availableKernels(); *table != nullptr; ++table)
        all.push_back(*table);
    return all;
}

INSTANTIATE_TEST_SUITE_P(HalfBand, EveryTable, testing::ValuesIn(tables()),
                         [](const auto& table) { return std::string(table.param->name); });

} // namespace
