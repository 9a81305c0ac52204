// The gain that makes good what synthesis loses, fed with energies alone.

#include <cmath>
#include <cstdint>

#include "vocoder/level_keeper.h"

#include <gtest/gtest.h>

namespace {

using vsp::LevelKeeper;

double gainOf(const LevelKeeper& keeper)
{
    return keeper.gainQ14() / 16384.0;
}

// Hops of output at `speed` whose energy is `kept` of the input's, the gain put to it.
void play(LevelKeeper& keeper, int hops, double energy, double kept, double speed)
{
    double position = 1.0;
    for (int hop = 0; hop < hops; ++hop, position += speed) {
        for (; position >= 1.0; position -= 1.0)
            keeper.tookHop(int64_t(energy));
        const double gain = gainOf(keeper);
        keeper.gaveHop(int64_t(energy * kept * gain * gain), position, speed);
    }
}

constexpr double kLoud = 1e10;

TEST(LevelKeeper, MakesGoodWhatIsLostWithinItsBounds)
{
    for (const double speed : {0.125, 0.75, 1.3, 8.0})
        for (const double kept : {1.0, 0.7, 0.5}) {
            LevelKeeper keeper;
            keeper.reset();
            play(keeper, 500, kLoud, kept, speed);
            EXPECT_NEAR(gainOf(keeper) * gainOf(keeper) * kept, 1.0, 0.02) << speed;
        }
    LevelKeeper keeper;
    keeper.reset();
    play(keeper, 500, kLoud, 0.01, 1.3);
    EXPECT_NEAR(gainOf(keeper), 1.6, 0.001);
    play(keeper, 1000, kLoud, 3.0, 1.3);
    EXPECT_NEAR(gainOf(keeper), 0.9, 0.001);
}

TEST(LevelKeeper, MovesByLittleAtATime)
{
    LevelKeeper keeper;
    keeper.reset();
    for (int hop = 0; hop < 400; ++hop) {
        const double before = gainOf(keeper);
        play(keeper, 1, kLoud, hop % 7 == 0 ? 3.0 : 0.1, 1.0);
        ASSERT_NEAR(gainOf(keeper), before, 0.0101) << hop;
    }
}

TEST(LevelKeeper, HoldsWhileThereIsNothingToMeasure)
{
    LevelKeeper keeper;
    keeper.reset();
    play(keeper, 500, kLoud, 0.6, 0.75);
    play(keeper, 20, 0.0, 0.0, 0.75); // until what was loud has left the pipeline
    const double before = gainOf(keeper);
    play(keeper, 500, 0.0, 0.0, 0.75);
    play(keeper, 500, 100.0, 0.0, 0.75); // rounding takes it all
    EXPECT_EQ(gainOf(keeper), before);
}

// An attack comes out as late as it should: a mean over other times would take it for a loss.
TEST(LevelKeeper, ComparesTheSameMediaTime)
{
    for (const double speed : {0.4, 1.6}) {
        LevelKeeper keeper;
        keeper.reset();
        double position = 1.0;
        int taken = 0;
        const auto energyAt = [](double hop) { return hop >= 200.0 ? kLoud : kLoud / 1000.0; };
        for (int hop = 0; taken < 210; ++hop, position += speed) {
            for (; position >= 1.0; position -= 1.0, ++taken)
                keeper.tookHop(int64_t(energyAt(taken)));
            // The frame's centre lies five hops before, that of the hop one and a half hops of
            // output before that.
            const double centre = taken - 5.0 + position - 1.5 * speed;
            const double gain = gainOf(keeper);
            keeper.gaveHop(int64_t(energyAt(std::floor(centre)) * gain * gain), position, speed);
        }
        EXPECT_NEAR(gainOf(keeper), 1.0, 0.06) << speed;
    }
}

} // namespace
