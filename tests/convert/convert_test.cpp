// Sample formats, half-band resamplers, biquads.

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "convert/biquad.h"
#include "support/engine_probe.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using signals::Frames;
using signals::raw;

template <class In>
int16_t convertOne(void (*convert)(int16_t*, const In*, int), In x)
{
    int16_t out = 0;
    convert(&out, &x, 1);
    return out;
}

TEST(SampleFormat, RoundsAndSaturatesIntegers)
{
    const auto from24 = [](int32_t x) { return convertOne(vsp::kPortableKernels.from24Bit, x); };
    const auto from32 = [](int32_t x) { return convertOne(vsp::kPortableKernels.from32Bit, x); };
    EXPECT_EQ(from24(8388607), 32767);
    EXPECT_EQ(from24(-8388608), -32768);
    EXPECT_EQ(from24(127), 0);
    EXPECT_EQ(from24(128), 1);
    EXPECT_EQ(from24(-128), 0);
    EXPECT_EQ(from24(-129), -1);
    EXPECT_EQ(from24(INT32_MAX), 32767);
    EXPECT_EQ(from24(INT32_MIN), -32768);
    EXPECT_EQ(from32(INT32_MAX), 32767);
    EXPECT_EQ(from32(INT32_MIN), -32768);
    EXPECT_EQ(from32(32767), 0);
    EXPECT_EQ(from32(32768), 1);
    EXPECT_EQ(from32(-32769), -1);
}

