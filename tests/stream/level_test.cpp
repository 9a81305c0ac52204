// Level riding: the gain over the input, the way through 16 bits and back, and what an engine in
// between makes of quiet sounds.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <velora/vsp.h>

#include "convert/bridge.h"
#include "kernels/level_kernels.h"
#include "stream/level.h"
#include "stream/pair_queue.h"
#include "support/owners.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;

constexpr int kRate = 44100;
constexpr std::int64_t kAhead = 2205;

constexpr Velora_BitDepth_T kDepths[] = {Velora_BitDepth_16, Velora_BitDepth_24, Velora_BitDepth_32,
                                         Velora_BitDepth_Float};

// Interleaved stereo samples, 1.0 is full scale, in a format and back.
std::vector<std::byte> inFormat(const std::vector<double>& samples, Velora_BitDepth_T depth)
{
    std::vector<std::byte> out(samples.size() / 2 * size_t(bytesPerFrame(depth)));
    const int bits = depth == Velora_BitDepth_16 ? 16 : depth == Velora_BitDepth_24 ? 24 : 32;
    const double unit = std::ldexp(1.0, bits - 1);
    for (size_t n = 0; n < samples.size(); ++n) {
        const double scaled = std::clamp(std::nearbyint(samples[n] * unit), -unit, unit - 1.0);
        if (depth == Velora_BitDepth_Float)
            reinterpret_cast<float*>(out.data())[n] = float(samples[n]);
        else if (depth == Velora_BitDepth_16)
            reinterpret_cast<std::int16_t*>(out.data())[n] = std::int16_t(scaled);
        else
            reinterpret_cast<std::int32_t*>(out.data())[n] = std::int32_t(scaled);
    }
    return out;
}

std::vector<double> outOfFormat(const std::vector<std::byte>& in, Velora_BitDepth_T depth)
{
    std::vector<double> out(in.size() * 2 / size_t(bytesPerFrame(depth)));
    for (size_t n = 0; n < out.size(); ++n) {
        if (depth == Velora_BitDepth_Float)
            out[n] = double(reinterpret_cast<const float*>(in.data())[n]);
        else if (depth == Velora_BitDepth_16)
            out[n] = reinterpret_cast<const std::int16_t*>(in.data())[n] / 32768.0;
        else
            out[n] = reinterpret_cast<const std::int32_t*>(in.data())[n] /
                     (depth == Velora_BitDepth_24 ? 8388608.0 : 2147483648.0);
    }
    return out;
}

std::vector<double> tone(size_t frames, double amplitude)
{
    std::vector<double> out(2 * frames);
    for (size_t n = 0; n < frames; ++n)
        for (size_t c = 0; c < 2; ++c)
            out[2 * n + c] =
                amplitude * std::sin(2.0 * signals::kPi * 1000.0 * double(n) / kRate + double(c));
    return out;
}

// Noise that jumps between levels up to 60 dB apart, after every `burst` frames.
std::vector<double> bursts(size_t frames, unsigned seed, size_t burst = 1000)
{
    std::minstd_rand random(seed);
    std::vector<double> out(2 * frames);
    double level = 0.0;
    for (size_t n = 0; n < out.size(); ++n) {
        if (n % (2 * burst) == 0)
            level = std::exp2(-double(random() % 11));
        out[n] = level * (double(random() % 20001) / 10000.0 - 1.0);
    }
    return out;
}

// A stream that has come in, in pieces of `piece` frames, and its gain.
struct Riding {
    Riding(const std::vector<double>& samples, Velora_BitDepth_T format, std::int64_t ahead,
           std::int64_t piece = 1000)
        : depth(format), frames(std::int64_t(samples.size() / 2)), input(2, depth, frames),
          curve(kRate, depth, ahead, frames)
    {
        const std::vector<std::byte> bytes = inFormat(samples, depth);
        for (std::int64_t done = 0; done < frames; done += piece) {
            input.append(Source{bytes.data(), nullptr, done}, std::min(piece, frames - done));
            curve.append(input, input.end());
            EXPECT_GE(curve.settled(), curve.end() - curve.lookAhead());
        }
    }
    std::vector<std::int16_t> scaled() const
    {
        std::vector<std::int16_t> out(size_t(2 * curve.settled()));
        curve.scaleIn(reinterpret_cast<std::int16_t(*)[2]>(out.data()), input.at(0, 0), 0,
                      curve.settled());
        return out;
    }

