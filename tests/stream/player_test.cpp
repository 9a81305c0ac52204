// velora::Stream as players use it: pulled, jumping about, with plans and sliders, in memory taken at
// the start.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <velora/stream.hpp>

#include "support/allocations.h"

namespace {

using velora::Options;
using velora::Stream;

constexpr int kRate = 44100;
constexpr double kOmega = 2.0 * 3.141592653589793 * 300.0 / kRate;
constexpr double kLargestStep = 0.5 * kOmega; // of the tone

/// A tone of amplitude 0.5, mono; a phase for each piece.
std::vector<float> tone(std::size_t frames, double phase = 0.0)
{
    std::vector<float> out(frames);
    for (std::size_t n = 0; n < frames; ++n)
        out[n] = float(0.5 * std::sin(kOmega * double(n) + phase));
    return out;
}

double largestStep(const std::vector<float>& sound, std::size_t from = 1)
{
    double most = 0.0;
    for (std::size_t n = from; n < sound.size(); ++n)
        most = std::max(most, std::abs(double(sound[n]) - double(sound[n - 1])));
    return most;
}

/// Reads a sound piece by piece.
struct Reader {
    const std::vector<float>& sound;
    std::size_t at = 0;

    std::size_t operator()(float* buffer, std::size_t frames)
    {
        const std::size_t count = std::min(frames, sound.size() - at);
        std::copy_n(sound.data() + at, count, buffer);
        at += count;
        return count;
    }
};

TEST(Player, PullsWhatPushingWouldGive)
{
    const std::vector<float> in = tone(50000);
    for (const double speed : {0.3, 1.0, 1.7, 8.0}) {
        Stream<float> pushed(kRate, 1), pulled(kRate, 1, Options{});
        pushed.setSpeed(speed);
        pulled.setSpeed(speed);
        std::vector<float> expected, out(64);
        pushed.process(in, expected);
        pushed.flush(expected);

        Reader reader{in};
        std::vector<float> all;
        for (std::size_t given = 64; given == 64;) {
            EXPECT_LE(pulled.inputFramesFor(64), pulled.mostInputFrames(64));
            given = pulled.pull(out.data(), 64, reader);
            all.insert(all.end(), out.begin(), out.begin() + std::ptrdiff_t(given));
        }
        EXPECT_TRUE(all == expected) << speed;
        EXPECT_EQ(pulled.pull(out.data(), 64, reader), 0u) << "ended";
    }
}

TEST(Player, AReaderThatThrowsOrLiesHarmsNothing)
{
    Stream<float> stream(kRate, 1);
    stream.setSpeed(1.5);
    std::vector<float> out(5000);
    EXPECT_THROW(
        stream.pull(out.data(), 5000,
                    [](float*, std::size_t) -> std::size_t { throw std::out_of_range(""); }),
        std::out_of_range);
    EXPECT_EQ(stream.inputFrames(), 0);
    EXPECT_EQ(stream.pull(out.data(), 5000, [](float*, std::size_t n) { return 3 * n; }), 5000u);
    const std::int64_t before = stream.inputFrames();
    EXPECT_LT(stream.pull(out.data(), 5000, [](float*, std::size_t) { return -1; }), 5000u);
    EXPECT_EQ(stream.inputFrames(), before) << "an error of the reader's is no sound";
}

// Whatever the speed, no step is larger than the tone's own, and the map goes on.
TEST(Player, JumpsLoopWithoutAClick)
{
    for (const double speed : {0.8, 1.0, 1.3}) {
        Stream<float> stream(kRate, 1, Options{});
        stream.setSpeed(speed);
        std::vector<float> out;
        for (int turn = 0; turn < 5; ++turn) {
            stream.process(tone(20000, 2.0 * turn), out);
            EXPECT_TRUE(stream.jump(1000));
            EXPECT_NEAR(double(stream.mediaFrameOf(stream.outputFrameOf(1010))), 1010.0, 1.0);
        }
        stream.process(tone(10000), out);
        stream.flush(out);
        EXPECT_EQ(double(out.size()), std::round(110000 / speed));
        EXPECT_LT(largestStep(out, 4000), 2.5 * kLargestStep) << speed;
        const auto second = std::int64_t(30000 / speed);
        EXPECT_NEAR(double(stream.mediaFrameOf(second)), 11000.0, 2.0) << "in the second turn";
        EXPECT_EQ(stream.mediaFrameOf(stream.outputFrames()), 11000);
    }
}

TEST(Player, SeeksWithoutAClickAndAtTheSpeedThatSounds)
{
    const std::vector<float> in = tone(60000, 1.2);
    for (const double speed : {0.7, 1.0, 1.6}) {
        Stream<float> stream(kRate, 1, Options{});
        stream.setSpeed(speed);
        stream.setSpeedAt(1 << 20, 0.9); // never heard
        std::vector<float> out;
        stream.seek(123456);
        stream.process(in, out);
        EXPECT_EQ(stream.speedAt(0), speed);
        EXPECT_EQ(stream.speed(), speed) << "plans are dropped";
        EXPECT_LT(std::abs(out[0]), 0.01);
        EXPECT_LT(largestStep(out), 1.5 * kLargestStep) << speed;

        // With what lies before it begins as if it had been playing.
        stream.seek(123456 + 20000, in.data(), 20000);
        std::vector<float> joined;
        stream.process(std::vector<float>(in.begin() + 20000, in.end()), joined);
        EXPECT_LT(largestStep(joined), 1.25 * kLargestStep) << speed;
        const auto level = [](const std::vector<float>& sound) {
            return *std::max_element(sound.begin(), sound.begin() + 300);
        };
        EXPECT_NEAR(level(joined), 0.5, 0.05) << speed;
        EXPECT_EQ(stream.mediaFrameOf(0), 143456);
        stream.flush(joined);
        EXPECT_EQ(double(joined.size()), std::round(40000 / speed));
        EXPECT_EQ(stream.clock().seeks, 2);
    }
}

TEST(Player, PlansComeInAnyOrder)
{
    const std::vector<float> in = tone(100000);
    const std::vector<std::pair<std::int64_t, double>> plans = {
        {20000, 0.8}, {35000, 1.0}, {35000, 1.9}, {50000, 0.4}, {70000, 3.0}};
    std::vector<float> expected;
    Stream<float> inOrder(kRate, 1);
    for (const auto& [frame, speed] : plans)
        inOrder.setSpeedAt(frame, speed);
    inOrder.process(in, expected);
    inOrder.flush(expected);

    Stream<float> stream(kRate, 1, Options{});
    for (const int n : {3, 1, 0, 4, 2})
        stream.setSpeedAt(plans[std::size_t(n)].first, plans[std::size_t(n)].second);
    std::vector<float> out;
    stream.process(in, out);
    stream.flush(out);
    EXPECT_TRUE(out == expected);

    stream.reset();
    stream.setSpeedAt(30000, 2.0);
    stream.clearPlans();
    out.clear();
    stream.process(in, out);
    EXPECT_TRUE(out == in);
}

// Where a plan comes too late, and when setSpeed would be heard: that is the same frame.
TEST(Player, LatePlansAreHeardAsSoonAsASpeedThatIsSet)
{
    std::minstd_rand random(4);
    const auto speed = [&] { return 0.2 + double(random() % 2000) / 700.0; };
    const std::vector<float> in = tone(2000);
    std::vector<float> out(500);
    for (int course = 0; course < 30; ++course) {
        Stream<float> stream(kRate, 1, Options{});
        for (int n = 0; n < 10; ++n) {
            stream.setSpeed(speed());
            stream.process(in.data(), 2000, out.data(), 1 + random() % 500);
            stream.process(in.data(), 2000, out.data(), 1 + random() % 500);
            const double late = speed();
            const std::int64_t soonest = stream.changeFrame(late);
            const std::int64_t media = stream.mediaFrameOf(stream.outputFrames());
            for (const std::int64_t past : {std::int64_t(0), media - 1})
                EXPECT_EQ(stream.setSpeedAt(past, late), soonest);
            EXPECT_EQ(stream.speedAt(soonest), late);
        }
    }
}

// A speed is made, but before a frame of it is handed out another one takes its place, and that one
// is taken back in turn: the sound keeps to the time map.
TEST(Player, SpeedsThatAreNotHeardLeaveNoTrace)
{
    const std::vector<float> in(8 * 8000, 0.25f);
    std::vector<float> out(8 * 8000);
    for (std::size_t frames = 600; frames < 2200; frames += 40) {
        Stream<float> stream(16000, 8, Options{});
        const auto play = [&](std::size_t count) {
            stream.process(in.data(), count, out.data(), 8000);
        };
        play(238);
        stream.setSpeed(0.456);
        play(frames);
        stream.setSpeed(0.78);
        play(320);
        stream.setSpeed(0.43);
        play(100);
        stream.setSpeed(5.0);
        play(8000);
        EXPECT_LE(stream.mediaFrameOf(stream.outputFrames()), stream.inputFrames()) << frames;
        EXPECT_LE(stream.inputFramesFor(64), stream.mostInputFrames(64)) << frames;
    }
}

// A change that begins between two frames is dropped with the second one not handed out yet.
TEST(Player, WhatTheNextFrameSoundsStaysWhateverIsDropped)
{
    const std::vector<float> in = tone(30000);
    for (const std::int64_t at : {9990, 9991, 9992, 9993, 9994, 9995, 9996}) {
        Stream<float> stream(kRate, 1, Options{});
        stream.setSpeed(7.0);
        const std::int64_t turn = stream.setSpeedAt(at, 0.2);
        std::vector<float> out(std::size_t(turn), 0.0f);
        ASSERT_EQ(stream.process(in.data(), in.size(), out.data(), out.size()), out.size());
        const std::int64_t media = stream.mediaFrameOf(turn);
        stream.setSpeed(0.3);
        EXPECT_EQ(stream.mediaFrameOf(turn), media) << at;
        stream.clearPlans();
        EXPECT_EQ(stream.mediaFrameOf(turn), media) << at;
    }
}

TEST(Player, AJumpForgetsPlansForWhatItLeavesOut)
{
    Stream<float> stream(kRate, 1, Options{});
    std::vector<float> out;
    stream.setSpeed(0.8);
    stream.process(tone(20000), out);
    stream.setSpeedAt(30000, 2.0);
    EXPECT_TRUE(stream.jump(5000));
    EXPECT_EQ(stream.speed(), 0.8);
    EXPECT_GE(stream.setSpeedAt(9000, 1.5), 0); // of the stretch that goes in now
    EXPECT_EQ(stream.speedAt(stream.outputFrameOf(8900)), 0.8);
    EXPECT_EQ(stream.speedAt(stream.outputFrameOf(9010)), 1.5);
    stream.setSpeed(1.2);
    EXPECT_TRUE(stream.jump(0)); // a speed that was set is no plan
    EXPECT_EQ(stream.speed(), 1.2);
}

TEST(Player, RefusesChangesBeyondWhatItWasMadeFor)
{
    Options few;
    few.changes = 3;
    Stream<float> stream(kRate, 1, few);
    for (int n = 1; n <= 3; ++n)
        EXPECT_GE(stream.setSpeedAt(10000 * n, 0.5 + n), 0);
    EXPECT_EQ(stream.setSpeedAt(50000, 2.0), -1);
    EXPECT_EQ(stream.speed(), 3.5);
    EXPECT_GE(stream.setSpeedAt(20000, 1.9), 0) << "one for another";
    stream.setSpeed(1.2); // needs none of that room
    EXPECT_GE(stream.setSpeedAt(50000, 2.0), 0);
    few.fastest = 2.0;
    EXPECT_THROW(Stream<float>(kRate, 1, few).setSpeed(2.5), std::invalid_argument);
    few.longestBlock = 0;
    EXPECT_THROW(Stream<float>(kRate, 1, few), std::invalid_argument);
}

// At 1.0 nothing is inside, so a change soon after a return to it is heard at once; a change that may
// take some time is heard when that is over.
TEST(Player, ChangesAtOnceOrWithinATime)
{
    Stream<float> stream(kRate, 1, Options{});
    std::vector<float> in = tone(60000), buffer(256);
    Reader reader{in};
    const auto play = [&](int buffers) {
        for (int n = 0; n < buffers; ++n)
            ASSERT_EQ(stream.pull(buffer.data(), 256, reader), 256u);
    };
    stream.setSpeed(1.8);
    play(20);
    stream.setSpeed(1.0);
    play(1);
    EXPECT_EQ(stream.changeFrame(0.7), stream.outputFrames());
    play(20);
    EXPECT_EQ(stream.speedAt(stream.outputFrames()), 1.0);
    const std::int64_t before = stream.outputFrames();
    stream.setSpeed(0.7, 2000);
    EXPECT_EQ(stream.speedAt(before + 1999), 1.0);
    EXPECT_EQ(stream.speedAt(before + 2000), 0.7);
    play(20);
    stream.requestSpeed(3.0);
    EXPECT_EQ(stream.speed(), 0.7);
    play(1);
    EXPECT_EQ(stream.speed(), 3.0);
}

// A call that asks for more than the input brings leaves the stream as one that asks for just that.
TEST(Player, AskingForMoreThanThereIsLeavesNoTrace)
{
    constexpr std::size_t kRoom = 30000;
    const std::vector<float> in = tone(3000);
    for (unsigned seed = 1; seed <= 30; ++seed) {
        std::minstd_rand random(seed);
        Stream<float> eager(kRate, 1, Options{});
        Stream<float> modest(kRate, 1, Options{});
        std::vector<float> much(kRoom), enough(kRoom);
        for (int n = 0; n < 60; ++n) {
            const std::size_t block = random() % in.size();
            const std::size_t given = eager.process(in.data(), block, much.data(), kRoom);
            ASSERT_EQ(modest.process(in.data(), block, enough.data(), given), given);
            ASSERT_TRUE(
                std::equal(much.begin(), much.begin() + std::ptrdiff_t(given), enough.begin()))
                << "seed " << seed << ", call " << n;
            const double speed = random() % 3 == 0 ? 1.0 : 0.3 + 0.1 * double(random() % 40);
            const std::int64_t within = random() % 2 == 0 ? 0 : 200 * std::int64_t(random() % 20);
            for (auto* const stream : {&eager, &modest})
                stream->setSpeed(speed, within);
            ASSERT_EQ(eager.changeFrame(1.0), modest.changeFrame(1.0));
        }
    }
}

// While a voice joins that has made what lies behind a second change already, that one is replaced.
TEST(Player, ReplacingAChangeSoonBehindAnotherKeepsThatOne)
{
    constexpr std::int64_t kFirst = 20000;
    const std::vector<float> in = tone(60000);
    for (const std::int64_t apart : {50, 400, 900}) {
        Stream<float> stream(kRate, 1, Options{});
        stream.setSpeedAt(kFirst, 1.5);
        stream.setSpeedAt(kFirst + apart, 0.8);
        std::vector<float> out(kFirst - 16);
        Reader reader{in};
        stream.pull(out.data(), out.size(), reader);
        stream.setSpeedAt(kFirst + apart, 1.0);
        out.resize(8000);
        stream.pull(out.data(), out.size(), reader);
        EXPECT_EQ(stream.speedAt(kFirst), 1.5);
        EXPECT_EQ(stream.speedAt(stream.outputFrames()), 1.0);
        EXPECT_LE(stream.mediaFrameOf(stream.outputFrames()), stream.inputFrames()) << apart;
    }
}

// What a voice gives in a fade is older than what the next one does: its level is that of its own
// time, which has come in, not of what the map has there.
TEST(Player, LevelInAFadeDoesNotDependOnWhatHasComeIn)
{
    constexpr std::int64_t kChange = 5000;
    std::vector<float> in = tone(30000);
    for (std::size_t n = 0; n < std::size_t(kChange); ++n)
        in[n] *= 0.01f;
    for (std::size_t n = std::size_t(kChange); n < in.size(); n += 2) // louder and louder
        in[n] *= 1.0f + float(n) / 5000.0f;
    Options options;
    options.pitch = velora::Pitch::drop;
    options.latency = velora::Latency::least;
    options.longestBlock = std::int64_t(in.size());
    for (const double speed : {1.0, 8.0}) {
        std::vector<float> bySip, atOnce;
        for (const auto& [out, sip] : {std::pair{&bySip, std::size_t(1)}, {&atOnce, in.size()}}) {
            Stream<float> stream(kRate, 1, options);
            stream.setSpeed(0.125);
            stream.setSpeedAt(kChange, speed);
            for (std::size_t at = 0; at < in.size(); at += sip)
                stream.process(std::vector<float>(in.data() + at, in.data() + at + sip), *out);
        }
        EXPECT_TRUE(bySip == atOnce) << speed;
    }
}

TEST(Player, AChangeWithinATimeComesBehindWhatComesUntilThen)
{
    const std::vector<float> in = tone(60000);
    std::vector<float> out(2000);
    Stream<float> stream(kRate, 1, Options{});
    Reader reader{in};
    stream.pull(out.data(), 2000, reader);
    stream.setSpeed(1.5, 1000);
    stream.setSpeed(1.0, 4000);
    EXPECT_EQ(stream.speedAt(2999), 1.0);
    EXPECT_EQ(stream.speedAt(3000), 1.5);
    EXPECT_EQ(stream.speedAt(5999), 1.5);
    EXPECT_EQ(stream.speedAt(6000), 1.0);
    stream.setSpeed(0.7, 500); // sooner than both
    EXPECT_EQ(stream.speedAt(2500), 0.7);
    EXPECT_EQ(stream.speedAt(6000), 0.7);
    for (int n = 0; n < 4; ++n)
        ASSERT_EQ(stream.pull(out.data(), 2000, reader), 2000u);
    EXPECT_EQ(stream.speedAt(2499), 1.0);
    EXPECT_EQ(stream.mediaFrameOf(10000), 2500 + std::llround(0.7 * 7500));
}

TEST(Player, APlanForWhatIsJustOverMovesNoClock)
{
    const std::vector<float> in = tone(60000);
    std::vector<float> out(500);
    Stream<float> stream(kRate, 1, Options{});
    Reader reader{in};
    stream.setSpeed(3.07);
    for (int n = 0; n < 30; ++n) {
        stream.pull(out.data(), std::size_t(400 + n), reader);
        const std::int64_t next = stream.outputFrames();
        const std::int64_t media = stream.mediaFrameOf(next);
        for (std::int64_t back = 0; back < 4; ++back) {
            stream.setSpeedAt(media - back, 1.0);
            EXPECT_EQ(stream.mediaFrameOf(next), media) << n << ", " << back;
            stream.setSpeedAt(media - back, 3.07);
        }
        stream.setSpeed(3.07);
    }
}

// Work that is spread is the same work.
TEST(Player, SpreadWorkSoundsLikeWorkInOne)
{
    const std::vector<float> in = tone(60000);
    for (const velora::Pitch pitch : {velora::Pitch::keep, velora::Pitch::drop}) {
        Options options;
        options.pitch = pitch;
        Stream<float> spread(kRate, 1, options);
        Stream<float> whole(kRate, 1, pitch);
        std::vector<float> bySpread, byWhole;
        for (auto [stream, out] : {std::pair{&spread, &bySpread}, std::pair{&whole, &byWhole}}) {
            const std::pair<std::int64_t, double> plans[] = {
                {9000, 1.5}, {17000, 1.0}, {25000, 0.5}, {26000, 2.5}, {44000, 1.0}, {47000, 0.7}};
            for (const auto& [media, speed] : plans)
                stream->setSpeedAt(media, speed);
        }
        for (std::size_t at = 0; at < in.size(); at += 64)
            spread.process(
                std::vector<float>(in.data() + at, in.data() + std::min(at + 64, in.size())),
                bySpread);
        whole.process(in, byWhole);
        spread.flush(bySpread);
        whole.flush(byWhole);
        EXPECT_TRUE(bySpread == byWhole);
    }
}

// A fade that is planned wants input long before; with the smallest room of all it must get it.
TEST(Player, PlansWithLittleRoomDontHoldTheStreamUp)
{
    Options least;
    least.longestBlock = 1;
    const std::vector<float> in = tone(64);
    std::vector<float> out(64);
    for (const double speed : {8.0, 1.0, 0.4}) {
        Stream<float> stream(kRate, 1, least);
        stream.setSpeed(speed);
        stream.setSpeedAt(2 * kRate, speed == 0.4 ? 2.0 : 0.3);
        int idle = 0;
        while (stream.mediaFrameOf(stream.outputFrames()) < 3 * kRate && idle < 100) {
            const std::int64_t before = stream.inputFrames();
            const std::size_t given = stream.process(in.data(), 64, out.data(), 64);
            idle = given == 0 && stream.inputFrames() == before ? idle + 1 : 0;
        }
        EXPECT_EQ(idle, 0) << speed;
    }
}

TEST(Player, GoesOnThroughRequestsAndForgetsOnlyPlans)
{
    Stream<float> stream(kRate, 1, Options{});
    const std::vector<float> in = tone(200000, 1.0);
    Reader reader{in};
    std::vector<float> out(2000);
    stream.seek(48000);
    for (const double speed : {1.5, 0.3, 1.0, 3.0}) {
        stream.requestSpeed(speed);
        EXPECT_EQ(stream.pull(out.data(), 64, reader), 64u) << speed;
        EXPECT_LT(largestStep({out.begin(), out.begin() + 64}), 1.5 * kLargestStep) << speed;
        EXPECT_EQ(stream.pull(out.data(), 2000, reader), 2000u) << speed;
    }
    stream.setSpeed(2.0);
    stream.setSpeedAt(stream.mediaFrameOf(stream.outputFrames()) + 50000, 0.5);
    stream.clearPlans();
    EXPECT_EQ(stream.speed(), 2.0);
    EXPECT_EQ(stream.pull(nullptr, 64, reader), 0u);
    stream.requestSpeed(2.5);
    stream.reset();
    stream.pull(out.data(), 64, reader);
    EXPECT_EQ(stream.speed(), 1.0) << "as new";
}

// Input that has no room waits as far as it was said that it may, and is not lost.
TEST(Player, TakesNoMoreThanItHasRoomFor)
{
    Options small;
    small.longestBlock = 1000;
    Stream<float> stream(kRate, 1, small);
    stream.setSpeed(0.5);
    const std::vector<float> in = tone(200000);
    const std::size_t before = allocationCount();
    EXPECT_EQ(stream.process(in.data(), in.size(), static_cast<float*>(nullptr), 0), 0u);
    const auto taken = std::size_t(stream.inputFrames());
    EXPECT_GE(taken, 1000u);
    EXPECT_LT(taken, 100000u);
    EXPECT_EQ(allocationCount(), before);

    std::vector<float> out, expected;
    stream.process(in.data() + taken, in.size() - taken, out);
    stream.flush(out);
    Stream<float> free(kRate, 1);
    free.setSpeed(0.5);
    free.process(in, expected);
    free.flush(expected);
    EXPECT_TRUE(out == expected);
}

// A request makes for more output than the stream has just said.
TEST(Player, ARequestLosesNothingOfWhatFillsAVector)
{
    Options small;
    small.longestBlock = 1;
    Stream<float> stream(kRate, 1, small);
    stream.setSpeed(8.0);
    std::vector<float> out;
    stream.process(tone(1000), out);
    stream.requestSpeed(0.125);
    stream.process(tone(100000), out);
    EXPECT_EQ(stream.inputFrames(), 101000);
}

TEST(Player, AMovedFromStreamGivesNothing)
{
    Stream<float> stream(kRate, 2);
    Stream<float> other = std::move(stream);
    std::vector<float> samples(20), out;
    EXPECT_EQ(stream.process(samples.data(), 10, samples.data() + 10, 5), 0u); // NOLINT
    EXPECT_EQ(stream.process(samples, out), 0u);
    EXPECT_EQ(stream.flush(out), 0u);
    EXPECT_EQ(stream.outputFrames() + stream.inputFrames() + stream.hopFrames(), 0);
    stream.setSpeed(2.0);
    stream.seek(5);
    EXPECT_FALSE(stream.jump(5));
    other = Stream<float>(kRate, 1);
    EXPECT_EQ(other.channels(), 1);
}

} // namespace