TEST(SampleFormat, TruncatesFloatsAndSurvivesAnyValue)
{
    const auto fromFloat = [](float x) { return convertOne(vsp::kPortableKernels.fromFloat, x); };
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(fromFloat(1.0f), 32767);
    EXPECT_EQ(fromFloat(-1.0f), -32768);
    EXPECT_EQ(fromFloat(-0.99999f), -32767);
    EXPECT_EQ(fromFloat(0.99999f), 32767);
    EXPECT_EQ(fromFloat(1e30f), 32767);
    EXPECT_EQ(fromFloat(kInfinity), 32767);
    EXPECT_EQ(fromFloat(-kInfinity), -32768);
    EXPECT_EQ(fromFloat(std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(SampleFormat, EverySixteenBitValueSurvivesARoundTrip)
{
    std::vector<int16_t> all(65536);
    std::iota(all.begin(), all.end(), int16_t(-32768));
    std::vector<int16_t> back(all.size());
    std::vector<int32_t> wide(all.size());
    std::vector<float> floats(all.size());
    const int count = int(all.size());

    vsp::kPortableKernels.to24Bit(wide.data(), all.data(), count);
    EXPECT_EQ(wide.front(), -8388608);
    EXPECT_EQ(wide.back(), 8388352);
    vsp::kPortableKernels.from24Bit(back.data(), wide.data(), count);
    EXPECT_EQ(back, all);
    vsp::kPortableKernels.to32Bit(wide.data(), all.data(), count);
    EXPECT_EQ(wide.front(), INT32_MIN);
    vsp::kPortableKernels.from32Bit(back.data(), wide.data(), count);
    EXPECT_EQ(back, all);
    vsp::kPortableKernels.toFloat(floats.data(), all.data(), count);
    EXPECT_EQ(floats.front(), -1.0f);
    vsp::kPortableKernels.fromFloat(back.data(), floats.data(), count);
    EXPECT_EQ(back, all);
}

// Any bit pattern: for floats infinities, denormals and "not a number" are among them.
TEST(SampleFormat, Q4IsWhatComesByWayOfSixteenBits)
{
    constexpr int kCount = 1 << 16;
    const vsp::KernelTable& k = vsp::kPortableKernels;
    std::minstd_rand random(1);
    std::vector<int32_t> any(kCount);
    for (int32_t& word : any)
        word = int32_t(uint32_t(random()) * 2u) >> random() % 16;
    std::vector<float> floats(kCount);
    for (float& value : floats) {
        const uint32_t bits = uint32_t(random()) * 2u;
        std::memcpy(&value, &bits, sizeof value);
    }
    floats[0] = 0.99999f;
    floats[1] = -0.99999f;

    std::vector<int16_t> narrow(kCount);
    std::vector<int32_t> expected(kCount), actual(kCount);
    const auto expectQ4 = [&](auto to16, auto toQ4, const auto& in) {
        to16(narrow.data(), in.data(), kCount);
        k.toQ4(expected.data(), narrow.data(), kCount);
        toQ4(actual.data(), in.data(), kCount);
        EXPECT_EQ(actual, expected);
    };
    expectQ4(k.from24Bit, k.q4From24Bit, any);
    expectQ4(k.from32Bit, k.q4From32Bit, any);
    expectQ4(k.fromFloat, k.q4FromFloat, floats);

    k.fromQ4(narrow.data(), any.data(), kCount);
    k.to24Bit(expected.data(), narrow.data(), kCount);
    k.q4To24Bit(actual.data(), any.data(), kCount);
    EXPECT_EQ(actual, expected);
    k.to32Bit(expected.data(), narrow.data(), kCount);
    k.q4To32Bit(actual.data(), any.data(), kCount);
    EXPECT_EQ(actual, expected);
    std::vector<float> actualFloats(kCount);
    k.toFloat(floats.data(), narrow.data(), kCount);
    k.q4ToFloat(actualFloats.data(), any.data(), kCount);
    EXPECT_EQ(actualFloats, floats);
}

TEST(HalfBand, ConstantsSettleOneUnitLow)
{
    EngineProbe probe;
    Frames down(1024);
    Frames up(4 * 1024);
    for (int shift : {1, 2})
        for (const auto& [in, settled] : {std::pair<int16_t, int16_t>{1000, 999},
                                          {-1000, -1001},
                                          {1, 0},
                                          {0, 0},
                                          {32767, 32766},
                                          {-32768, -32768}}) {
            probe.engine->DownSmpl2_Init();
            const Frames constant = signals::constant(2048, in, 0);
            probe.engine->DownSmpl2_polyphase(raw(down), raw(constant), 2048, shift);
            EXPECT_EQ(down[size_t(2048 >> shift) - 1], (signals::Frame{settled, 0}));
            probe.engine->UpSmpl2_polyphase(raw(up), raw(constant), 1024, shift);
            EXPECT_EQ(up[size_t(1024 << shift) - 1], (signals::Frame{settled, 0}));
        }
}

class Biquad : public testing::Test {
protected:
    Frames filter(int rate, const Frames& in)
    {
        Frames out(in.size());
        bq.Init(rate);
        bq.Exe(raw(out), raw(in), int(in.size()));
        return out;
    }
    Velora_BQ bq;
};

// Bilinear transform of a Butterworth section with its corner at 2 kHz.
TEST_F(Biquad, TableFollowsItsFormula)
{
    constexpr int kRates[] = {8000,  11025, 12000, 16000, 22050,  24000,  32000, 44100,
                              48000, 64000, 88200, 96000, 128000, 176400, 192000};
    for (size_t row = 0; row < std::size(kRates); ++row) {
        const double K = std::tan(signals::kPi * 2000.0 / kRates[row]);
        const double D = 1.0 + std::sqrt(2.0) * K + K * K;
        const double exact[5] = {K * K / D, 2.0 * K * K / D, K * K / D, -2.0 * (K * K - 1.0) / D,
                                 -(1.0 - std::sqrt(2.0) * K + K * K) / D};
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(vsp::biquadCoefTable[row][i], std::lround(std::ldexp(exact[i], 30)))
                << kRates[row] << " Hz, coefficient " << i;
    }
}

TEST_F(Biquad, ConstantsSettleToThemselves)
{
    for (int16_t value : std::initializer_list<int16_t>{1000, -1000, 32767, -32768})
        EXPECT_EQ(filter(44100, signals::constant(4000, value, 0)).back()[0], value);
}

} // namespace