    Velora_BitDepth_T depth;
    std::int64_t frames;
    PairQueue input;
    LevelCurve curve;
};

double decibels(double ratio)
{
    return 20.0 * std::log10(ratio);
}

TEST(LevelCurve, NeverBringsAPeakAboveTheWorkingLevel)
{
    for (const std::int64_t ahead : {std::int64_t(0), kAhead})
        for (unsigned seed = 1; seed <= 5; ++seed) {
            const Riding riding(bursts(40000, seed, seed * 1000), Velora_BitDepth_Float, ahead);
            int highest = 0;
            for (const int sample : riding.scaled())
                highest = std::max(highest, std::abs(sample));
            EXPECT_LE(highest, 16385) << "look-ahead " << ahead << ", seed " << seed;
            EXPECT_GE(highest, 16000);
        }
}

TEST(LevelCurve, FallsEvenlyAheadOfAPeakAndRisesSlowly)
{
    std::vector<double> samples = tone(200000, 0.001);
    const std::vector<double> loud = tone(2000, 1.0);
    std::copy(loud.begin(), loud.end(), samples.begin() + 2 * 80000);
    const Riding riding(samples, Velora_BitDepth_Float, kAhead);
    const auto gain = [&](double frame) { return 1.0 / riding.curve.inverseAt(frame); };
    EXPECT_NEAR(decibels(gain(70000) * 0.001), decibels(0.5), 0.1);
    EXPECT_NEAR(decibels(gain(81000)), decibels(0.5), 0.1);
    EXPECT_NEAR(decibels(gain(180000) / gain(82128)), 15.0 * (180000 - 82128) / kRate, 1.0);
    for (double frame = 60000; frame < 190000; frame += 128) {
        const double change = decibels(gain(frame + 128) / gain(frame));
        ASSERT_LT(change, 0.06) << frame;
        ASSERT_GT(change, -4.5) << "60 dB over the look-ahead, at " << frame;
    }
}

TEST(LevelCurve, DoesNotDependOnHowTheInputIsCut)
{
    const std::vector<double> samples = bursts(30000, 7);
    for (const std::int64_t ahead : {std::int64_t(0), kAhead}) {
        const Riding whole(samples, Velora_BitDepth_24, ahead, 30000);
        for (const std::int64_t piece : {1, 127, 129, 4096}) {
            const Riding cut(samples, Velora_BitDepth_24, ahead, piece);
            EXPECT_EQ(cut.scaled(), whole.scaled()) << piece;
        }
    }
}

TEST(LevelCurve, BoundsTheGainOfSilenceAndOfWhatIsFarTooLoud)
{
    const Riding silence(std::vector<double>(40000), Velora_BitDepth_16, kAhead);
    EXPECT_NEAR(silence.curve.inverseAt(10000), 1.0 / 256.0, 1e-6);
    const Riding loud(tone(20000, 8.0), Velora_BitDepth_Float, kAhead);
    EXPECT_NEAR(loud.curve.inverseAt(10000), 16.0, 0.2);

    std::vector<double> wrong = tone(20000, 0.5);
    wrong[2000] = std::numeric_limits<double>::infinity();
    wrong[2002] = -std::numeric_limits<double>::infinity();
    wrong[30000] = std::numeric_limits<double>::quiet_NaN();
    wrong[30001] = 1e30;
    const Riding limited(wrong, Velora_BitDepth_Float, kAhead);
    const std::vector<std::int16_t> scaled = limited.scaled();
    EXPECT_EQ(scaled[2000], 0);
    EXPECT_EQ(scaled[2002], 0);
    EXPECT_EQ(scaled[30000], 0);
    EXPECT_EQ(scaled[30001], 32767);
    EXPECT_LE(limited.curve.inverseAt(1000), 128.0);
}

