// What each kernel costs under each table: one call on arrays of the size that a hop at 44.1 kHz
// has, with values as music leaves them.

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "convert/biquad.h"
#include "kernels/band_split.h"
#include "kernels/kernel_table.h"
#include "kernels/peaks.h"
#include "kernels/sizes.h"

namespace {

using namespace vsp;

constexpr int kHop = 512;       // working-rate frames
constexpr int kLow = 128;       // low-band frames of a hop
constexpr int kGainQ14 = 15000; // just below 1, as a fade has
constexpr int kRow44100 = 7;    // of biquadCoefTable
constexpr int kBetweenFramesQ15 = 12000;

/// A hop's arrays, larger than any kernel needs, and as deep as music makes them.
class Arrays {
public:
    Frame* frames(size_t i) { return reinterpret_cast<Frame*>(narrow[i].data()); }
    int16_t* samples(size_t i) { return narrow[i].data(); }
    int32_t* words(size_t i) { return wide[i].data(); }
    int32_t (*pairs(size_t i))[2] { return reinterpret_cast<int32_t(*)[2]>(wide[i].data()); }
    ComplexInt* bins(size_t i) { return reinterpret_cast<ComplexInt*>(wide[i].data()); }
    ComplexShort* phasors(size_t i) { return phases[i].data(); }

    std::vector<float> floats = std::vector<float>(kValues, 0.3f);
    float bandCog[kBands] = {};
    int8_t bandStatus[kBands] = {};
    int32_t splitState[2][7] = {};
    int32_t interpState[2][6] = {};
    DecimatorState decimator[2];
    HalfBandState halfBand[2];
    BiquadChannelState biquads[2][2];
    int16_t peaks[kPeakRoom] = {};
    int listed = 0;

