// Fades that follow how much two sounds have in common.

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include <velora/vsp.h>

#include "stream/fade.h"
#include "stream/pair_queue.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;

constexpr std::int64_t kFrames = 256;
constexpr std::int64_t kStart = 1000; // frame of the stream

using Samples = std::vector<float>; // [2 * kFrames]

Samples noise(unsigned seed, float level = 0.3f)
{
    std::mt19937 random(seed);
    Samples out(2 * kFrames);
    for (float& sample : out)
        sample = level * (float(random() % 20001) / 10000.0f - 1.0f);
    return out;
}

// share * a + rest * b, of the same level as these.
Samples mixed(const Samples& a, const Samples& b, float share)
{
    Samples out(a.size());
    for (size_t n = 0; n < a.size(); ++n)
        out[n] = share * a[n] + std::sqrt(1.0f - share * share) * b[n];
    return out;
}

template <class Sample>
PairQueue queueOf(const std::vector<Sample>& samples, Velora_BitDepth_T depth)
{
    PairQueue queue(2, depth, kFrames);
    queue.restart(kStart);
    queue.append(Source{samples.data(), nullptr, 0}, kFrames);
    return queue;
}

template <class Sample>
std::vector<Sample> faded(const std::vector<Sample>& from, const std::vector<Sample>& to,
                          Velora_BitDepth_T depth, std::int64_t part = kFrames)
{
    const PairQueue old = queueOf(from, depth);
    PairQueue fresh = queueOf(to, depth);
    const FadeWeights weights(old, fresh, depth, kStart, kFrames);
    for (std::int64_t done = 0; done < kFrames; done += part)
        fade(fresh, old, depth, weights, kStart + done, part, kStart);
    std::vector<Sample> out(2 * kFrames);
    fresh.copyTo(Destination{out.data(), nullptr, 0}, kStart, kFrames);
    return out;
}

double energy(const Samples& samples, std::int64_t from, std::int64_t to)
{
    double sum = 0.0;
    for (std::int64_t n = 2 * from; n < 2 * to; ++n)
        sum += double(samples[size_t(n)]) * double(samples[size_t(n)]);
    return sum;
}

TEST(Fade, KeepsTheEnergyWhateverTheSoundsHaveInCommon)
{
    const Samples old = noise(1);
    for (const float share : {1.0f, 0.7f, 0.0f, -0.5f}) {
        const Samples fresh = mixed(old, noise(2), share);
        const Samples out = faded(old, fresh, Velora_BitDepth_Float);
        double before = 0.0;
        double after = 0.0;
        for (std::int64_t from = 0; from < kFrames; from += kFrames / 4) {
            const std::int64_t to = from + kFrames / 4;
            const double done = double(from + kFrames / 8) / double(kFrames);
            const double wanted =
                (1.0 - done) * energy(old, from, to) + done * energy(fresh, from, to);
            const double given = energy(out, from, to);
            EXPECT_NEAR(10.0 * std::log10(given / wanted), 0.0, 1.0) << share << ", " << from;
            before += wanted;
            after += given;
        }
        EXPECT_NEAR(10.0 * std::log10(after / before), 0.0, 0.2) << share;
    }
}

TEST(Fade, PassesFromOneLevelToTheOther)
{
    const Samples out = faded(noise(1, 0.5f), noise(2, 0.05f), Velora_BitDepth_Float);
    double before = std::numeric_limits<double>::max();
    for (std::int64_t from = 0; from < kFrames; from += 32) {
        const double now = energy(out, from, from + 32);
        EXPECT_LT(now, 1.2 * before);
        before = now;
    }
}

TEST(Fade, LeavesEqualSoundsAndEndsAlone)
{
    std::vector<std::int16_t> sound(2 * kFrames);
    std::minstd_rand random(3);
    for (std::int16_t& sample : sound)
        sample = std::int16_t(random() % 65536);
    EXPECT_EQ(faded(sound, sound, Velora_BitDepth_16), sound);
    const Samples old = noise(4);
    const Samples out = faded(old, noise(5), Velora_BitDepth_Float);
    EXPECT_EQ(out[0], old[0]);
    EXPECT_EQ(out[1], old[1]);
}

// All that sounds in the middle of such a fade is what little the two differ by.
TEST(Fade, RaisesOppositeSoundsWithinBounds)
{
    const Samples old = noise(6);
    const Samples fresh = mixed(old, noise(12), -0.999f);
    const PairQueue from = queueOf(old, Velora_BitDepth_Float);
    const PairQueue to = queueOf(fresh, Velora_BitDepth_Float);
    const FadeWeights weights(from, to, Velora_BitDepth_Float, kStart, kFrames);
    for (std::int64_t n = 0; n < kFrames; ++n)
        EXPECT_LE(weights.at(n).old + weights.at(n).fresh, 2.5001) << n;
    EXPECT_GT(weights.at(kFrames / 2).old, 1.2);
}

TEST(Fade, DoesNotDependOnTheParts)
{
    const Samples old = noise(7);
    const Samples fresh = noise(8);
    EXPECT_EQ(faded(old, fresh, Velora_BitDepth_Float, 32),
              faded(old, fresh, Velora_BitDepth_Float));
}

TEST(Fade, LimitsIntegersAndMindsNoSilenceOrInfinity)
{
    // Loud sounds that agree only now and then: where they do, raised weights pass full scale.
    for (const auto& [depth, highest] :
         {std::pair{Velora_BitDepth_24, 8388607}, std::pair{Velora_BitDepth_32, INT32_MAX}}) {
        std::vector<std::int32_t> old(2 * kFrames), fresh(2 * kFrames);
        std::minstd_rand random(9);
        for (size_t n = 0; n < old.size(); ++n) {
            old[n] = random() % 2 == 0 ? highest : -highest;
            fresh[n] = random() % 2 == 0 ? highest : -highest;
        }
        const std::vector<std::int32_t> out = faded(old, fresh, depth);
        bool isLimited = false;
        for (size_t n = 0; n < out.size(); ++n) {
            isLimited = isLimited || out[n] == highest;
            ASSERT_LE(out[n], highest);
            ASSERT_GE(out[n], -highest - 1);
            if (old[n] == fresh[n]) {
                ASSERT_EQ(out[n] > 0, old[n] > 0) << "wrapped";
            }
        }
        EXPECT_TRUE(isLimited);
    }
    const Samples silence(2 * kFrames);
    EXPECT_EQ(faded(silence, silence, Velora_BitDepth_Float), silence);
    Samples wrong = noise(10);
    wrong[300] = std::numeric_limits<float>::infinity();
    const Samples out = faded(noise(11), wrong, Velora_BitDepth_Float);
    for (const size_t n : {200u, 299u, 301u, 400u})
        EXPECT_LE(std::abs(out[n]), 0.3f) << "linear, at " << n;
}

} // namespace