TEST(LevelCurve, ForgetsWhatIsOldAndStartsAnew)
{
    const std::vector<double> samples = bursts(60000, 9);
    const Riding whole(samples, Velora_BitDepth_Float, kAhead);
    const std::vector<std::byte> bytes = inFormat(samples, Velora_BitDepth_Float);
    constexpr std::int64_t kMost = 4096;
    PairQueue input(2, Velora_BitDepth_Float, kMost);
    LevelCurve curve(kRate, Velora_BitDepth_Float, kAhead, kMost);
    for (int pass = 0; pass < 2; ++pass) {
        const std::int64_t start = pass * 1000; // what comes before is forgotten
        input.restart(start);
        curve.restart(start);
        for (std::int64_t done = 0; done < 60000; done += 500) {
            input.append(Source{bytes.data(), nullptr, done}, 500);
            curve.append(input, input.end());
            const std::int64_t newest = curve.settled() - 1;
            for (std::int64_t at = std::max(newest - 1800, start); at <= newest; at += 200)
                ASSERT_EQ(curve.inverseAt(double(at)), whole.curve.inverseAt(double(at - start)))
                    << at;
            input.dropBefore(input.end() - 3000);
        }
    }
}

// There and back without an engine: what is left is the rounding to 16 bits near full scale.
TEST(LevelRiding, KeepsWhatEachFormatHolds)
{
    for (const Velora_BitDepth_T depth : kDepths)
        for (const double level : {1.0, 0.1, 0.001}) {
            const std::vector<double> samples = tone(40000, level * 0.99);
            const Riding riding(samples, depth, kAhead);
            const std::vector<std::int16_t> scaled = riding.scaled();
            std::vector<std::byte> bytes(scaled.size() / 2 * size_t(bytesPerFrame(depth)));
            PeakLimiter limiter;
            riding.curve.scaleOut(bytes.data(),
                                  reinterpret_cast<const std::int16_t(*)[2]>(scaled.data()),
                                  riding.curve.settled(), 0.0, 1.0, limiter);
            const std::vector<double> back = outOfFormat(bytes, depth);
            double error = 0.0, power = 0.0, kept = 0.0;
            for (size_t n = 0; n < back.size(); ++n) {
                error += (back[n] - samples[n]) * (back[n] - samples[n]);
                power += samples[n] * samples[n];
                kept += back[n] * back[n];
            }
            const double least = depth == Velora_BitDepth_16 ? 90.0 + decibels(level) : 80.0;
            EXPECT_GT(decibels(std::sqrt(power / error)), std::min(least, 80.0))
                << depth << ", level " << level;
            EXPECT_NEAR(decibels(std::sqrt(kept / power)), 0.0, 0.05);
        }
}

// The gain falls by several decibels from one stretch to the next, and comes back where it fell,
// whatever hops and speeds of the way in and out are.
TEST(LevelRiding, TakesTheGainBackWhereItWasGiven)
{
    const std::vector<double> samples = bursts(200000, 12, 10000);
    const Riding riding(samples, Velora_BitDepth_Float, kAhead);
    const std::int64_t frames = riding.curve.settled() / 300 * 300;
    std::vector<std::int16_t> scaled(size_t(2 * frames));
    std::vector<float> back(size_t(2 * frames));
    PeakLimiter limiter;
    for (std::int64_t at = 0; at < frames; at += 300) {
        auto* const part = reinterpret_cast<std::int16_t(*)[2]>(scaled.data() + 2 * at);
        riding.curve.scaleIn(part, riding.input.at(0, at), at, 300);
        riding.curve.scaleOut(reinterpret_cast<std::byte*>(back.data() + 2 * at), part, 300,
                              double(at), 1.0, limiter);
    }
    for (std::int64_t n = 0; n < 2 * frames; ++n) {
        const double sample = samples[size_t(n)];
        const double rounding = 0.6 / 32768.0 * riding.curve.inverseAt(double(n) / 2.0);
        ASSERT_NEAR(double(back[size_t(n)]), sample, 1.2 * rounding + 0.05 * std::abs(sample)) << n;
    }
    // At twice the speed a frame of output sounds two of input.
    const std::vector<std::int16_t> ones(600, 16384);
    riding.curve.scaleOut(reinterpret_cast<std::byte*>(back.data()),
                          reinterpret_cast<const std::int16_t(*)[2]>(ones.data()), 300, 2000.0, 2.0,
                          limiter);
    for (size_t n = 0; n < 300; ++n) {
        const double expected = 0.5 * riding.curve.inverseAt(2000.0 + 2.0 * double(n));
        ASSERT_NEAR(double(back[2 * n]), expected, 0.1 * expected) << n;
    }
}

