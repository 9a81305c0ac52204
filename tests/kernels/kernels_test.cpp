// Every kernel of every table that this machine can run gives the output of the portable one, bit
// for bit: corner values and random ones, every tail, unaligned arrays.

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "convert/biquad.h"
#include "kernels/band_split.h"
#include "kernels/centre_of_gravity.h"
#include "kernels/kernel_table.h"
#include "kernels/peaks.h"
#include "kernels/sizes.h"
#include "kernels/turns.h"

#include <gtest/gtest.h>

namespace {

using namespace vsp;

// Hands out arrays that start `offset` words off their alignment, and remembers them as the output.
class Bench {
public:
    Bench(unsigned seed, size_t offsetWords) : random(seed), offset(offsetWords) {}

    // Values of `bits` bits: one in four is a corner of the range.
    template <class T>
    T* values(size_t count, int bits)
    {
        T* const p = array<T>(count);
        for (size_t i = 0; i < count; ++i)
            p[i] = T(value(bits));
        return p;
    }
    ComplexInt* bins(int bits)
    {
        return reinterpret_cast<ComplexInt*>(values<int32_t>(2 * kBins, bits));
    }
    ComplexShort* phasors(int bits = 16)
    {
        return reinterpret_cast<ComplexShort*>(values<int16_t>(2 * kBins, bits));
    }
    Frame* frames(size_t count) { return reinterpret_cast<Frame*>(values<int16_t>(2 * count, 16)); }
    // Of two channels: outputs and residues of any value, inputs as samples leave them.
    BiquadChannelState* biquadStates()
    {
        auto* const states = array<BiquadChannelState>(2);
        for (int channel = 0; channel < 2; ++channel)
            states[channel] = {value(16) * 64, value(16) * 64, value(32), value(32),
                               uint32_t(value(32))};
        return states;
    }
    template <class T>
    T* array(size_t count)
    {
        arrays.emplace_back(offset + (count * sizeof(T) + 3) / 4, 0);
        return reinterpret_cast<T*>(arrays.back().data() + offset);
    }
    int pick(int below) { return int(random() % unsigned(below)); }
    void keep(int value) { *array<int>(1) = value; }

