// How the natural sound of velora::Stream sounds: what lies between the channels, level, treble,
// quiet sounds, fades and time. Figures over a second or two, with margins.

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <iterator>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <velora/stream.hpp>

namespace {

using velora::Int24In32;
using velora::Pitch;
using velora::Sound;
using velora::Stream;

constexpr int kRate = 44100;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

struct Stereo {
    std::vector<double> left;
    std::vector<double> right;

    std::size_t frames() const { return left.size(); }
};

/// What comes of it at a speed. 1.0 is full scale, `unit` in the format.
template <class Format = float>
Stereo stretched(const Stereo& in, double speed, double unit = 1.0, int rate = kRate,
                 Sound sound = Sound::natural)
{
    using Sample = typename Stream<Format>::Sample;
    std::vector<Sample> samples;
    for (std::size_t n = 0; n < in.frames(); ++n) {
        samples.push_back(Sample(in.left[n] * unit));
        samples.push_back(Sample(in.right[n] * unit));
    }
    Stream<Format> stream(rate, 2, Pitch::keep, sound);
    stream.setSpeed(speed);
    std::vector<Sample> made;
    stream.process(samples, made);
    stream.flush(made);
    Stereo out;
    for (std::size_t n = 0; n < made.size(); n += 2) {
        out.left.push_back(double(made[n]) / unit);
        out.right.push_back(double(made[n + 1]) / unit);
    }
    return out;
}

/// What is left without the first and last eighth.
Stereo middleOf(const Stereo& in)
{
    const auto part = [](const std::vector<double>& of) {
        const auto edge = std::ptrdiff_t(of.size() / 8);
        return std::vector<double>(of.begin() + edge, of.end() - edge);
    };
    return {part(in.left), part(in.right)};
}

double product(const std::vector<double>& a, const std::vector<double>& b)
{
    double sum = 0.0;
    for (std::size_t n = 0; n < a.size(); ++n)
        sum += a[n] * b[n];
    return sum / double(a.size());
}

/// Mean power of both channels.
double power(const Stereo& of)
{
    return (product(of.left, of.left) + product(of.right, of.right)) / 2.0;
}

double decibels(double powers)
{
    return 10.0 * std::log10(powers);
}

std::size_t framesFor(double speed, double seconds = 1.0, int rate = kRate)
{
    return std::size_t(seconds * rate * std::max(1.0, speed));
}

/// Noise of which the channels have half their power in common, in bursts.
Stereo bursts(std::size_t frames)
{
    std::minstd_rand random(1);
    std::normal_distribution<double> value(0.0, 0.1);
    Stereo out;
    for (std::size_t n = 0; n < frames; ++n) {
        const double level = 1.0 + 0.7 * std::sin(kTwoPi * 3.0 * double(n) / kRate);
        const double middle = value(random);
        out.left.push_back(level * (middle + value(random)));
        out.right.push_back(level * (middle + value(random)));
    }
    return out;
}

constexpr double kChord[] = {220.0, 330.5, 441.3, 553.7, 881.0, 1317.0};

/// Phase of the right channel after the left, of a note.
double offsetOf(std::size_t note)
{
    return 0.9 * double(note) - 2.0;
}

Stereo chord(std::size_t frames)
{
    Stereo out{std::vector<double>(frames), std::vector<double>(frames)};
    for (std::size_t note = 0; note < std::size(kChord); ++note)
        for (std::size_t n = 0; n < frames; ++n) {
            const double phase = kTwoPi * kChord[note] * double(n) / kRate;
            out.left[n] += 0.08 * std::sin(phase);
            out.right[n] += 0.08 * std::sin(phase + offsetOf(note));
        }
    return out;
}

/// Amplitude and phase of a partial over the 4096 frames from `from` on.
std::complex<double> partial(const std::vector<double>& of, double hertz, std::size_t from)
{
    constexpr std::size_t kFrames = 4096;
    std::complex<double> sum = 0.0;
    for (std::size_t n = 0; n < kFrames; ++n)
        sum += (1.0 - std::cos(kTwoPi * double(n) / double(kFrames))) * of[from + n] *
               std::polar(2.0 / double(kFrames), -kTwoPi * hertz * double(from + n) / kRate);
    return sum;
}

TEST(NaturalSound, KeepsWhatChannelsHaveInCommon)
{
    for (const double speed : {0.3, 0.75, 1.5, 3.0}) {
        const Stereo in = bursts(framesFor(speed));
        const Stereo out = middleOf(stretched(in, speed));
        const auto correlation = [](const Stereo& of) {
            return product(of.left, of.right) / power(of);
        };
        EXPECT_NEAR(correlation(out), correlation(in), 0.1) << speed;
        const auto sum = [](const Stereo& of) {
            std::vector<double> mono = of.left;
            for (std::size_t n = 0; n < mono.size(); ++n)
                mono[n] += of.right[n];
            return decibels(product(mono, mono) / power(of));
        };
        EXPECT_NEAR(sum(out), sum(in), 0.3) << speed;
    }
}

TEST(NaturalSound, KeepsThePhaseBetweenTheChannels)
{
    for (const double speed : {0.3, 0.75, 1.5, 3.0}) {
        const Stereo out = middleOf(stretched(chord(framesFor(speed)), speed));
        for (std::size_t note = 0; note < std::size(kChord); ++note)
            for (std::size_t at = 0; at + 4096 < out.frames(); at += 8192) {
                const std::complex<double> turn = partial(out.right, kChord[note], at) *
                                                  std::conj(partial(out.left, kChord[note], at));
                EXPECT_NEAR(std::arg(turn * std::polar(1.0, -offsetOf(note))), 0.0, 0.2)
                    << kChord[note] << " Hz at " << speed;
            }
    }
}

TEST(NaturalSound, IsAsLoudAsTheInput)
{
    for (const double speed : {0.3, 0.45, 0.55, 0.9, 1.5, 2.0, 4.0}) {
        const std::size_t frames = framesFor(speed);
        for (const Stereo& in : {bursts(frames), chord(frames)})
            EXPECT_NEAR(decibels(power(middleOf(stretched(in, speed))) / power(in)), 0.0, 0.7)
                << speed;
    }
}

TEST(NaturalSound, IsBrightAtSlowSpeeds)
{
    // A second difference, 12 dB an octave: most of what it leaves of noise is above 7 kHz.
    const auto treble = [](const Stereo& of) {
        double sum = 0.0;
        for (std::size_t n = 2; n < of.frames(); ++n)
            sum += std::pow(of.left[n] - 2.0 * of.left[n - 1] + of.left[n - 2], 2);
        return sum / double(of.frames());
    };
    for (const double speed : {0.125, 0.4, 0.5}) {
        const Stereo in = bursts(kRate / 2);
        EXPECT_NEAR(decibels(treble(middleOf(stretched(in, speed))) / treble(in)), 0.0, 1.0)
            << speed;
    }
}

/// Tone over all else, dB.
double purity(const std::vector<double>& of, double hertz)
{
    std::complex<double> sum = 0.0;
    double all = 0.0;
    double weights = 0.0;
    for (std::size_t n = 0; n < of.size(); ++n) {
        const double weight = 1.0 - std::cos(kTwoPi * double(n) / double(of.size()));
        sum += weight * of[n] * std::polar(1.0, -kTwoPi * hertz * double(n) / kRate);
        all += weight * of[n] * of[n];
        weights += weight;
    }
    const double tone = 2.0 * std::norm(sum) / weights;
    return decibels(tone / std::max(all - tone, 1e-12 * all));
}

TEST(NaturalSound, IsAsCleanWhenItIsQuiet)
{
    constexpr double kHertz = 440.0;
    for (const double speed : {0.75, 1.5}) {
        const auto at = [&](double amplitude) {
            Stereo in;
            for (std::size_t n = 0; n < framesFor(speed); ++n)
                in.left.push_back(amplitude * std::sin(kTwoPi * kHertz * double(n) / kRate));
            in.right = in.left;
            return purity(middleOf(stretched<Int24In32>(in, speed, 8388607.0)).left, kHertz);
        };
        const double loud = at(0.5);
        EXPECT_GT(loud, 28.0) << speed;
        EXPECT_GT(at(0.0005), loud - 1.0) << speed;
    }
}

// Above 5.5 kHz sound is put together of segments, whose joints are heard where they don't fit.
TEST(NaturalSound, JoinsHighTonesInPhase)
{
    for (const double hertz : {8000.0, 10000.0})
        for (const double speed : {0.4, 0.75, 1.5, 3.0}) {
            Stereo in;
            for (std::size_t n = 0; n < framesFor(speed); ++n)
                in.left.push_back(0.5 * std::sin(kTwoPi * hertz * double(n) / kRate));
            in.right = in.left;
            const std::vector<double> out = middleOf(stretched(in, speed)).left;
            constexpr std::ptrdiff_t kPiece = 1024; // two joints
            std::vector<double> purities;
            for (auto at = out.begin(); out.end() - at >= kPiece; at += kPiece)
                purities.push_back(purity({at, at + kPiece}, hertz));
            std::sort(purities.begin(), purities.end());
            EXPECT_GT(purities[purities.size() / 4], 20.0) << hertz << " Hz at " << speed;
        }
}

TEST(NaturalSound, JoinsAllPairsOfChannelsAtTheSamePlace)
{
    constexpr double kHertz = 8000.0;
    for (const double speed : {0.4, 0.75, 1.5, 3.0}) {
        std::vector<float> in;
        for (std::size_t n = 0; n < framesFor(speed); ++n) {
            const double phase = kTwoPi * double(n) / kRate;
            const auto common = float(0.2 * std::sin(kHertz * phase));
            const auto other = float(0.3 * std::sin(9350.0 * phase)); // would join elsewhere
            in.insert(in.end(), {common, common, common + other, common - other});
        }
        Stream<float> stream(kRate, 4);
        stream.setSpeed(speed);
        std::vector<float> made;
        stream.process(in, made);
        const auto channel = [&](std::size_t c) {
            std::vector<double> samples;
            for (std::size_t n = c; n < made.size(); n += 4)
                samples.push_back(double(made[n]));
            return samples;
        };
        const std::vector<double> alone = channel(0);
        const std::vector<double> beside = channel(2);
        for (std::size_t at = 8192; at + 4096 < alone.size(); at += 4096)
            EXPECT_NEAR(
                std::arg(partial(beside, kHertz, at) * std::conj(partial(alone, kHertz, at))), 0.0,
                0.2)
                << speed << " at " << at;
    }
}

// Steady noise, of which two voices have little in common.
TEST(NaturalSound, FadesDontDip)
{
    const std::size_t frames = 3 * kRate / 2;
    std::minstd_rand random(2);
    std::normal_distribution<float> value(0.0f, 0.1f);
    std::vector<float> in(2 * frames);
    for (float& sample : in)
        sample = value(random);
    std::vector<double> levels;
    for (const auto& [from, to] : {std::pair{1.0, 0.7}, {1.0, 1.6}, {0.7, 1.0}, {1.6, 1.0}})
        for (std::size_t change = 20000; change < 50000; change += 2777) {
            Stream<float> stream(kRate, 2);
            stream.setSpeed(from);
            std::vector<float> out;
            stream.process(in.data(), change, out);
            const std::size_t at = out.size();
            stream.setSpeed(to);
            stream.process(in.data() + 2 * change, frames - change, out);
            double sum = 0.0;
            constexpr std::size_t kFade = 256; // frames
            for (std::size_t n = at; n < at + 2 * kFade; ++n)
                sum += double(out[n]) * double(out[n]);
            levels.push_back(decibels(sum / (2.0 * kFade) / 0.01));
        }
    std::sort(levels.begin(), levels.end());
    EXPECT_NEAR(levels[levels.size() / 2], 0.0, 0.5);
    EXPECT_GT(levels[levels.size() / 20], -1.0);
}

/// How far a partial sinks within 40 ms of a frame, dB.
double dipAt(const std::vector<double>& of, double hertz, std::size_t frame)
{
    constexpr std::size_t kReach = 2048;
    constexpr std::size_t kStep = 256;
    const double level = (std::abs(partial(of, hertz, frame - 5 * kReach)) +
                          std::abs(partial(of, hertz, frame + 3 * kReach))) /
                         2;
    double lowest = level;
    for (std::size_t from = frame - 2 * kReach; from <= frame; from += kStep)
        lowest = std::min(lowest, std::abs(partial(of, hertz, from)));
    return decibels(level * level / (lowest * lowest));
}

// Where the input itself takes over, tones of any phase meet their own. All four channels are steered
// alike.
TEST(NaturalSound, TonesDontDipOnThePlannedWayToTheInput)
{
    constexpr std::int64_t kChange = 30011; // frames of input
    const Stereo in = chord(90000);
    for (const double speed : {0.6, 0.75, 1.25, 1.5, 2.0}) {
        std::vector<float> samples;
        for (std::size_t n = 0; n < in.frames(); ++n)
            samples.insert(samples.end(),
                           {float(in.left[n]), float(in.right[n]), float(in.right[n]), 0.0f});
        Stream<float> stream(kRate, 4);
        stream.setSpeed(speed);
        const std::int64_t at = stream.setSpeedAt(kChange, 1.0);
        std::vector<float> made;
        stream.process(samples, made);
        stream.flush(made);
        for (std::size_t channel = 0; channel < 3; ++channel) {
            std::vector<double> out;
            for (std::size_t n = channel; n < made.size(); n += 4)
                out.push_back(double(made[n]));
            for (const double hertz : kChord)
                EXPECT_LT(dipAt(out, hertz, std::size_t(at)), 1.5)
                    << hertz << " Hz, channel " << channel << ", from " << speed;
        }
    }
}

/// Seconds by which a tone that rises from `start` Hz by `rise` Hz a second sounds late: what it is
/// too low by.
double lateness(const std::vector<double>& of, double start, double rise, int rate)
{
    const auto block = std::size_t(rate / 50);
    const std::size_t blocks = of.size() / block;
    std::complex<double> before = 0.0;
    std::complex<double> turns = 0.0;
    for (std::size_t b = blocks / 8; b < blocks - blocks / 8; ++b) {
        std::complex<double> now = 0.0;
        for (std::size_t n = b * block; n < (b + 1) * block; ++n) {
            const double t = double(n) / rate;
            now += of[n] * std::polar(1.0, -kTwoPi * (start + 0.5 * rise * t) * t);
        }
        turns += now * std::conj(before);
        before = now;
    }
    return -std::arg(turns) * rate / (kTwoPi * double(block)) / rise;
}

TEST(NaturalSound, IsInTimeAndSoIsTheEngines)
{
    for (const int rate : {16000, 44100, 48000})
        for (const Sound sound : {Sound::natural, Sound::engine})
            for (const double speed : {0.6, 0.95, 1.05, 1.5}) {
                constexpr double kStart = 400.0;
                constexpr double kRise = 200.0;
                Stereo in;
                for (std::size_t n = 0; n < framesFor(speed, 2.0, rate); ++n) {
                    const double t = double(n) / rate;
                    in.left.push_back(0.3 * std::sin(kTwoPi * (kStart + 0.5 * kRise * t) * t));
                }
                in.right = in.left;
                const std::vector<double> out = stretched(in, speed, 1.0, rate, sound).left;
                EXPECT_NEAR(1000.0 * lateness(out, kStart, kRise * speed, rate), 0.0, 0.5)
                    << rate << " Hz at " << speed
                    << (sound == Sound::engine ? ", the engine's own" : "");
            }
}

// The high band has segments for its frames, from before and behind their place by turns.
TEST(NaturalSound, HighTonesAreInTimeAtSlowSpeeds)
{
    constexpr double kSwell = 1.5; // Hz
    for (const double speed : {0.3, 0.6}) {
        Stereo in;
        for (std::size_t n = 0; n < framesFor(speed, 4.5); ++n) {
            const double t = double(n) / kRate;
            in.left.push_back((0.3 + 0.15 * std::sin(kTwoPi * kSwell * t)) *
                              std::sin(kTwoPi * 9000.3 * t));
        }
        in.right = in.left;
        const std::vector<double> out = stretched(in, speed).left;
        const double swell = kSwell * speed / kRate; // turns a frame of output
        const auto period = std::size_t(std::lround(1.0 / swell));
        std::complex<double> sum;
        for (std::size_t n = period; n < 5 * period; ++n)
            sum += out[n] * out[n] * std::polar(1.0, -kTwoPi * swell * double(n));
        const double turns = -std::arg(sum * std::complex(0.0, 1.0)) / kTwoPi;
        EXPECT_NEAR(1000.0 * turns / (swell * kRate), 0.0, 0.6) << "ms late at " << speed;
    }
}

} // namespace