TEST(LevelRiding, FloatsPassFullScaleAndIntegersAreLimited)
{
    // An engine that makes peaks of its own: twice as high as what went in.
    const std::vector<double> samples = tone(20000, 1.0);
    for (const Velora_BitDepth_T depth : kDepths) {
        const Riding riding(samples, depth, kAhead);
        std::vector<std::int16_t> made = riding.scaled();
        for (std::int16_t& sample : made)
            sample = std::int16_t(std::clamp(2 * sample, -32768, 32767));
        const std::int64_t frames = riding.curve.settled();
        std::vector<std::byte> bytes(size_t((frames + 1) * bytesPerFrame(depth)), std::byte(0x5A));
        PeakLimiter limiter;
        riding.curve.scaleOut(bytes.data(), reinterpret_cast<const std::int16_t(*)[2]>(made.data()),
                              frames, 0.0, 1.0, limiter);
        EXPECT_TRUE(std::all_of(bytes.end() - bytesPerFrame(depth), bytes.end(),
                                [](std::byte b) { return b == std::byte(0x5A); }));
        bytes.resize(bytes.size() - size_t(bytesPerFrame(depth)));
        const std::vector<double> out = outOfFormat(bytes, depth);
        double highest = 0.0, cross = 0.0;
        for (size_t n = 0; n < out.size(); ++n) {
            highest = std::max(highest, std::abs(out[n]));
            cross += out[n] * samples[n]; // what wraps turns its sign
        }
        if (depth == Velora_BitDepth_Float) {
            EXPECT_NEAR(highest, 2.0, 0.02);
        } else {
            EXPECT_LE(highest, 1.0);
            EXPECT_GT(cross / double(out.size()), 0.45);
            EXPECT_LT(limiter.gain, 0.8);
        }
    }
}

// Stretches as a stream does: frames, mapped positions, hop by hop.
std::vector<double> stretch(const Riding& riding, double speed)
{
    const EngineOwner engine(Velora_VSP_Factory::Create());
    Velora_VSP_Conductor::SetSound(engine.get(), Velora_VSP_Sound_EvenLevel);
    engine->Init(kRate, Velora_BitDepth_16);
    Velora_VSP_Conductor::SetSpeedNow(engine.get(), float(speed));
    const std::int64_t hop = Velora_VSP_Conductor::HopFrames(engine.get());
    const double delay = (4.0 / speed + 2.5) * double(hop);
    std::vector<std::int16_t> work(size_t(2 * hop));
    auto* const frames = reinterpret_cast<std::int16_t(*)[2]>(work.data());
    std::vector<std::byte> out;
    PeakLimiter limiter;
    std::int64_t given = 0;
    for (std::int64_t at = 0; at + hop <= riding.curve.settled(); at += hop) {
        riding.curve.scaleIn(frames, riding.input.at(0, at), at, hop);
        Velora_VSP_Conductor::TakeHop(engine.get(), frames);
        while (Velora_VSP_Conductor::GiveHop(engine.get(), frames) > 0) {
            out.resize(out.size() + size_t(hop * bytesPerFrame(riding.depth)));
            riding.curve.scaleOut(out.data() + given * bytesPerFrame(riding.depth), frames, hop,
                                  (double(given) - delay) * speed, speed, limiter);
            given += hop;
        }
    }
    return outOfFormat(out, riding.depth);
}

