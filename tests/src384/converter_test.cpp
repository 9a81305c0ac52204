// The converter measured with tones, and its contract as a block of a stream: exact counts, any
// cut, saturation, and arguments that must change nothing.
#include <algorithm>
#include <climits>
#include <cmath>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <velora/src384.h>

#include "src384/interpolation_table.h"
#include "support/owners.h"
#include "support/signals.h"

namespace {

using signals::Frame;
using signals::Frames;
using signals::raw;

constexpr int kDelay = Velora_SRC384_DelayFrames;
constexpr int kGrid = 48; // table entries per input sample

struct Conversion {
    int outputCode;
    int inputCode;
    size_t ratio;
};

std::ostream& operator<<(std::ostream& out, const Conversion& conversion)
{
    return out << "ratio " << conversion.ratio;
}

ConverterOwner makeConverter(const Conversion& conversion)
{
    ConverterOwner converter(Velora_SRC384_Factory::Create());
    EXPECT_EQ(0, converter->Init(conversion.outputCode, conversion.inputCode, 2, 0, 0));
    return converter;
}

/// Converts all of `in` in calls of the given sizes, over and over.
Frames convert(Velora_SRC384_Interface& converter, size_t ratio, const Frames& in,
               const std::vector<size_t>& sizes)
{
    Frames out(in.size() * ratio);
    size_t done = 0;
    for (size_t call = 0; done < in.size(); ++call) {
        const size_t count = std::min(sizes[call % sizes.size()], in.size() - done);
        EXPECT_EQ(int(count * ratio),
                  converter.Exe(raw(out, done * ratio), raw(in, done), int(count)));
        done += count;
    }
    return out;
}

Frames convert(const Conversion& conversion, const Frames& in)
{
    return convert(*makeConverter(conversion), conversion.ratio, in, {in.size()});
}

/// Full scale in the pattern that drives the output half way between two samples highest or, with
/// sign -1, lowest: each sample has the sign of its weight.
Frames worstCase(int sign)
{
    Frames in = signals::silence(2 * size_t(kDelay));
    for (int tap = 0; tap < 2 * kDelay; ++tap) {
        const int weight = kImpulseResponse[std::abs(kGrid / 2 - kGrid * (tap - kDelay + 1))];
        const auto value = int16_t(weight * sign >= 0 ? INT16_MAX : INT16_MIN);
        in[size_t(tap)] = {value, value};
    }
    return in;
}

// ---- Quality ----

class EveryRatio : public testing::TestWithParam<Conversion> {};

INSTANTIATE_TEST_SUITE_P(
    Converter, EveryRatio,
    testing::Values(Conversion{8, 8, 1}, Conversion{11, 8, 2}, Conversion{8, 3, 3},
                    Conversion{14, 8, 4}, Conversion{8, 0, 6}, Conversion{14, 5, 8},
                    Conversion{14, 3, 12}, Conversion{13, 1, 16}, Conversion{14, 0, 24}),
    [](const auto& test) { return "Times" + std::to_string(test.param.ratio); });

class Tones : public testing::TestWithParam<std::tuple<Conversion, double>> {
protected:
    // An odd number of periods in a power of two makes the error of 16-bit rounding like noise.
    static constexpr size_t kPeriod = 4096;
    static constexpr double kAmplitude = 32000.0;