    std::vector<std::vector<int32_t>> arrays;

private:
    int32_t value(int bits)
    {
        const int32_t most = int32_t((uint32_t(1) << (bits - 1)) - 1);
        const int32_t corners[] = {-most - 1, -most, -1, 0, 1, most};
        if (random() % 4 == 0)
            return corners[random() % std::size(corners)];
        return int32_t(uint32_t(random()) * 2u) >> (32 - bits);
    }
    std::minstd_rand random;
    size_t offset;
};

// As much as 16-bit sound can leave in the delays of all-pass sections, where it follows their impulse
// response backwards at full scale (2^24.8, in the filters that split by four), and as much as the
// second resampler can get from the first one (2^20.6). What sections make of these stays below 2^29.
constexpr int kDelayBits = 26;
constexpr int kQ4Bits = 22;

// Two stretches at once, or one after the other where a table has nothing for both. A step takes and
// gives so many frames.
template <class State, class Twice, class Once>
void halfBandTwice(Twice twice, Once once, Bench& b, int framesIn, int framesOut)
{
    using Stereo = int32_t[2];
    constexpr int kMostSteps = 20;
    const auto frames = [](int32_t* words) { return reinterpret_cast<Stereo*>(words); };
    const size_t words = size_t(2 * kMostSteps);
    Stereo* const out[2] = {frames(b.array<int32_t>(words * size_t(framesOut))),
                            frames(b.array<int32_t>(words * size_t(framesOut)))};
    const Stereo* const in[2] = {frames(b.values<int32_t>(words * size_t(framesIn), kQ4Bits)),
                                 frames(b.values<int32_t>(words * size_t(framesIn), kQ4Bits))};
    constexpr size_t kDelays = sizeof(HalfBandLanes) / sizeof(int32_t);
    int32_t* const delays = b.values<int32_t>(kDelays, kDelayBits - 2);
    std::transform(delays, delays + kDelays, delays, [](int32_t delay) { return delay * 4; });
    auto* const lanes = reinterpret_cast<HalfBandLanes*>(delays);
    const int steps = b.pick(kMostSteps + 1);
    if (twice != nullptr)
        return twice(out, in, *lanes, steps);
    for (int stretch = 0; stretch < 2; ++stretch) {
        State state[2];
        for (int channel = 0; channel < 2; ++channel)
            static_cast<HalfBandState&>(state[channel]) = laneOf(*lanes, 2 * stretch + channel);
        once(out[stretch], in[stretch], state, steps);
        for (int channel = 0; channel < 2; ++channel)
            setLane(*lanes, 2 * stretch + channel, state[channel]);
    }
}

struct Case {
    const char* name;
    std::function<void(const KernelTable&, Bench&)> run;
};

const Case kCases[] = {
    {"fft512",
     [](const KernelTable& k, Bench& b) {
         k.fft512(b.values<int32_t>(kFftN, 32), b.values<int32_t>(kFftN, 32));
     }},
    {"fftOfHop",
     [](const KernelTable& k, Bench& b) {
         k.fftOfHop(b.array<int32_t>(kFftN), b.array<int32_t>(kFftN), b.frames(kLowHop));
     }},
    {"fftFirstQuarter",
     [](const KernelTable& k, Bench& b) {
         std::vector<int32_t> re(kFftN), im(kFftN); // work space, left as anything
         const int32_t* const source = b.values<int32_t>(2 * kFftN, 32);
         std::copy(source, source + kFftN, re.begin());
         std::copy(source + kFftN, source + 2 * kFftN, im.begin());
         k.fftFirstQuarter(b.array<int32_t>(kLowHop), b.array<int32_t>(kLowHop), re.data(),
                           im.data());
     }},
    {"separateChannels",
     [](const KernelTable& k, Bench& b) {
         k.separateChannels(b.bins(1), b.bins(1), b.values<int32_t>(kFftN, 32),
                            b.values<int32_t>(kFftN, 32));
     }},
    {"mergeChannels",
     [](const KernelTable& k, Bench& b) {
         k.mergeChannels(b.array<int32_t>(kFftN), b.array<int32_t>(kFftN), b.bins(32), b.bins(32));
     }},
    {"analysisSum",
     [](const KernelTable& k, Bench& b) {
         ComplexInt* const inPlace = b.bins(32);
         k.Velora_VSP_PartSp_AnalysisSum(inPlace, b.bins(32), b.bins(32), inPlace);
     }},
    {"synthesisSum",
     [](const KernelTable& k, Bench& b) {
         k.Velora_VSP_PartSp_SynthesisSum(b.bins(32), b.bins(32), b.bins(32));
     }},
    {"magPhaseBins",
     [](const KernelTable& k, Bench& b) {
         k.Velora_VSP_MagPhase_Bins(b.array<int32_t>(kBins), b.phasors(), b.bins(1 + b.pick(30)));
     }},
    {"exactMagPhase",
     [](const KernelTable& k, Bench& b) {
         k.exactMagPhase(b.array<int32_t>(kBins), b.phasors(), b.bins(1 + b.pick(29)));
     }},
    {"scaleOutput",
     [](const KernelTable& k, Bench& b) {
         k.scaleOutput(b.frames(kLowHop), b.values<int32_t>(kLowHop, 32),
                       b.values<int32_t>(kLowHop, 32));
     }},
    {"interpMagApplyPhase",
     [](const KernelTable& k, Bench& b) {
         k.interpMagApplyPhase(b.bins(1), b.values<int32_t>(kBins, 32),
                               b.values<int32_t>(kBins, 32), b.values<int32_t>(kBins, 32),
                               b.phasors(), b.pick(32768), 1 + b.pick(256));
     }},
    {"applyPhase",
     [](const KernelTable& k, Bench& b) {
         k.applyPhase(b.bins(1), b.values<int32_t>(kBins, 32), b.phasors(), 1 + b.pick(256));
     }},
    {"scaleSpectrum",
     [](const KernelTable& k, Bench& b) { k.scaleSpectrum(b.bins(32), 9830 + b.pick(13108)); }},
    {"phasorStep",
     [](const KernelTable& k, Bench& b) { k.phasorStep(b.phasors(), b.phasors(), b.phasors()); }},
    {"phasorAdvance",
     [](const KernelTable& k, Bench& b) { k.phasorAdvance(b.phasors(), b.phasors()); }},
    {"bandCentres",
     [](const KernelTable& k, Bench& b) {
         k.bandCentres(b.array<float>(kBands), b.bins(25), b.bins(25));
     }},
    {"peaks",
     [](const KernelTable& k, Bench& b) {
         int16_t* const peaks = b.array<int16_t>(kPeakRoom);
         int listed = 0;
         int8_t status[kBands];
         for (int8_t& s : status)
             s = int8_t(b.pick(3) == 0 ? 1 : 0);
         b.keep(k.findPeaks(peaks, &listed, b.values<int32_t>(kBins, 4 + b.pick(20)), status,
                            bandTable));
         if (listed > 0)
             k.lockPeaks(b.bins(24), b.phasors(), b.phasors(15), peaks, listed);
     }},
    {"turns",
     [](const KernelTable& k, Bench& b) {
         const auto phasors = [&] { return b.phasors(15); };
         const int32_t* const M = b.values<int32_t>(kBins, 25);
         k.sumTurns(b.bins(1), {M, b.values<int32_t>(kBins, 2 + b.pick(24))},
                    {phasors(), phasors()}, {phasors(), phasors()});
         ComplexShort* const turns = phasors();
         auto* const sum = reinterpret_cast<ComplexInt*>(
             b.values<int32_t>(2 * (kBins + 2 * kTurnReach), 1 + b.pick(29)));
         k.commonTurns(turns, sum + kTurnReach);
         k.applyTurns(b.bins(1), phasors(), turns, M, phasors(), phasors(), 1 + b.pick(kLastBin));
     }},
    {"split",
     [](const KernelTable& k, Bench& b) {
         auto* const state = reinterpret_cast<int32_t(*)[7]>(b.values<int32_t>(14, kDelayBits));
         const bool four = b.pick(2) == 0;
         k.split(b.frames(512), b.frames(512), b.frames(512), state,
                 four ? kSplitCoeffsB : kSplitCoeffsA, 1 + b.pick(512), four ? 4 : 2);
     }},
    {"interpolators",
     [](const KernelTable& k, Bench& b) {
         auto* const state = reinterpret_cast<int32_t(*)[6]>(b.values<int32_t>(12, kDelayBits));
         const int low = 1 + b.pick(128);
         const bool four = b.pick(2) == 0;
         (four ? k.interpolateBy4 : k.interpolateBy2)(b.frames(512), b.frames(128), b.frames(512),
                                                      state, kInterpCoeffs, low,
                                                      low * (four ? 4 : 2) - b.pick(2));
     }},
    {"fadeHighBand",
     [](const KernelTable& k, Bench& b) {
         k.fadeHighBand(b.frames(512), b.frames(512), b.frames(512), 1 + b.pick(512));
     }},
    {"mixHighBand",
     [](const KernelTable& k, Bench& b) {
         // Two weights from 0 to 2^13, and changes of the same size up or down.
         int32_t* const weights = b.values<int32_t>(4 * kMaxHop, 14);
         for (int n = 0; n < 2 * kMaxHop; ++n)
             weights[n] = std::abs(weights[n]);
         auto* const fades = reinterpret_cast<int32_t(*)[kMaxHop]>(weights);
         k.mixHighBand(b.frames(512), b.frames(512), b.frames(512), fades, b.pick(16385),
                       1 + b.pick(512));
     }},
    {"product",
     [](const KernelTable& k, Bench& b) {
         int16_t* const left = b.values<int16_t>(256, 16);
         int16_t* const right = b.values<int16_t>(256, 16);
         if (b.pick(4) == 0) // the one pair of products that doesn't fit 32 bits
             for (int16_t* samples : {left, right})
                 std::fill_n(samples, 256, int16_t(INT16_MIN));
         const int64_t sum = k.product(left, right, 2 * b.pick(129));
         b.keep(int(sum));
         b.keep(int(sum >> 32));
     }},
    {"halveRate",
     [](const KernelTable& k, Bench& b) {
         DecimatorState state[2];
         for (int pass = 0; pass < 2; ++pass)
             k.halveRate(reinterpret_cast<int32_t(*)[2]>(b.array<int32_t>(200)),
                         reinterpret_cast<int32_t(*)[2]>(b.values<int32_t>(400, kQ4Bits)), state,
                         b.pick(101));
     }},
    {"doubleRate",
     [](const KernelTable& k, Bench& b) {
         HalfBandState state[2];
         for (int pass = 0; pass < 2; ++pass)
             k.doubleRate(reinterpret_cast<int32_t(*)[2]>(b.array<int32_t>(400)),
                          reinterpret_cast<int32_t(*)[2]>(b.values<int32_t>(200, kQ4Bits)), state,
                          b.pick(101));
     }},
    {"halveRateTwice",
     [](const KernelTable& k, Bench& b) {
         halfBandTwice<DecimatorState>(k.halveRateTwice, k.halveRate, b, 2, 1);
     }},
    {"doubleRateTwice",
     [](const KernelTable& k, Bench& b) {
         halfBandTwice<HalfBandState>(k.doubleRateTwice, k.doubleRate, b, 1, 2);
     }},
    {"lowPassTwice",
     [](const KernelTable& k, Bench& b) {
         BiquadChannelState* const state[2] = {b.biquadStates(), b.biquadStates()};
         const int32_t* const coeffs = biquadCoefTable[b.pick(kSampleRateCount)];
         for (int pass = 0; pass < 2; ++pass)
             k.lowPassTwice(b.frames(100), state[0], state[1], coeffs,
                            b.pick(2) == 0 ? b.pick(6) : b.pick(101));
     }},
    {"conversions",
     [](const KernelTable& k, Bench& b) {
         const int samples = b.pick(100);
         const int32_t* const wide = b.values<int32_t>(100, 32);
         const int16_t* const narrow = b.values<int16_t>(100, 16);
         k.fromQ4(b.array<int16_t>(100), wide, samples);
         k.from24Bit(b.array<int16_t>(100), wide, samples);
         k.from32Bit(b.array<int16_t>(100), wide, samples);
         // Any bit pattern as a float: infinities, denormals and "not a number" among them.
         k.fromFloat(b.array<int16_t>(100), reinterpret_cast<const float*>(wide), samples);
         k.toQ4(b.array<int32_t>(100), narrow, samples);
         k.to24Bit(b.array<int32_t>(100), narrow, samples);
         k.to32Bit(b.array<int32_t>(100), narrow, samples);
         k.toFloat(b.array<float>(100), narrow, samples);
         k.q4From24Bit(b.array<int32_t>(100), wide, samples);
         k.q4From32Bit(b.array<int32_t>(100), wide, samples);
         k.q4FromFloat(b.array<int32_t>(100), reinterpret_cast<const float*>(wide), samples);
         k.q4To24Bit(b.array<int32_t>(100), wide, samples);
         k.q4To32Bit(b.array<int32_t>(100), wide, samples);
         k.q4ToFloat(b.array<float>(100), wide, samples);
     }},
};

using Backend = std::tuple<const KernelTable*, const Case*>;

class EveryBackend : public testing::TestWithParam<Backend> {};

TEST_P(EveryBackend, EqualsPortable)
{
    const auto& [table, kernel] = GetParam();
    for (unsigned seed = 1; seed <= 200; ++seed) {
        Bench expected(seed, seed % 4);
        Bench actual(seed, seed % 4);
        kernel->run(kPortableKernels, expected);
        kernel->run(*table, actual);
        ASSERT_EQ(actual.arrays, expected.arrays) << "seed " << seed;
    }
}

std::vector<Backend> backends()
{
    std::vector<Backend> all;
    for (const KernelTable* const* table = availableKernels(); *table != nullptr; ++table)
        for (const Case& kernel : kCases)
            all.emplace_back(*table, &kernel);
    return all;
}

std::string testName(const testing::TestParamInfo<Backend>& backend)
{
    return std::string(std::get<0>(backend.param)->name) + "_" + std::get<1>(backend.param)->name;
}

INSTANTIATE_TEST_SUITE_P(Kernels, EveryBackend, testing::ValuesIn(backends()), testName);

// The same bin after bin, without segments.
void centresBinByBin(float* bandCog, const ComplexInt* left, const ComplexInt* right)
{
    const auto x = [=](int k, bool isIm) {
        const int32_t sum =
            isIm ? (right[k].im >> 1) + (left[k].im >> 1) : (right[k].re >> 1) + (left[k].re >> 1);
        return k % 2 == 1 ? -sum : sum;
    };
    const auto term = [](int32_t y, int32_t weight_q14) {
        return int32_t(int64_t(y) * weight_q14 >> 14);
    };
    int32_t filtered[kBins + 1][2]; // y(k) at k + 1
    for (int part = 0; part < 2; ++part) {
        const auto next = [&](int k, int32_t last, int32_t before) {
            return x(k, part == 1) + term(last, kCogFeedback1) + term(before, kCogFeedback2);
        };
        int32_t y[2] = {};
        for (int k = kMirroredBins - 1; k >= 0; --k)
            y[1] = std::exchange(y[0], next(k, y[0], y[1]));
        filtered[0][part] = part == 1 ? -y[1] : y[1];
        filtered[1][part] = part == 1 ? -y[0] : y[0];
        for (int k = 1; k < kBins; ++k)
            filtered[k + 1][part] = next(k, filtered[k][part], filtered[k - 1][part]);
    }
    for (int b = 0; b < kBands; ++b) {
        int64_t cross = 0;
        int64_t energy = 0;
        for (int k = bandTable[0][b]; k <= bandTable[1][b]; ++k) {
            int64_t slope[2];
            for (int part = 0; part < 2; ++part)
                slope[part] = term(filtered[k + 2][part], kCogAbove) +
                              term(filtered[k + 1][part], kCogHere) +
                              term(filtered[k][part], kCogBelow);
            cross += slope[1] * x(k, false) - slope[0] * x(k, true);
            energy += int64_t(x(k, false)) * x(k, false) + int64_t(x(k, true)) * x(k, true);
        }
        bandCog[b] = centreOfGravity(cross, energy);
    }
}

// Where loud bins end as a segment begins early and nearly silent ones follow, the past may not be
// forgotten at its start.
TEST(BandCentres, OfSegmentsEqualThoseOfOneFilter)
{
    std::minstd_rand random(1);
    for (int round = 0; round < 3000; ++round) {
        ComplexInt spectrum[2][kBins] = {};
        const int end = kLastBin / kFilterSegments * (1 + round % 3) - kFilterEarlyBins + round % 8;
        for (auto& channel : spectrum)
            for (int k = 0; k < kBins; ++k) {
                const int bits = k < end ? 27 : int(random() % 3);
                const auto value = [&] {
                    return bits == 0 ? 0 : int32_t(uint32_t(random()) * 2u) >> (32 - bits);
                };
                channel[k] = {value(), value()};
            }
        float expected[kBands];
        centresBinByBin(expected, spectrum[0], spectrum[1]);
        for (const KernelTable* const* table = availableKernels(); *table != nullptr; ++table) {
            float actual[kBands];
            (*table)->bandCentres(actual, spectrum[0], spectrum[1]);
            for (int b = 0; b < kBands; ++b)
                ASSERT_TRUE(actual[b] == expected[b] ||
                            (std::isnan(actual[b]) && std::isnan(expected[b])))
                    << (*table)->name << " round " << round << " band " << b;
        }
    }
}

} // namespace
