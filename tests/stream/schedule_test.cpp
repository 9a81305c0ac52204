// How a stream's work is spread over its calls, counted in stages: time itself can't be tested.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "stream/schedule.h"
#include "stream/time_map.h"
#include "stream/voice.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;

constexpr std::int64_t kHop = 512;

/// Counts stages, and makes no sound.
struct Counter {
    const TimeMap& map;
    std::int64_t stages = 0;

    const TimeMap& times() const { return map; }
    void run(const Voice&, int count, bool) { stages += count; }
    void copy(const Voice&, std::int64_t, bool) {}
    void join(std::int64_t, const Voice&, const Voice&) {}
    void fade(std::int64_t, std::int64_t) {}
};

Rate rateFor(int pairs, bool pitchDrops)
{
    return {44100, 0, kHop, 8.0, 8.0, pitchDrops, true, 8.0, 2048, 2304, pairs, true};
}

/// The most stages of a call for `block` frames of output, of 2000 calls; input comes as it is wanted.
std::int64_t mostStages(Schedule course, Counter sound, std::int64_t block)
{
    std::int64_t most = 0;
    for (int call = 0; call < 2000; ++call) {
        const std::int64_t until = course.taken + block;
        sound.stages = 0;
        course.proceed(until, sound);
        while (course.ready() < until) {
            course.input += course.missingInput(until);
            course.proceed(until, sound);
        }
        course.taken = until;
        if (call > 0) // the first begins with a hop and what it takes
            most = std::max(most, sound.stages);
    }
    return most;
}

std::int64_t mostStagesAt(double speed, const Rate& rate, std::int64_t block)
{
    TimeMap map(1);
    map.reset(0.0, speed);
    Schedule course(rate);
    course.start(0, Counter{map});
    return mostStages(course, Counter{map}, block);
}

// Speeds by turns, each for 50 ms.
std::int64_t mostStagesBetween(std::pair<double, double> speeds, const Rate& rate,
                               std::int64_t block)
{
    constexpr std::int64_t kTurn = 2205;
    TimeMap map(1000);
    map.reset(0.0, speeds.first);
    for (std::int64_t turn = 1; turn * kTurn < 2000 * block && turn < 1000; ++turn)
        map.turnAtOutput(turn * kTurn, turn % 2 == 0 ? speeds.first : speeds.second);
    Schedule course(rate);
    course.start(0, Counter{map});
    return mostStages(course, Counter{map}, block);
}

TEST(Schedule, NoCallTakesMoreThanFourTimesTheWorkOfTheBusierSpeed)
{
    for (const bool pitchDrops : {false, true})
        for (const int pairs : {1, 4})
            for (const std::int64_t block : {64, 128, 512})
                for (const auto& speeds :
                     {std::pair{1.0, 0.125}, {1.0, 0.7}, {1.0, 1.5}, {1.0, 8.0}, {0.5, 2.0}}) {
                    const Rate rate = rateFor(pairs, pitchDrops);
                    const std::int64_t steady = std::max(mostStagesAt(speeds.first, rate, block),
                                                         mostStagesAt(speeds.second, rate, block));
                    EXPECT_LE(mostStagesBetween(speeds, rate, block), 4 * steady + 2 * pairs)
                        << speeds.first << " and " << speeds.second << ", block " << block
                        << ", pairs " << pairs << ", pitch drops: " << pitchDrops;
                }
}

} // namespace
