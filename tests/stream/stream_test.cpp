// velora::Stream from outside: lengths, media times, cutting, channels in step, formats, seams.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/allocations.h"

#include <gtest/gtest.h>
#include <velora/stream.hpp>

namespace {

using velora::Int24In32;
using velora::Pitch;
using velora::Sound;
using velora::Stream;
using Change = std::pair<std::size_t, double>; // input frame, speed

constexpr double kTwoPi = 2.0 * std::numbers::pi;
constexpr std::array kSpeeds = {0.125, 0.2, 0.25, 0.3, 0.5, 0.51, 0.8, 1.0, 1.3, 2.0, 5.0, 8.0};

template <class Sample>
std::vector<Sample> noise(std::size_t samples, double amplitude, unsigned seed)
{
    std::minstd_rand random(seed);
    std::uniform_real_distribution<double> value(-amplitude, amplitude);
    std::vector<Sample> out(samples);
    for (Sample& sample : out)
        sample = Sample(value(random));
    return out;
}

std::vector<Change> randomChanges(std::size_t frames, unsigned most, unsigned seed)
{
    std::minstd_rand random(seed);
    std::vector<Change> changes;
    for (std::size_t at = 0; at < frames; at += random() % most)
        changes.emplace_back(at, random() % 4 == 0 ? 1.0 : kSpeeds[random() % kSpeeds.size()]);
    return changes;
}

/// Plays `in` with changes of speed, cut at them and into blocks that `blockSize()` chooses;
/// `call(in, frames)` processes a block.
template <class Format, class BlockSize, class Call>
void playBlocks(Stream<Format>& stream, std::size_t frames, const std::vector<Change>& changes,
                BlockSize blockSize, Call call)
{
    std::size_t next = 0;
    for (std::size_t at = 0; at < frames;) {
        for (; next < changes.size() && changes[next].first <= at; ++next)
            stream.setSpeed(changes[next].second);
        const std::size_t end = next < changes.size() ? changes[next].first : frames;
        const std::size_t block = std::min<std::size_t>(std::min(end, frames) - at, blockSize());
        call(at, block);
        at += block;
    }
}

template <class Format>
std::vector<typename Stream<Format>::Sample>
play(Stream<Format>& stream, const std::vector<typename Stream<Format>::Sample>& in,
     const std::vector<Change>& changes = {})
{
    std::vector<typename Stream<Format>::Sample> out;
    const std::size_t width = std::size_t(stream.channels());
    playBlocks(
        stream, in.size() / width, changes, [] { return std::size_t(-1); },
        [&](std::size_t at, std::size_t frames) {
            stream.process(in.data() + at * width, frames, out);
        });
    stream.flush(out);
    return out;
}

/// Every `step`th sample from `first` on.
template <class Sample>
std::vector<Sample> channelOf(const std::vector<Sample>& in, std::size_t first, std::size_t step)
{
    std::vector<Sample> out;
    for (std::size_t n = first; n < in.size(); n += step)
        out.push_back(in[n]);
    return out;
}

TEST(Stream, LengthIsExactAtEverySpeedAndRate)
{
    for (const int rate : {8000, 22050, 44100, 96000, 192000})
        for (const Pitch pitch : {Pitch::keep, Pitch::drop})
            for (const double speed : kSpeeds)
                for (const std::size_t frames : {0u, 1u, 100u, 2048u, 20011u}) {
                    Stream<float> stream(rate, 1, pitch);
                    stream.setSpeed(speed);
                    const auto out = play(stream, noise<float>(frames, 0.5, 1));
                    EXPECT_EQ(out.size(), std::size_t(std::llround(double(frames) / speed)))
                        << rate << " Hz, speed " << speed << ", " << frames;
                    EXPECT_EQ(std::int64_t(out.size()), stream.outputFrameOf(std::int64_t(frames)));
                }
}

// A click in every 30 hops; each must sound within 1.4 hops of where the time map has it. The
// vocoder puts an onset where an analysis hop begins, so below 0.5 a hop of media counts.
struct Course {
    const char* name;
    std::vector<double> speeds; // each for 40 to 70 hops
};

class ClickTrain : public testing::TestWithParam<Course> {};

TEST_P(ClickTrain, SoundsWhereTheTimeMapHasIt)
{
    for (const auto& [rate, hop] :
         {std::pair{8000, 128}, {22050, 256}, {44100, 512}, {96000, 1024}}) {
        std::minstd_rand random(3);
        std::vector<Change> changes;
        std::size_t frames = 0;
        for (const double speed : GetParam().speeds) {
            changes.emplace_back(frames, speed);
            frames += (40 + random() % 30) * std::size_t(hop) + random() % 100;
        }
        std::vector<float> in(frames);
        std::vector<std::int64_t> clicks;
        for (std::size_t at = std::size_t(13 * hop); at + 12 * std::size_t(hop) < frames;
             at += std::size_t(29 * hop + 191)) {
            clicks.push_back(std::int64_t(at));
            in[at] = in[at + 1] = 0.6f;
        }
        Stream<float> stream(rate, 1);
        const auto out = play(stream, in, changes);
        for (const std::int64_t click : clicks) {
            const std::int64_t expected = stream.outputFrameOf(click);
            double energy = 0.0;
            double moment = 0.0;
            for (std::int64_t n = expected - 6 * hop; n < expected + 6 * hop; ++n)
                if (n >= 0 && n < std::int64_t(out.size())) {
                    const double power = std::pow(out[std::size_t(n)], 2);
                    energy += power;
                    moment += power * double(n - expected);
                }
            const double speed =
                double(stream.mediaFrameOf(expected + hop) - stream.mediaFrameOf(expected)) / hop;
            ASSERT_GT(energy, 0.0) << rate << " Hz, click at " << click;
            EXPECT_LE(std::abs(moment / energy), 1.4 * hop / std::min(1.0, speed))
                << rate << " Hz, click at " << click << ", speed " << speed;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Courses, ClickTrain,
    testing::Values(Course{"constant", {0.8}}, Course{"slow", {0.3}}, Course{"fast", {1.7}},
                    Course{"fromAndToNormal", {1.0, 0.8, 1.0, 1.5, 1.0, 0.4, 1.0}},
                    Course{"glides", {0.6, 0.8, 1.3, 0.7, 1.9, 0.9}},
                    Course{"throughSlow", {0.3, 0.7, 0.5, 0.45, 1.2, 0.35}}),
    [](const auto& course) { return course.param.name; });

// Lone clicks, of the low band and of the high band, at uneven places: how late each is heard, ms.
std::vector<double> clickDelays(double speed, double radiansPerFrame)
{
    constexpr int kRate = 44100;
    std::vector<float> in(8 * kRate);
    std::vector<std::size_t> clicks;
    for (std::size_t at = kRate; at < in.size() - kRate; at += 14000 + at % 311) {
        clicks.push_back(at);
        for (std::size_t n = 0; n < 64; ++n)
            in[at + n] =
                float(0.7 * std::exp(-double(n) / 10.0) * std::cos(double(n) * radiansPerFrame));
    }
    Stream<float> stream(kRate, 1);
    const auto out = play(stream, in, {{0, speed}});
    std::vector<double> delays;
    for (const std::size_t click : clicks) {
        const auto expected = std::int64_t(double(click) / speed);
        double energy = 0.0;
        double moment = 0.0;
        for (std::int64_t n = -1500; n < 1500; ++n) {
            const double power = std::pow(out[std::size_t(expected + n)], 2);
            energy += power;
            moment += power * double(n);
        }
        delays.push_back(moment / energy * 1000.0 / kRate);
    }
    return delays;
}

TEST(Stream, ClicksAreHeardInTimeAndAlike)
{
    for (const double speed : {0.75, 0.9, 1.1, 1.3})
        for (const double radiansPerFrame : {0.2, 0.9}) {
            const std::vector<double> delays = clickDelays(speed, radiansPerFrame);
            double mean = 0.0;
            for (const double delay : delays)
                mean += delay / double(delays.size());
            double deviation = 0.0;
            for (const double delay : delays)
                deviation += std::pow(delay - mean, 2) / double(delays.size());
            EXPECT_NEAR(mean, 0.0, 1.2) << speed << ", " << radiansPerFrame;
            EXPECT_LT(std::sqrt(deviation), 2.0) << speed << ", " << radiansPerFrame;
        }
}

TEST(Stream, PitchDropKeepsTheTimeMap)
{
    for (const int rate : {44100, 96000}) {
        std::vector<float> in(60000);
        for (std::size_t n = 0; n < in.size(); ++n) // a smooth bump, below the low-pass
            in[n] = float(0.5 * std::exp(-std::pow((double(n) - 30000.0) / 1000.0, 2)));
        for (const double speed : {0.5, 0.25, 0.125}) {
            Stream<float> stream(rate, 1, Pitch::drop);
            const auto out = play(stream, in, {{0, 1.0}, {5000, speed}});
            const auto peak = std::max_element(out.begin(), out.end()) - out.begin();
            EXPECT_NEAR(double(stream.mediaFrameOf(peak)), 30000.0, 12.0) << speed;
        }
    }
}

TEST(Stream, OutputDoesNotDependOnBlocksAndTheQueriesAreExact)
{
    for (unsigned seed = 0; seed < 24; ++seed) {
        std::minstd_rand random(seed + 1);
        const int rate = std::array{11025, 44100, 96000}[seed % 3];
        const Pitch pitch = seed % 5 == 0 ? Pitch::drop : Pitch::keep;
        const std::size_t frames = 60000;
        auto in = noise<std::int16_t>(3 * frames, 9000, seed);
        for (std::size_t n = 0; n < in.size(); ++n) // quiet and loud by turns, so that gains move
            in[n] = std::int16_t(n / 12000 % 2 == 0 ? in[n] / 100 : in[n]);
        auto changes = randomChanges(frames, seed % 2 == 0 ? 900 : 20000, seed + 7);
        // What is set is heard behind what was handed out; what is planned, where it was planned.
        const bool isPlanned = seed % 3 == 0;

        // With all memory taken at the start the work is spread, and frames come bit by bit.
        velora::Options bounded;
        bounded.pitch = pitch;
        bounded.longestBlock = bounded.changes = std::int64_t(frames);
        const auto make = [&] {
            return seed % 4 < 2 ? Stream<std::int16_t>(rate, 3, bounded)
                                : Stream<std::int16_t>(rate, 3, pitch);
        };
        auto whole = make();
        auto cut = make();
        if (isPlanned) {
            for (auto* const stream : {&whole, &cut})
                for (const auto& [at, speed] : changes)
                    stream->setSpeedAt(std::int64_t(at), speed);
            changes.clear();
        }
        const auto expected = play(whole, in, changes);
        EXPECT_EQ(expected.size(), 3u * std::size_t(whole.outputFrameOf(frames)));

        std::vector<std::int16_t> out;
        playBlocks(
            cut, frames, changes, [&] { return 1 + random() % (seed % 4 == 0 ? 300 : 5000); },
            [&](std::size_t at, std::size_t block) {
                const std::size_t most = cut.maxOutputFrames(block);
                const std::size_t wanted = random() % 2000;
                const std::size_t needed = cut.inputFramesFor(wanted);
                if (needed > 0) {
                    EXPECT_LT(cut.maxOutputFrames(needed - 1), wanted);
                }
                EXPECT_GE(cut.maxOutputFrames(needed), wanted);
                const std::size_t room = isPlanned && random() % 3 == 0 ? random() % 700 : 100000;
                const std::size_t before = out.size();
                out.resize(before + 3 * room);
                const std::size_t given =
                    cut.process(in.data() + 3 * at, block, out.data() + before, room);
                EXPECT_EQ(given, std::min(most, room));
                out.resize(before + 3 * given);
                EXPECT_EQ(cut.latencyFrames(),
                          cut.inputFrames() - cut.mediaFrameOf(cut.outputFrames()));
            });
        for (std::size_t given = 7; given == 7;) { // the tail in small helpings
            const std::size_t before = out.size();
            out.resize(before + 3 * 7);
            given = cut.flush(out.data() + before, 7);
            out.resize(before + 3 * given);
        }
        ASSERT_EQ(out.size(), expected.size()) << "seed " << seed;
        EXPECT_TRUE(out == expected) << "seed " << seed;
    }
}

// Where a whole hop of stereo has room it is written to the caller at once; with less room it isn't.
// Input is read from the caller's memory during the call, and not after it.
TEST(Stream, BuffersAreTheCallersAgainWhenACallReturns)
{
    constexpr std::size_t kFrames = 40000;
    constexpr float kCanary = 77.0f;
    const auto in = noise<float>(2 * kFrames, 0.5, 3);
    for (unsigned seed = 0; seed < 16; ++seed) {
        velora::Options options;
        options.sound = seed % 2 == 0 ? Sound::natural : Sound::engine;
        options.longestBlock = kFrames;
        const int rate = seed % 3 == 0 ? 96000 : 44100;
        const auto playWith = [&](std::size_t mostRoom) {
            std::minstd_rand random(seed + 1);
            auto stream = seed % 4 < 2 ? Stream<float>(rate, 2, options)
                                       : Stream<float>(rate, 2, Pitch::keep, options.sound);
            stream.setSpeed(std::array{0.3, 0.8, 1.5, 3.0}[seed / 4]);
            stream.setSpeedAt(20000, 1.1);
            stream.setSpeedAt(27000, 1.0);
            stream.setSpeedAt(33000, 0.7);
            std::vector<float> out;
            for (std::size_t at = 0; at < kFrames;) {
                const std::size_t frames = std::min<std::size_t>(kFrames - at, random() % 3000);
                const auto begin = in.begin() + std::ptrdiff_t(2 * at);
                std::vector<float> block(begin, begin + std::ptrdiff_t(2 * frames));
                at += frames;
                for (std::size_t given = 1, taken = frames; given > 0; taken = 0) {
                    const std::size_t room = 1 + random() % mostRoom;
                    std::vector<float> buffer(2 * (room + 1), kCanary);
                    given = stream.process(block.data(), taken, buffer.data(), room);
                    const auto end = buffer.begin() + std::ptrdiff_t(2 * given);
                    EXPECT_EQ(std::count(end, buffer.end(), kCanary), buffer.end() - end);
                    out.insert(out.end(), buffer.begin(), end);
                    std::fill(block.begin(), block.end(), kCanary);
                }
            }
            stream.flush(out);
            return out;
        };
        const auto inParts = playWith(100);
        const auto atOnce = playWith(5000);
        EXPECT_TRUE(inParts == atOnce) << "seed " << seed;
    }
}

// Positions of frames that have come out stay what they were, and time never runs backward.
TEST(Stream, TimeMapIsSettledForWhatHasComeOut)
{
    const std::size_t frames = 80000;
    const auto in = noise<float>(frames, 0.3, 5);
    Stream<float> stream(44100, 1);
    std::vector<float> out;
    std::vector<std::int64_t> media; // of every output frame, asked for when it came
    playBlocks(
        stream, frames, randomChanges(frames, 1500, 11), [] { return std::size_t(700); },
        [&](std::size_t at, std::size_t block) {
            stream.process(in.data() + at, block, out);
            while (media.size() < out.size())
                media.push_back(stream.mediaFrameOf(std::int64_t(media.size())));
        });
    for (std::size_t n = 0; n < media.size(); ++n) {
        const auto frame = std::int64_t(n);
        ASSERT_EQ(stream.mediaFrameOf(frame), media[n]) << n;
        ASSERT_GE(media[n], media[n - std::min<std::size_t>(n, 1)]) << n;
        // There and back: within what rounding to a whole media frame leaves.
        ASSERT_NEAR(double(stream.outputFrameOf(media[n])), double(frame), 0.5 / 0.125 + 1.0);
    }
}

/// The lag in frames at which `b` is most like `a` around frame `at`,
/// after a high-pass that leaves nothing of a low tone.
int lagBetween(const std::vector<float>& a, const std::vector<float>& b, std::int64_t at)
{
    constexpr std::int64_t kReach = 1500;
    const auto high = [](const std::vector<float>& x, std::int64_t n) {
        const auto i = std::size_t(n);
        return double(x[i]) - 2.0 * x[i - 4] + x[i - 8];
    };
    int best = 0;
    double most = -1.0;
    for (int lag = -600; lag <= 600; lag += 2) {
        double sum = 0.0;
        for (std::int64_t n = at - kReach; n < at + kReach; n += 3)
            sum += std::abs(high(a, n)) * std::abs(high(b, n + lag));
        if (sum > most) {
            most = sum;
            best = lag;
        }
    }
    return best;
}

// A low tone sets in in the second pair only: it hides onsets there, and its level jump would
// lengthen a transition of the engine. Bursts that all channels share must still fall together.
TEST(Stream, ChannelsStayInStepWhateverTheyCarry)
{
    const std::size_t frames = 300000;
    const std::size_t period = 12131;
    const double omega = kTwoPi / 48000.0;
    std::vector<float> in(5 * frames);
    for (std::size_t n = 0; n < frames; ++n) {
        const double since = double(n % period);
        const double window = since < 1920 ? 0.5 - 0.5 * std::cos(kTwoPi * since / 1920) : 0.0;
        const double burst = 0.15 * window * std::sin(omega * 1200.0 * double(n));
        const double tone = 0.4 * std::sin(omega * 70.0 * double(n));
        for (std::size_t c = 0; c < 5; ++c)
            in[5 * n + c] = float(burst + (c / 2 == 1 && n > 124500 ? tone : 0.0));
    }
    for (const double speed : {0.6, 0.8, 1.3}) {
        Stream<float> stream(48000, 5);
        const auto out = play(stream, in, {{3000, speed}});
        const auto first = channelOf(out, 0, 5);
        for (std::size_t at = 2 * period; at + period < frames; at += period)
            for (const std::size_t other : {2u, 4u}) {
                const std::int64_t middle = stream.outputFrameOf(std::int64_t(at) + 960);
                const int lag = lagBetween(first, channelOf(out, other, 5), middle);
                EXPECT_LE(std::abs(lag - lagBetween(first, first, middle)), 64)
                    << "speed " << speed << ", burst at " << at << ", channel " << other;
            }
    }
}

template <class T>
class EveryFormat : public testing::Test {
};
using Formats = testing::Types<std::int16_t, Int24In32, std::int32_t, float>;
TYPED_TEST_SUITE(EveryFormat, Formats);

template <class Format>
constexpr double kFullScale = std::is_same_v<Format, std::int16_t>   ? 32768.0
                              : std::is_same_v<Format, Int24In32>    ? 8388608.0
                              : std::is_same_v<Format, std::int32_t> ? 2147483648.0
                                                                     : 1.0;

TYPED_TEST(EveryFormat, PassesAtOnceAndUntouchedAtSpeedOne)
{
    using Sample = typename Stream<TypeParam>::Sample;
    Stream<TypeParam> stream(44100, 2);
    const auto in = noise<Sample>(2 * 777, 0.999 * kFullScale<TypeParam>, 1);
    std::vector<Sample> out;
    EXPECT_EQ(stream.process(in, out), 777u);
    EXPECT_TRUE(out == in);
    EXPECT_EQ(stream.latencyFrames(), 0);
}

TYPED_TEST(EveryFormat, SoundsLikeSixteenBits)
{
    using Sample = typename Stream<TypeParam>::Sample;
    const auto in16 = noise<std::int16_t>(2 * 30000, 12000, 2);
    const double scale = kFullScale<TypeParam> / 32768.0;
    std::vector<Sample> in;
    for (const std::int16_t sample : in16)
        in.push_back(Sample(sample * scale));
    const std::vector<Change> changes = {{2000, 0.8}, {20000, 0.3}};
    Stream<std::int16_t> reference(44100, 2, Pitch::keep, Sound::engine);
    Stream<TypeParam> stream(44100, 2, Pitch::keep, Sound::engine);
    const auto expected = play(reference, in16, changes);
    const auto out = play(stream, in, changes);
    ASSERT_EQ(out.size(), expected.size());
    double worst = 0.0;
    for (std::size_t n = 0; n < out.size(); ++n)
        worst = std::max(worst, std::abs(double(out[n]) / scale - expected[n]));
    EXPECT_LE(worst, 1.0) << "16-bit steps";
}

TYPED_TEST(EveryFormat, PlanarEqualsInterleaved)
{
    using Sample = typename Stream<TypeParam>::Sample;
    const std::size_t frames = 9000;
    const auto in = noise<Sample>(3 * frames, 0.3 * kFullScale<TypeParam>, 3);
    Stream<TypeParam> interleaved(44100, 3);
    interleaved.setSpeed(0.9);
    const auto expected = play(interleaved, in);

    std::vector<Sample> planes[3], outPlanes[3];
    const Sample* from[3];
    Sample* to[3];
    for (std::size_t c = 0; c < 3; ++c) {
        planes[c] = channelOf(in, c, 3);
        outPlanes[c].resize(expected.size() / 3);
        from[c] = planes[c].data();
        to[c] = outPlanes[c].data();
    }
    Stream<TypeParam> planar(44100, 3);
    planar.setSpeed(0.9);
    const std::size_t given = planar.process(from, frames, to, expected.size() / 3);
    for (Sample*& plane : to)
        plane += given;
    planar.flush(to, expected.size() / 3 - given);
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_TRUE(outPlanes[c] == channelOf(expected, c, 3)) << "channel " << c;
}

// No step at a change is steeper than the tone itself, at its loudest, but for a little.
TEST(Stream, ChangesOfSpeedDoNotClick)
{
    const std::size_t frames = 200000;
    const double omega = kTwoPi * 440.0 / 44100.0;
    std::vector<float> in(frames);
    for (std::size_t n = 0; n < frames; ++n)
        in[n] = float(0.4 * std::sin(omega * double(n)));
    for (const Pitch pitch : {Pitch::keep, Pitch::drop}) {
        Stream<float> stream(44100, 1, pitch);
        const auto out = play(stream, in,
                              {{20000, 0.8},
                               {40000, 1.0},
                               {60000, 1.6},
                               {80000, 0.9},
                               {100000, 0.3},
                               {110000, 0.4},
                               {120000, 0.5},
                               {140000, 1.0},
                               {160000, 0.25},
                               {170000, 1.2}});
        double steepest = 0.0;
        for (std::size_t n = 1; n < out.size() - 2048; ++n)
            steepest = std::max(steepest, double(std::abs(out[n] - out[n - 1])));
        EXPECT_LT(steepest, 1.5 * 0.4 * omega);
    }
}

// What joins was primed far enough back: level right after the fade against that much later.
TEST(Stream, ChangesOfSpeedKeepTheLevel)
{
    auto in = noise<float>(100000, 0.01, 13);
    for (std::size_t n = 0; n < in.size(); ++n)
        for (const double hertz : {150.0, 300.0, 450.0, 600.0, 750.0})
            in[n] += float(0.1 * std::sin(kTwoPi * hertz / 44100.0 * double(n)));
    for (const double from : {1.0, 0.4})
        for (const double speed : {0.2, 0.4, 0.5, 0.8, 1.3, 2.0})
            if (from != speed) {
                Stream<float> stream(44100, 1);
                stream.setSpeed(from);
                std::vector<float> out;
                stream.process(in.data(), 80 * 512, out); // whole hops: it changes here
                const std::size_t change = out.size();
                stream.setSpeed(speed);
                stream.process(in.data() + 80 * 512, 59000, out);
                const auto power = [&](std::size_t at, std::size_t hops) {
                    double sum = 0.0;
                    for (std::size_t n = at; n < at + 512 * hops; ++n)
                        sum += out[n] * out[n];
                    return sum / double(hops);
                };
                for (std::size_t hop = 2; hop < 8; hop += 2)
                    EXPECT_NEAR(10.0 * std::log10(power(change + 512 * hop, 2) /
                                                  power(change + 512 * 20, 20)),
                                0.0, 3.0)
                        << from << " to " << speed << ", hop " << hop;
            }
}

TEST(Stream, ResetMakesItLikeNewAndSeekKeepsTheSpeed)
{
    const auto in = noise<float>(2 * 30000, 0.4, 9);
    const std::vector<Change> changes = {{0, 0.6}, {9000, 1.0}, {15000, 0.4}, {16000, 2.0}};
    Stream<float> fresh(44100, 2);
    const auto expected = play(fresh, in, changes);
    Stream<float> used(44100, 2);
    std::vector<float> out;
    used.setSpeed(0.3);
    used.process(in.data(), 20100, out);
    used.setSpeed(1.9); // not in force yet
    used.reset();
    EXPECT_EQ(used.speed(), 1.0);
    EXPECT_TRUE(play(used, in, changes) == expected);

    used.seek(1000000); // at 2.0, after the flush
    EXPECT_EQ(used.speed(), 2.0);
    EXPECT_EQ(used.mediaFrameOf(0), 1000000);
    EXPECT_EQ(used.outputFrameOf(1000200), 100);
    fresh.seek(5);
    fresh.reset();
    EXPECT_EQ(fresh.mediaFrameOf(0), 0);
    fresh.setSpeed(2.0);
    fresh.seek(7);
    EXPECT_TRUE(play(used, in) == play(fresh, in)) << "faded in, wherever it begins";
    EXPECT_EQ(used.mediaFrameOf(used.outputFrames()), 1030000);
}

// A player with a slider: a buffer of 512 frames at a time, always filled, nothing allocated.
TEST(Stream, FillsEveryBufferAndAllocatesNothingInProcess)
{
    std::minstd_rand random(4);
    const auto in = noise<float>(6 * 40000, 0.4, 10);
    std::vector<float> out(6 * 512);
    for (const int rate : {44100, 192000}) {
        Stream<float> stream(rate, 6);
        for (int buffer = 0; buffer < 600; ++buffer) {
            if (random() % 3 == 0)
                stream.setSpeed(random() % 3 == 0 ? 1.0 : kSpeeds[random() % kSpeeds.size()]);
            const std::size_t before = allocationCount();
            const std::size_t frames = stream.inputFramesFor(512);
            ASSERT_LE(frames, 40000u * (rate == 192000 ? 4 : 1));
            std::size_t given = 0;
            for (std::size_t left = frames; left > 0 || given < 512;) {
                const std::size_t block = std::min<std::size_t>(left, 40000);
                given += stream.process(in.data(), block, out.data() + 6 * given, 512 - given);
                left -= block;
            }
            ASSERT_EQ(given, 512u);
            ASSERT_EQ(allocationCount(), before) << rate << " Hz, buffer " << buffer;
        }
    }
}

template <class Call>
std::string messageOf(Call call)
{
    try {
        call();
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "no exception";
}

// Jumps of every kind, far closer together than a pipeline is long:
// the map stays what was asked for.
TEST(Stream, FollowsAPlanToTheFrame)
{
    for (const auto& [rate, hop] : {std::pair{8000, 128}, {44100, 512}, {96000, 1024}})
        for (const Pitch pitch : {Pitch::keep, Pitch::drop}) {
            std::minstd_rand random(unsigned(rate) + 6);
            const std::size_t frames = 400 * std::size_t(hop);
            std::vector<Change> plan;
            double exact = 0.0; // output of what was planned
            for (std::size_t at = 0; at < frames;) {
                const std::size_t length =
                    std::min<std::size_t>(1 + random() % std::size_t(30 * hop), frames - at);
                plan.emplace_back(at, kSpeeds[random() % kSpeeds.size()]);
                exact += double(length) / plan.back().second;
                at += length;
            }
            const auto in = noise<float>(2 * frames, 0.3, 18);
            Stream<float> stream(rate, 2, pitch);
            for (const auto& [at, speed] : plan)
                EXPECT_NEAR(double(stream.setSpeedAt(std::int64_t(at), speed)),
                            double(stream.outputFrameOf(std::int64_t(at))), 1.0);
            std::vector<float> out;
            for (std::size_t at = 0; at < frames;) {
                const std::size_t block = std::min<std::size_t>(1 + random() % 3000, frames - at);
                const std::size_t before = allocationCount();
                out.reserve(out.size() + 2 * stream.maxOutputFrames(block));
                const std::size_t reserved = allocationCount();
                EXPECT_LE(reserved, before + 1);
                stream.process(in.data() + 2 * at, block, out);
                ASSERT_EQ(allocationCount(), reserved) << rate << " Hz, frame " << at;
                at += block;
            }
            stream.flush(out);
            EXPECT_EQ(out.size(), 2 * std::size_t(std::llround(exact))) << rate;
        }
}

TEST(Stream, APlanForTheSameFrameReplacesTheOneBefore)
{
    const auto in = noise<float>(48000, 0.3, 22);
    for (const double first : {1.0, 0.3, 0.9})
        for (const double second : {1.0, 0.3, 0.9, 1.25})
            for (const std::int64_t later : {0, 1}) {
                Stream<float> stream(48000, 1);
                stream.setSpeed(0.8);
                std::vector<float> out;
                stream.process(in.data(), 20000, out);
                stream.setSpeedAt(40001, first);
                stream.setSpeedAt(40001 + later, second);
                EXPECT_EQ(stream.mediaFrameOf(50001), 40001);
                stream.process(in.data() + 20000, 28000, out);
                stream.flush(out);
                const double exact =
                    40001 / 0.8 + double(later) / first + double(48000 - 40001 - later) / second;
                EXPECT_NEAR(double(out.size()), exact, 1.0) << first << ", " << second;
            }
}

// Planned or set at the same place, the sound is the same; a late plan is a change at once.
TEST(Stream, PlannedChangesSoundLikeSetOnes)
{
    const auto in = noise<float>(60000, 0.3, 19);
    for (const double from : {1.0, 0.4, 0.8})
        for (const double to : {1.0, 0.3, 0.6, 2.0})
            if (from != to) {
                Stream<float> set(44100, 1);
                set.setSpeed(from);
                std::vector<float> expected;
                set.process(in.data(), 30000, expected);
                const std::int64_t frame = set.changeFrame(to);
                const std::int64_t media = set.mediaFrameOf(frame);
                set.setSpeed(to);
                set.process(in.data() + 30000, 30000, expected);
                set.flush(expected);

                if (from == 1.0) { // else `media` is no whole frame
                    Stream<float> planned(44100, 1);
                    planned.setSpeedAt(media, to);
                    EXPECT_TRUE(play(planned, in) == expected) << from << " to " << to;
                }
                Stream<float> late(44100, 1);
                late.setSpeed(from);
                std::vector<float> lateOut;
                late.process(in.data(), 30000, lateOut);
                EXPECT_EQ(late.setSpeedAt(1000, to), frame) << from << " to " << to;
                late.process(in.data() + 30000, 30000, lateOut);
                late.flush(lateOut);
                EXPECT_TRUE(lateOut == expected) << from << " to " << to;
            }
}

TEST(Stream, TellsWhereAChangeOfSpeedWouldBegin)
{
    const auto in = noise<float>(31000, 0.3, 17);
    for (const double from : {0.3, 0.8, 1.0, 3.0})
        for (const double to : {0.3, 0.8, 1.0, 3.0})
            if (from != to) {
                Stream<float> stream(44100, 1);
                std::vector<float> out;
                stream.setSpeed(from);
                stream.process(in.data(), 30000, out); // not whole hops
                const std::int64_t frame = stream.changeFrame(to);
                const std::int64_t media = stream.mediaFrameOf(frame);
                stream.setSpeed(to);
                stream.process(in.data() + 30000, std::size_t(stream.hopFrames()), out);
                const auto mediaAt = [&](std::int64_t n) {
                    return double(stream.mediaFrameOf(frame + n));
                };
                EXPECT_NEAR(mediaAt(0), double(media), 1.0) << from << " to " << to;
                EXPECT_NEAR(mediaAt(1000), double(media) + 1000 * to, 1.0) << from << " to " << to;
                EXPECT_NEAR(mediaAt(-1000), double(media) - 1000 * from, 1.0)
                    << from << " to " << to;
            }
}

TEST(Stream, WildPositionsAndCountsAreHarmless)
{
    using Limits = std::numeric_limits<std::int64_t>;
    for (const double speed : {0.125, 1.0, 8.0})
        for (const std::int64_t place : {Limits::min(), std::int64_t(0), Limits::max()}) {
            Stream<float> stream(44100, 1);
            stream.setSpeed(speed);
            stream.seek(place);
            stream.setSpeedAt(Limits::max(), 0.3);
            stream.setSpeedAt(Limits::min(), speed);
            for (const std::int64_t frame : {Limits::min(), std::int64_t(7), Limits::max()}) {
                stream.mediaFrameOf(frame);
                stream.outputFrameOf(frame);
            }
            EXPECT_GT(stream.maxOutputFrames(std::size_t(-1)), std::size_t(10000000)) << speed;
            EXPECT_GT(stream.inputFramesFor(std::size_t(-1)), std::size_t(10000000)) << speed;
            std::vector<float> out;
            stream.process(noise<float>(3000, 0.3, 20), out);
            stream.flush(out);
            EXPECT_EQ(out.size(), std::size_t(std::llround(3000.0 / speed)));
        }
}

// Whatever else sounds: the natural sound makes alike what is alike.
TEST(Stream, EqualChannelsStayEqualThroughChangesOfSpeed)
{
    const std::size_t frames = 60000;
    const auto tones = noise<std::int16_t>(frames, 12000, 21);
    const auto others = noise<std::int16_t>(frames, 3000, 22);
    std::vector<std::int16_t> in(4 * frames); // equal, equal; of its own, of its own
    for (std::size_t n = 0; n < frames; ++n) {
        in[4 * n] = in[4 * n + 1] = tones[n];
        in[4 * n + 2] = others[n];
        in[4 * n + 3] = tones[n / 2];
    }
    Stream<std::int16_t> stream(44100, 4);
    std::vector<std::int16_t> out;
    playBlocks(
        stream, frames, randomChanges(frames, 12000, 23), [] { return std::size_t(500); },
        [&](std::size_t at, std::size_t block) {
            stream.process(
                std::vector<std::int16_t>(in.data() + 4 * at, in.data() + 4 * (at + block)), out);
        });
    bool isSound = false;
    for (std::size_t n = 0; n < out.size(); n += 4) {
        ASSERT_EQ(out[n], out[n + 1]) << n / 4;
        isSound = isSound || out[n] != 0;
    }
    EXPECT_TRUE(isSound);
}

TEST(Stream, RefusesWhatItCannotDoByNameAndValue)
{
    Stream<float> stream(44100, 2);
    stream.setSpeed(0.7);
    for (const double speed : {0.1249, 8.001, -1.0, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_THROW(stream.setSpeed(speed), std::invalid_argument) << speed;
    EXPECT_EQ(stream.speed(), 0.7) << "stays";
    EXPECT_EQ(messageOf([&] { stream.setSpeed(9.5); }),
              "velora::Stream: speed is 9.5; it must be 0.125 to 8");
    EXPECT_EQ(messageOf([] { Stream<float>(7999, 2); }),
              "velora::Stream: sample rate is 7999 Hz; it must be 8000 to 192000 Hz");
    EXPECT_EQ(messageOf([] { Stream<float>(44100, 33); }),
              "velora::Stream: channel count is 33; it must be 1 to 32");
    EXPECT_EQ(messageOf([] { Stream<float>(44100, 0); }),
              "velora::Stream: channel count is 0; it must be 1 to 32");
    Stream moved = std::move(stream);
    EXPECT_EQ(moved.speed(), 0.7);
    static_assert(!std::is_copy_constructible_v<Stream<float>>);
}

} // namespace