// Power at 1 kHz (50 Hz wide) over that of all else, in the second half of the left channel, dB.
double toneToNoise(const std::vector<double>& samples)
{
    constexpr size_t kFrames = 32768;
    const size_t from = samples.size() / 2 - kFrames;
    double all = 0.0, near = 0.0;
    std::vector<double> windowed(kFrames);
    for (size_t n = 0; n < kFrames; ++n) {
        const double window = 0.5 - 0.5 * std::cos(2.0 * signals::kPi * double(n) / kFrames);
        windowed[n] = window * samples[2 * (from + n)];
        all += windowed[n] * windowed[n];
    }
    for (int bin = -19; bin <= 19; ++bin) {
        const double turn =
            2.0 * signals::kPi * (std::round(1000.0 * kFrames / kRate) + bin) / kFrames;
        std::complex<double> sum = 0;
        for (size_t n = 0; n < kFrames; ++n)
            sum += windowed[n] * std::polar(1.0, -turn * double(n));
        near += 2.0 * std::norm(sum) / kFrames;
    }
    return 10.0 * std::log10(near / std::max(all - near, 1e-300));
}

TEST(LevelRiding, KeepsQuietTonesClean)
{
    for (const Velora_BitDepth_T depth : {Velora_BitDepth_24, Velora_BitDepth_Float}) {
        const Riding riding(tone(150000, 0.001), depth, kAhead);
        EXPECT_GT(toneToNoise(stretch(riding, 0.75)), 40.0) << depth;
    }
}

TEST(LevelRiding, GivesEachPassageItsOwnLevelBack)
{
    // A loud, a quiet and a loud second.
    std::vector<double> samples = bursts(3 * 44100 + 8000, 11);
    std::minstd_rand random(1);
    for (size_t n = 0; n < samples.size(); ++n) {
        const bool isQuiet = n >= 2 * 44100 && n < 4 * 44100;
        samples[n] = (isQuiet ? 0.01 : 0.5) * (double(random() % 20001) / 10000.0 - 1.0);
    }
    for (const std::int64_t ahead : {std::int64_t(0), kAhead})
        for (const double speed : {0.75, 1.5}) {
            const std::vector<double> out =
                stretch(Riding(samples, Velora_BitDepth_Float, ahead), speed);
            const double delay = (4.0 / speed + 2.5) * 512;
            for (const double second : {0.5, 1.3, 1.7, 2.5}) {
                const auto level = [&](const std::vector<double>& of, double at, double count) {
                    double sum = 0.0;
                    for (size_t n = 2 * size_t(at); n < 2 * size_t(at + count); ++n)
                        sum += of[n] * of[n];
                    return std::sqrt(sum / count);
                };
                const double before = level(samples, second * 44100, 8000);
                const double after = level(out, second * 44100 / speed + delay, 8000);
                EXPECT_NEAR(decibels(after / before), 0.0, 1.0) << second << " s at " << speed;
            }
        }
}

// ---- Kernels ----

// Any bit pattern, and the corners of 16, 24 and 32 bits.
std::int32_t anyValue(std::minstd_rand& random)
{
    const std::int32_t corners[] = {0,        1,         -1,        32767,      -32768,    8388607,
                                    -8388608, INT32_MAX, INT32_MIN, 0x7F800000, 0x7FC00000};
    if (random() % 4 == 0)
        return corners[random() % std::size(corners)];
    return std::int32_t(std::uint32_t(random()) * 2u) >> (random() % 32);
}