    const Conversion conversion = std::get<0>(GetParam());
    const size_t bin = size_t(std::get<1>(GetParam()) * double(kPeriod)) | 1;
    const Frames in = signals::tone(2 * kPeriod, double(bin), double(kPeriod), kAmplitude);
    const Frames out = convert(conversion, in);
    const size_t outPeriod = kPeriod * conversion.ratio;
};

INSTANTIATE_TEST_SUITE_P(Converter, Tones,
                         testing::Combine(testing::Values(Conversion{11, 8, 2}, Conversion{8, 3, 3},
                                                          Conversion{14, 8, 4},
                                                          Conversion{14, 5, 8},
                                                          Conversion{14, 0, 24}),
                                          testing::Values(0.0, 0.05, 0.2, 0.3, 0.4, 0.45)));

// Rounding the input and rounding the output leave 0.29 units each, the image of a tone at the edge
// of the pass band 0.3: together 0.51. So images are 96 dB down, and gain and delay are exact.
TEST_P(Tones, PassWithHalfAUnitOfError)
{
    double power[2] = {}; // [channel]
    for (size_t n = 0; n < outPeriod; ++n) {
        const double t = double(n) / double(conversion.ratio) - double(kDelay);
        const double phase = 2.0 * signals::kPi * double(bin) * t / double(kPeriod);
        const Frame frame = out[outPeriod + n];
        power[0] += std::pow(frame[0] - kAmplitude * std::sin(phase), 2.0);
        power[1] += std::pow(frame[1] - kAmplitude * std::cos(phase), 2.0);
    }
    for (const double sum : power)
        EXPECT_LT(std::sqrt(sum / double(outPeriod)), 0.52);
}

// 64-bit sums straight from the table, rounded and saturated once: what every machine must give.
TEST_P(EveryRatio, EqualsTheExactSumOverTheTable)
{
    const auto ratio = int(GetParam().ratio);
    Frames in = signals::noise(600, INT16_MAX, 7);
    for (int sign : {1, -1, 1})
        for (Frame frame : worstCase(sign))
            in.push_back(frame);
    const Frames out = convert(GetParam(), in);
    for (int m = 0; m < int(out.size()); ++m) {
        for (size_t channel : {0u, 1u}) {
            int64_t sum_q22 = 0;
            for (int n = 0; n <= m / ratio; ++n) {
                const int distance = std::abs((m - ratio * (n + kDelay)) * (kGrid / ratio));
                if (distance < kGrid * kDelay)
                    sum_q22 += int64_t(in[size_t(n)][channel]) * kImpulseResponse[distance];
            }
            const int64_t rounded = (sum_q22 + (1 << 21)) >> 22;
            ASSERT_EQ(std::clamp<int64_t>(rounded, INT16_MIN, INT16_MAX), out[size_t(m)][channel])
                << "output frame " << m << " channel " << channel;
        }
    }
}

// ---- Streaming ----

TEST_P(EveryRatio, GivesTheSameHoweverTheStreamIsCut)
{
    const Frames in = signals::noise(3000, INT16_MAX, 11);
    const Frames whole = convert(GetParam(), in);
    const std::vector<std::vector<size_t>> cuts{
        {1}, {63, 1, 65, 2, 64}, {255, 257, 256, 3}, {512}, {701, 5, 1023}};
    for (const auto& sizes : cuts)
        EXPECT_EQ(whole, convert(*makeConverter(GetParam()), GetParam().ratio, in, sizes))
            << "cut into " << sizes.front() << " ...";
}

TEST_P(EveryRatio, WritesNothingBeyondTheFramesItReports)
{
    constexpr Frame kCanary{0x5a5a, -0x5a5b};
    const size_t ratio = GetParam().ratio;
    const ConverterOwner converter = makeConverter(GetParam());
    for (size_t count : {1u, 7u, 64u, 256u, 257u, 512u, 1001u}) {
        const Frames in = signals::noise(count, INT16_MAX, unsigned(count));
        Frames out(count * ratio + 300, kCanary);
        ASSERT_EQ(int(count * ratio), converter->Exe(raw(out), raw(in), int(count)));
        EXPECT_EQ(Frames(300, kCanary), Frames(out.end() - 300, out.end())) << count << " frames";
    }
}

TEST(Converter, ConvertsNothingBeforeAGoodInit)
{
    const ConverterOwner converter(Velora_SRC384_Factory::Create());
    const Frames in = signals::noise(16, INT16_MAX, 1);
    const Frames untouched = signals::constant(400, 123, -321);
    Frames out = untouched;
    EXPECT_EQ(0, converter->Exe(raw(out), raw(in), 16));
    EXPECT_NE(0, converter->Init(8, 11, 2, 0, 0));
    EXPECT_EQ(0, converter->Exe(raw(out), raw(in), 16));
    EXPECT_EQ(untouched, out);
}

TEST(Converter, LeavesTheStreamAloneWhenFramesAreOutOfRange)
{
    const Conversion conversion{14, 8, 4};
    const Frames in = signals::noise(200, INT16_MAX, 5);
    const Frames whole = convert(conversion, in);
    const ConverterOwner converter = makeConverter(conversion);
    Frames out(whole.size());
    converter->Exe(raw(out), raw(in), 90);
    for (int frames : {0, -1, INT_MIN, INT_MAX / 4 + 1, INT_MAX})
        EXPECT_EQ(0, converter->Exe(nullptr, nullptr, frames)) << frames << " frames";
    converter->Exe(raw(out, 360), raw(in, 90), 110);
    EXPECT_EQ(whole, out);
}

// ---- Init ----

TEST(Converter, InitAcceptsExactlyTheWholeRatios)
{
    const std::vector<int> rates{8000,  11025, 12000, 16000, 22050,  24000,  32000, 44100,
                                 48000, 64000, 88200, 96000, 128000, 176400, 192000};
    const Frames in = signals::silence(1);
    Frames out(24);
    for (int outputCode = -2; outputCode <= 16; ++outputCode) {
        for (int inputCode = -2; inputCode <= 16; ++inputCode) {
            int ratio = 0;
            if (std::min(outputCode, inputCode) >= 0 && std::max(outputCode, inputCode) < 15) {
                const int output = rates[size_t(outputCode)];
                const int input = rates[size_t(inputCode)];
                ratio = output % input == 0 ? output / input : 0;
            }
            const ConverterOwner converter(Velora_SRC384_Factory::Create());
            const bool accepted = converter->Init(outputCode, inputCode, 2, 0, 0) == 0;
            EXPECT_EQ(ratio > 0, accepted) << outputCode << " from " << inputCode;
            EXPECT_EQ(ratio, converter->Exe(raw(out), raw(in), 1))
                << outputCode << " from " << inputCode;
        }
    }
}

TEST(Converter, BadInitLeavesTheStreamAsItWas)
{
    const int bad[][5] = {{8, 11, 2, 0, 0},      {7, 8, 2, 0, 0},       {15, 8, 2, 0, 0},
                          {11, -1, 2, 0, 0},     {-1, -1, 2, 0, 0},     {15, 15, 2, 0, 0},
                          {14, 8, 1, 0, 0},      {14, 8, 0, 0, 0},      {14, 8, 3, 0, 0},
                          {14, 8, -2, 0, 0},     {14, 8, 2, 1, 0},      {14, 8, 2, 0, -1},
                          {INT_MAX, 8, 2, 0, 0}, {14, INT_MIN, 2, 0, 0}};
    const Conversion conversion{11, 8, 2};
    const Frames in = signals::noise(400, INT16_MAX, 9);
    const Frames whole = convert(conversion, in);
    for (const auto& [a, b, c, d, e] : bad) {
        const ConverterOwner converter = makeConverter(conversion);
        Frames out(whole.size());
        converter->Exe(raw(out), raw(in), 201);
        ASSERT_NE(0, converter->Init(a, b, c, d, e));
        converter->Exe(raw(out, 402), raw(in, 201), 199);
        EXPECT_EQ(whole, out) << a << ' ' << b << ' ' << c << ' ' << d << ' ' << e;
    }
}

TEST(Converter, InitMakesAUsedConverterLikeANewOne)
{
    const Frames in = signals::noise(300, INT16_MAX, 13);
    const ConverterOwner converter = makeConverter({14, 5, 8});
    convert(*converter, 8, in, {300});
    ASSERT_EQ(0, converter->Init(8, 3, 2, 0, 0));
    EXPECT_EQ(convert({8, 3, 3}, in), convert(*converter, 3, in, {300}));
}

// ---- Table ----

double besselI0(double x)
{
    double sum = 1.0;
    double term = 1.0;
    for (int k = 1; term > 1e-17 * sum; ++k) {
        term *= x / (2.0 * k) * x / (2.0 * k);
        sum += term;
    }
    return sum;
}

/// The impulse response at `position` table entries.
double windowedSinc(int position)
{
    if (position % kGrid == 0)
        return position == 0 ? 1.0 : 0.0;
    const double t = double(position) / kGrid;
    const double edge = t / kDelay;
    return std::sin(signals::kPi * t) / (signals::kPi * t) *
           besselI0(9.8 * std::sqrt(1.0 - edge * edge)) / besselI0(9.8);
}

TEST(InterpolationTable, IsTheKaiserWindowedSincScaledToUnityGainInEachPhase)
{
    for (int phase = 0; phase < kGrid; ++phase) {
        double gain = 0.0;
        int sum_q22 = 0;
        for (int n = phase - kGrid * kDelay; n <= kGrid * kDelay; n += kGrid) {
            gain += windowedSinc(std::abs(n));
            sum_q22 += kImpulseResponse[std::abs(n)];
        }
        EXPECT_EQ(sum_q22, 1 << 22) << "phase " << phase << ": constants stay what they are";
        for (int n = phase; n <= kGrid * kDelay; n += kGrid)
            EXPECT_NEAR(double(1 << 22) * windowedSinc(n) / gain, kImpulseResponse[n], 1.0)
                << "entry " << n;
    }
}

} // namespace
