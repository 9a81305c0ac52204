// Sample formats, half-band resamplers, biquads.

#include <limits>
#include <numeric>

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

class HalfBand : public testing::Test {
protected:
    Frames down(const Frames& in, int shift, size_t from = 0, size_t count = 0)
    {
        Frames out(2048);
        const int frames = int(count != 0 ? count : in.size());
        out.resize(
            size_t(probe.engine->DownSmpl2_polyphase(raw(out), raw(in, from), frames, shift)));
        return out;
    }
    Frames up(const Frames& in, int shift)
    {
        Frames out(in.size() << shift);
        probe.engine->UpSmpl2_polyphase(raw(out), raw(in), int(in.size()), shift);
        return out;
    }
    static std::vector<int> left(const Frames& in, size_t count)
    {
        std::vector<int> out;
        for (size_t n = 0; n < count; ++n)
            out.push_back(in[n][0]);
        return out;
    }
    EngineProbe probe;
};

TEST_F(HalfBand, GivesTheKnownResponsesToTheBit)
{
    Frames impulse = signals::silence(64);
    impulse[0] = {10000, 10000};
    using Values = std::vector<int>;
    EXPECT_EQ(left(down(impulse, 1), 8), (Values{511, 3406, 2361, -2142, 1383, -832, 489, -287}));
    EXPECT_EQ(left(up(impulse, 1), 16), (Values{142, 1022, 3434, 6813, 8172, 4723, -1481, -4283,
                                                -1147, 2767, 1854, -1663, -1889, 978, 1711, -573}));
    probe.engine->DownSmpl2_Init();
    EXPECT_EQ(left(down(signals::constant(64, 10000, 0), 1), 8),
              (Values{582, 5706, 12154, 9273, 10083, 10179, 9725, 10294}));
}

TEST_F(HalfBand, ConstantsSettleOneUnitLow)
{
    for (int shift : {1, 2})
        for (const auto& [in, settled] : {std::pair<int16_t, int16_t>{1000, 999},
                                          {-1000, -1001},
                                          {1, 0},
                                          {0, 0},
                                          {32767, 32766},
                                          {-32768, -32768}}) {
            probe.engine->DownSmpl2_Init();
            EXPECT_EQ(down(signals::constant(2048, in, 0), shift).back()[0], settled);
            EXPECT_EQ(up(signals::constant(1024, in, 0), shift).back()[0], settled);
        }
}

// Any cut: pairs that are completed later come later, and none gets lost.
TEST_F(HalfBand, DecimatesAStreamAlikeHoweverItIsCut)
{
    const Frames in = signals::noise(2040, 30000, 9);
    for (int shift : {1, 2})
        for (size_t cut : {1u, 3u, 7u, 85u, 512u, 680u}) {
            probe.engine->DownSmpl2_Init();
            const Frames whole = down(in, shift);
            probe.engine->DownSmpl2_Init();
            Frames pieces;
            for (size_t from = 0; from < in.size(); from += cut) {
                const Frames part = down(in, shift, from, std::min(cut, in.size() - from));
                pieces.insert(pieces.end(), part.begin(), part.end());
            }
            EXPECT_EQ(pieces, whole) << "shift " << shift << ", cut " << cut;
        }
}

TEST_F(HalfBand, KeepsTheChannelsApart)
{
    Frames in = signals::noise(512, 30000, 10);
    for (auto& frame : in)
        frame[1] = 0;
    for (const Frames& out : {down(in, 2), up(in, 2)})
        for (const auto& frame : out)
            EXPECT_EQ(frame[1], 0);
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

TEST_F(Biquad, GivesTheKnownImpulseResponsesToTheBit)
{
    Frames in = signals::silence(12);
    in[0] = {10000, 0};
    const int row7[] = {168, 605, 1025, 1237, 1295, 1247, 1130, 977, 808, 641, 486, 350};
    const int row0[] = {2928, 5857, 2426, -1006, -417, 172, 71, -30};
    for (size_t n = 0; n < std::size(row7); ++n)
        for (int rate : {44100, 37800}) // an unknown rate takes the row of 44100
            EXPECT_EQ(filter(rate, in)[n][0], row7[n]) << n;
    for (size_t n = 0; n < std::size(row0); ++n)
        EXPECT_EQ(filter(8000, in)[n][0], row0[n]) << n;
}

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

TEST_F(Biquad, OvershootBeyondFullScaleWraps)
{
    int lowest = 0;
    for (const auto& frame : filter(44100, signals::constant(200, 32767, 0)))
        lowest = std::min<int>(lowest, frame[0]);
    EXPECT_LT(lowest, -30000);
}

TEST_F(Biquad, StreamIsTheSameHoweverItIsCutAndInPlace)
{
    const Frames in = signals::noise(1500, 20000, 11);
    const Frames whole = filter(48000, in);
    for (size_t cut : {1u, 127u, 128u, 129u, 1000u}) {
        Frames out = in;
        bq.Init(48000);
        for (size_t n = 0; n < in.size(); n += cut)
            bq.Exe(raw(out, n), raw(out, n), int(std::min(cut, in.size() - n)));
        EXPECT_EQ(out, whole) << "cut " << cut;
    }
}

} // namespace