TEST(LevelKernels, EqualThePortableOnes)
{
    const LevelKernels& p = kPortableLevelKernels;
    for (const LevelKernels* const* table = availableLevelKernels(); *table != nullptr; ++table)
        for (unsigned seed = 1; seed <= 500; ++seed) {
            const LevelKernels& k = **table;
            std::minstd_rand random(seed);
            const int frames = int(random() % 70);
            const auto samples = size_t(2 * frames);
            std::vector<std::int32_t> wide(samples + 1);
            std::vector<std::int16_t> narrow(samples + 1);
            for (size_t n = 0; n < samples + 1; ++n) {
                wide[n] = anyValue(random);
                narrow[n] = std::int16_t(anyValue(random));
            }
            std::vector<float> floats(samples + 1);
            std::memcpy(floats.data(), wide.data(), samples * sizeof(float));
            // Gains within what full scale may become.
            const float unit = std::exp2(float(random() % 15) - 1.0f);
            const auto ramp = [&](float scale) {
                return Ramp{unit * scale,
                            unit * scale * (float(random() % 200) - 100.0f) / 8000.0f};
            };
            EXPECT_EQ(k.peak16(narrow.data(), int(samples)), p.peak16(narrow.data(), int(samples)));
            EXPECT_EQ(k.peak32(wide.data(), int(samples)), p.peak32(wide.data(), int(samples)));
            EXPECT_EQ(k.peakFloat(floats.data(), int(samples)),
                      p.peakFloat(floats.data(), int(samples)));
            const auto same = [&](auto kernel, auto out, const auto& in, Ramp gain) {
                decltype(out) expected(samples + 1, 77), actual(samples + 1, 77);
                (p.*kernel)(expected.data(), in.data(), gain, frames);
                (k.*kernel)(actual.data(), in.data(), gain, frames);
                EXPECT_EQ(
                    std::memcmp(actual.data(), expected.data(), actual.size() * sizeof actual[0]),
                    0)
                    << k.name << ", seed " << seed;
            };
            using Short = std::vector<std::int16_t>;
            using Wide = std::vector<std::int32_t>;
            same(&LevelKernels::in16, Short(), narrow, ramp(1.0f));
            same(&LevelKernels::in32, Short(), wide, ramp(1.0f / 65536.0f));
            same(&LevelKernels::inFloat, Short(), floats, ramp(32768.0f));
            same(&LevelKernels::out16, Short(), narrow, ramp(1.0f));
            same(&LevelKernels::out24, Wide(), narrow, ramp(256.0f));
            same(&LevelKernels::out32, Wide(), narrow, ramp(65536.0f));
            const auto bent = [&](auto kernel, auto out, Ramp gain) {
                decltype(out) expected(samples + 1, 77), actual(samples + 1, 77);
                const Ramp bend{float(random() % 100) / 100.0f, float(random() % 100) / 10000.0f};
                (p.*kernel)(expected.data(), narrow.data(), gain, bend, frames);
                (k.*kernel)(actual.data(), narrow.data(), gain, bend, frames);
                EXPECT_EQ(actual, expected) << k.name << ", seed " << seed;
            };
            bent(&LevelKernels::bent16, Short(), ramp(1.0f));
            bent(&LevelKernels::bent24, Wide(), ramp(256.0f));
            bent(&LevelKernels::bent32, Wide(), ramp(65536.0f));
            same(&LevelKernels::outFloat, std::vector<float>(), narrow, ramp(1.0f / 32768.0f));
        }
}

TEST(LevelKernels, RoundToTheNearestAndLimit)
{
    const LevelKernels& k = bestLevelKernels();
    std::vector<std::int16_t> in(64);
    for (size_t n = 0; n < in.size(); ++n)
        in[n] = std::int16_t(int(n) * 1040 - 32768);
    const Ramp gain{0.37f, 0.03f};
    std::vector<std::int16_t> narrow(64);
    std::vector<std::int32_t> wide(64);
    k.in16(narrow.data(), in.data(), gain, 32);
    for (size_t n = 0; n < in.size(); ++n) {
        const double exact = in[n] * (0.37 + 0.03 * double(n / 2));
        EXPECT_NEAR(narrow[n], std::clamp(exact, -32768.0, 32767.0), 0.51) << n;
    }
    k.out32(wide.data(), in.data(), {131072.0f, 0.0f}, 32);
    EXPECT_LT(wide[0], -2147483000);
    EXPECT_GT(wide[63], 2147483000);
}

} // namespace