    Arrays()
    {
        std::minstd_rand random(1);
        const auto value = [&random](int bits) {
            return int32_t(random() >> (31 - bits)) - (1 << (bits - 1));
        };
        for (auto& array : narrow)
            for (int16_t& sample : array)
                sample = int16_t(value(15));
        for (auto& array : wide)
            for (int32_t& word : array)
                word = value(22);
        for (auto& array : phases)
            for (ComplexShort& phasor : array) {
                const double angle = value(20);
                phasor = {int16_t(std::lround(16384.0 * std::cos(angle))),
                          int16_t(std::lround(16384.0 * std::sin(angle)))};
            }
        kPortableKernels.findPeaks(peaks, &listed, words(0), bandStatus, bandTable);
    }

private:
    static constexpr size_t kValues = 2048;
    template <class T>
    using Bank = std::vector<std::vector<T>>;
    Bank<int16_t> narrow = Bank<int16_t>(3, std::vector<int16_t>(kValues));
    Bank<int32_t> wide = Bank<int32_t>(4, std::vector<int32_t>(kValues));
    Bank<ComplexShort> phases = Bank<ComplexShort>(3, std::vector<ComplexShort>(kBins));
};

using Call = void (*)(const KernelTable&, Arrays&);
struct Kernel {
    const char* name;
    Call call;
};

const Kernel kKernels[] = {
    {"fft512", [](const KernelTable& k, Arrays& a) { k.fft512(a.words(0), a.words(1)); }},
    {"fftOfHop",
     [](const KernelTable& k, Arrays& a) { k.fftOfHop(a.words(0), a.words(1), a.frames(0)); }},
    {"fftFirstQuarter",
     [](const KernelTable& k, Arrays& a) {
         k.fftFirstQuarter(a.words(2), a.words(3), a.words(0), a.words(1));
     }},
    {"separateChannels",
     [](const KernelTable& k, Arrays& a) {
         k.separateChannels(a.bins(2), a.bins(3), a.words(0), a.words(1));
     }},
    {"mergeChannels",
     [](const KernelTable& k, Arrays& a) {
         k.mergeChannels(a.words(0), a.words(1), a.bins(2), a.bins(3));
     }},
    {"analysisSum",
     [](const KernelTable& k, Arrays& a) {
         k.Velora_VSP_PartSp_AnalysisSum(a.bins(0), a.bins(1), a.bins(2), a.bins(3));
     }},
    {"synthesisSum",
     [](const KernelTable& k, Arrays& a) {
         k.Velora_VSP_PartSp_SynthesisSum(a.bins(0), a.bins(1), a.bins(2));
     }},
    {"magPhaseBins",
     [](const KernelTable& k, Arrays& a) {
         k.Velora_VSP_MagPhase_Bins(a.words(0), a.phasors(0), a.bins(1));
     }},
    {"exactMagPhase",
     [](const KernelTable& k, Arrays& a) { k.exactMagPhase(a.words(0), a.phasors(0), a.bins(1)); }},
    {"scaleOutput",
     [](const KernelTable& k, Arrays& a) { k.scaleOutput(a.frames(0), a.words(0), a.words(1)); }},
    {"interpMagApplyPhase",
     [](const KernelTable& k, Arrays& a) {
         k.interpMagApplyPhase(a.bins(0), a.words(1), a.words(2), a.words(3), a.phasors(0),
                               kBetweenFramesQ15, kBins);
     }},
    {"applyPhase", [](const KernelTable& k,
                      Arrays& a) { k.applyPhase(a.bins(0), a.words(1), a.phasors(0), kBins); }},
    {"scaleSpectrum",
     [](const KernelTable& k, Arrays& a) { k.scaleSpectrum(a.bins(0), kGainQ14); }},
    {"phasorStep", [](const KernelTable& k,
                      Arrays& a) { k.phasorStep(a.phasors(0), a.phasors(1), a.phasors(2)); }},
    {"phasorAdvance",
     [](const KernelTable& k, Arrays& a) { k.phasorAdvance(a.phasors(0), a.phasors(1)); }},
    {"bandCentres",
     [](const KernelTable& k, Arrays& a) { k.bandCentres(a.bandCog, a.bins(0), a.bins(1)); }},
    {"findPeaks",
     [](const KernelTable& k, Arrays& a) {
         benchmark::DoNotOptimize(
             k.findPeaks(a.peaks, &a.listed, a.words(0), a.bandStatus, bandTable));
     }},
    {"lockPeaks",
     [](const KernelTable& k, Arrays& a) {
         k.lockPeaks(a.bins(1), a.phasors(0), a.phasors(1), a.peaks, a.listed);
     }},
    {"split",
     [](const KernelTable& k, Arrays& a) {
         k.split(a.frames(0), a.frames(1), a.frames(2), a.splitState, kSplitCoeffsB, kHop, 4);
     }},
    {"interpolateBy2",
     [](const KernelTable& k, Arrays& a) {
         k.interpolateBy2(a.frames(0), a.frames(1), a.frames(2), a.interpState, kInterpCoeffs, kLow,
                          2 * kLow);
     }},
    {"interpolateBy4",
     [](const KernelTable& k, Arrays& a) {
         k.interpolateBy4(a.frames(0), a.frames(1), a.frames(2), a.interpState, kInterpCoeffs, kLow,
                          4 * kLow);
     }},
    {"fadeHighBand",
     [](const KernelTable& k, Arrays& a) {
         k.fadeHighBand(a.frames(0), a.frames(1), a.frames(2), kHop);
     }},
    {"halveRate", [](const KernelTable& k,
                     Arrays& a) { k.halveRate(a.pairs(0), a.pairs(1), a.decimator, kHop); }},
    {"doubleRate", [](const KernelTable& k,
                      Arrays& a) { k.doubleRate(a.pairs(0), a.pairs(1), a.halfBand, kHop); }},
    {"lowPassTwice",
     [](const KernelTable& k, Arrays& a) {
         k.lowPassTwice(a.frames(0), a.biquads[0], a.biquads[1], biquadCoefTable[kRow44100], kHop);
     }},
    {"toQ4", [](const KernelTable& k, Arrays& a) { k.toQ4(a.words(0), a.samples(0), 2 * kHop); }},
    {"fromQ4",
     [](const KernelTable& k, Arrays& a) { k.fromQ4(a.samples(0), a.words(0), 2 * kHop); }},
    {"from24Bit",
     [](const KernelTable& k, Arrays& a) { k.from24Bit(a.samples(0), a.words(0), 2 * kHop); }},
    {"from32Bit",
     [](const KernelTable& k, Arrays& a) { k.from32Bit(a.samples(0), a.words(0), 2 * kHop); }},
    {"fromFloat",
     [](const KernelTable& k, Arrays& a) { k.fromFloat(a.samples(0), a.floats.data(), 2 * kHop); }},
    {"to24Bit",
     [](const KernelTable& k, Arrays& a) { k.to24Bit(a.words(0), a.samples(0), 2 * kHop); }},
    {"to32Bit",
     [](const KernelTable& k, Arrays& a) { k.to32Bit(a.words(0), a.samples(0), 2 * kHop); }},
    {"toFloat",
     [](const KernelTable& k, Arrays& a) { k.toFloat(a.floats.data(), a.samples(0), 2 * kHop); }},
    {"q4FromFloat",
     [](const KernelTable& k, Arrays& a) { k.q4FromFloat(a.words(0), a.floats.data(), 2 * kHop); }},
    {"q4ToFloat",
     [](const KernelTable& k, Arrays& a) { k.q4ToFloat(a.floats.data(), a.words(0), 2 * kHop); }},
};

void callKernel(benchmark::State& state, const KernelTable& kernels, Call call)
{
    Arrays arrays;
    for (auto _ : state) {
        call(kernels, arrays);
        benchmark::ClobberMemory();
    }
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const Kernel& kernel : kKernels)
        for (auto table = availableKernels(); *table != nullptr; ++table)
            benchmark::RegisterBenchmark(
                (std::string("kernel/") + kernel.name + "/" + (*table)->name).c_str(), callKernel,
                std::cref(**table), kernel.call);
    return true;
}();

} // namespace
