// How close the bare engine comes to what the processor could do at best, kernel by kernel.
//
// A kernel's bound is the longest of: its vector operations at the rates of the units they need, its
// loads and its stores, each as fast as this machine does them when nothing else is in the way; and,
// where results wait for the one before, the steps of that chain. What the vectors are is counted by
// the kernels themselves (kernels_counted.cpp); rates and chains are measured. The engine's bound is
// the sum of its kernels'; all that is between them counts as nothing. So no bound can be reached:
// address arithmetic, loops, branches and what the scalar parts of a kernel do come on top. Only of a
// kernel that does little can a bound be a little too high, since operations on constants count, which
// the compiler does beforehand.
//
//     bound [--rounds N]

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/bound/kernels_counted.h"
#include "benchmarks/bound/operations.h"
#include "benchmarks/bound/units.h"
#include "benchmarks/dense_music.h"
#include "benchmarks/peers/measure.h"
#include "benchmarks/peers/table.h"
#include "engine/velora_vsp.h"
#include "kernels/centre_of_gravity.h"

namespace {

constexpr int kRate = 44100;
constexpr int kBlockFrames = 1024;
constexpr size_t kClipFrames = size_t(4) * kRate / kBlockFrames * kBlockFrames;
constexpr double kSpeeds[] = {0.6, 0.75, 1.25, 1.5, 2.0, 3.0};
constexpr double kShownSpeeds[] = {0.75, 1.5}; // kernel by kernel
constexpr double kMostShareOfBound = 1.35;

/// What one kernel does while the clip is played.
struct Work {
    const char* name;
    Chain chain;
    Operations operations = {};
    double chainSteps = 0.0;
    std::vector<double> ticks = {}; // [call], the fewest of all rounds, which do the same work
    size_t calls = 0;               // of this round
};

double ticksNow()
{
    return double(__builtin_ia32_rdtsc());
}

void keepFewest(std::vector<double>& ticks, size_t call, double taken)
{
    if (call == ticks.size())
        ticks.push_back(taken);
    else
        ticks[call] = std::min(ticks[call], taken);
}

/// Stands in for one kernel of a table: counts or times it, and calls it.
template <auto member>
struct Hook;

template <class Result, class... Args, Result (*vsp::KernelTable::*member)(Args...)>
struct Hook<member> {
    static inline Result (*original)(Args...);
    static inline Work* work;
    static inline double (*steps)(Args...); // of the kernel's chain; may be null

    static Result count(Args... args)
    {
        const Operations before = operationsDone;
        const struct AtEnd {
            const Operations& before;
            ~AtEnd()
            {
                for (size_t i = 0; i < kOperations; ++i)
                    work->operations[i] += operationsDone[i] - before[i];
            }
        } atEnd{before};
        if (steps != nullptr)
            work->chainSteps += steps(args...);
        return original(args...);
    }
    static Result time(Args... args)
    {
        const struct AtEnd {
            double start;
            ~AtEnd() { keepFewest(work->ticks, work->calls++, ticksNow() - start); }
        } atEnd{ticksNow()};
        return original(args...);
    }
};

/// Puts a hook in the place of each kernel that 16-bit stereo at 44.1 kHz takes from 0.6 on.
class Hooks {
public:
    enum class For { counting, timing };

    Hooks(vsp::KernelTable& kernels, For use, std::vector<Work>& works)
        : table(kernels), what(use), all(works)
    {
        using K = vsp::KernelTable;
        all.reserve(kMostKernels);
        next = 0;
        add<&K::split>("split", Chain::allPass, [](auto, auto, auto, auto, auto, int frames, int) {
            return double(frames);
        });
        add<&K::fftOfHop>("fftOfHop");
        add<&K::separateChannels>("separateChannels");
        add<&K::Velora_VSP_PartSp_AnalysisSum>("analysisSum");
        add<&K::Velora_VSP_MagPhase_Bins>("magPhaseBins");
        add<&K::bandCentres>("bandCentres", Chain::allPass, [](auto, auto, auto) {
            constexpr int kOfSegment = vsp::kLastBin / vsp::kFilterSegments;
            return double(vsp::kMirroredBins + vsp::kFilterEarlyBins + kOfSegment);
        });
        add<&K::phasorStep>("phasorStep");
        add<&K::phasorAdvance>("phasorAdvance");
        add<&K::interpMagApplyPhase>("interpMagApplyPhase");
        add<&K::applyPhase>("applyPhase");
        add<&K::findPeaks>("findPeaks");
        add<&K::lockPeaks>("lockPeaks");
        add<&K::scaleSpectrum>("scaleSpectrum");
        add<&K::Velora_VSP_PartSp_SynthesisSum>("synthesisSum");
        add<&K::mergeChannels>("mergeChannels");
        add<&K::fftFirstQuarter>("fftFirstQuarter");
        add<&K::scaleOutput>("scaleOutput");
        add<&K::product>("product");
        add<&K::fadeHighBand>("fadeHighBand");
        // The second sections take two steps for each low-band frame.
        add<&K::interpolateBy4>(
            "interpolateBy4", Chain::allPass,
            [](auto, auto, auto, auto, auto, int lowFrames, int) { return 2.0 * lowFrames; });
    }

private:
    static constexpr size_t kMostKernels = 32; // so that none moves

    template <auto member>
    void add(const char* name, Chain chain = Chain::none,
             decltype(Hook<member>::steps) steps = nullptr)
    {
        using H = Hook<member>;
        if (next == all.size())
            all.push_back({name, chain});
        H::original = table.*member;
        H::work = &all[next++];
        H::work->calls = 0;
        H::steps = steps;
        table.*member = what == For::counting ? H::count : H::time;
    }

    vsp::KernelTable& table;
    For what;
    std::vector<Work>& all;
    size_t next;
};

/// Plays the clip once. `ticks` takes those of each call.
void play(const vsp::KernelTable& kernels, const std::vector<int16_t>& clip, double speed,
          std::vector<double>& ticks)
{
    const auto engine = std::make_unique<Velora_VSP>(kernels);
    engine->Init(kRate, Velora_BitDepth_16);
    engine->SetPar(float(speed));
    engine->Exe(nullptr, nullptr, 0);
    std::vector<int16_t> out(size_t(2 * (8 * (kBlockFrames + 3) + 2 * vsp::kMaxHop)));
    size_t call = 0;
    for (size_t from = 0; from < clip.size(); from += 2 * kBlockFrames) {
        const double start = ticksNow();
        engine->Exe(out.data(), clip.data() + from, kBlockFrames);
        keepFewest(ticks, call++, ticksNow() - start);
    }
}

struct Result {
    std::vector<Work> works;
    std::vector<double> engineTicks; // [call]
};

double sum(const std::vector<double>& values)
{
    return std::accumulate(values.begin(), values.end(), 0.0);
}

Result measure(const std::vector<int16_t>& clip, double speed, int rounds)
{
    Result result;
    std::vector<double> ignored;
    vsp::KernelTable counting = countedKernels();
    const Hooks countingHooks(counting, Hooks::For::counting, result.works);
    play(counting, clip, speed, ignored);
    for (int round = 0; round < rounds; ++round) {
        vsp::KernelTable timing = vsp::bestKernels();
        const Hooks timingHooks(timing, Hooks::For::timing, result.works);
        play(timing, clip, speed, ignored);
        play(vsp::bestKernels(), clip, speed, result.engineTicks);
    }
    return result;
}

/// Nanoseconds of a tick, and ticks that a hook takes by itself.
struct Clock {
    double nsPerTick;
    double ticksOfHook;
};

Clock measureClock()
{
    const double wall = wallSeconds();
    const double start = ticksNow();
    double fewest = HUGE_VAL;
    double last = start;
    while (wallSeconds() < wall + 0.05) {
        const double now = ticksNow();
        fewest = std::min(fewest, ticksNow() - now);
        last = now;
    }
    return {1e9 * (wallSeconds() - wall) / (last - start), fewest};
}

struct Bound {
    double ns;
    std::string by;
};

Bound boundOf(const Work& work, const Units& units)
{
    Bound most = {work.chainSteps * units.nsOf(work.chain), "the chain"};
    for (const Unit& unit : units.units) {
        double count = 0.0;
        for (const Operation operation : unit.operations)
            count += work.operations[size_t(operation)];
        if (count * unit.ns > most.ns)
            most = {count * unit.ns, unit.name};
    }
    return most;
}

/// Sums over the kernels, ns per input frame.
struct Sums {
    double measured, bound;
};

Sums printKernels(const Result& result, const Units& units, const Clock& clock, double frames,
                  double speed, bool shown)
{
    std::vector<std::vector<std::string>> rows = {
        {number("speed %g", speed), "ns per input frame", "bound", "by", "ratio"}};
    Sums sums = {};
    for (const Work& work : result.works) {
        if (work.ticks.empty())
            continue;
        const double own = sum(work.ticks) - double(work.ticks.size()) * clock.ticksOfHook;
        const double ns = own * clock.nsPerTick / frames;
        const Bound bound = boundOf(work, units);
        sums.measured += ns;
        sums.bound += bound.ns / frames;
        rows.push_back({work.name, number("%.3f", ns), number("%.3f", bound.ns / frames), bound.by,
                        number("%.2f", ns * frames / bound.ns)});
    }
    rows.push_back({"all kernels", number("%.3f", sums.measured), number("%.3f", sums.bound), "",
                    number("%.2f", sums.measured / sums.bound)});
    if (shown)
        printTable(rows);
    return sums;
}

void printUnits(const Units& units)
{
    std::vector<std::vector<std::string>> rows = {{"unit", "ps"}};
    for (const Unit& unit : units.units)
        rows.push_back({unit.name, number("%.0f", 1e3 * unit.ns)});
    rows.push_back({"a step of an all-pass section", number("%.0f", 1e3 * units.allPassNs)});
    rows.push_back({"a step of a biquad section", number("%.0f", 1e3 * units.biquadNs)});
    printTable(rows);
}

void printAll(int rounds)
{
    printMachine();
    if (std::string_view(vsp::bestKernels().name) != "avx2")
        throw std::runtime_error(
            "the bound is that of the AVX2 kernels, which this machine can't run");
    const Units units = measureUnits();
    const Clock clock = measureClock();
    printUnits(units);
    const std::vector<int16_t> clip = denseMusic(kRate, kClipFrames);

    std::vector<std::string> speeds = {"ns per input frame"};
    std::vector<std::string> engine = {"engine"}, kernels = {"its kernels"}, bounds = {"bound"},
                             ratios = {"engine / bound"};
    Verdict verdict;
    for (const double speed : kSpeeds) {
        const Result result = measure(clip, speed, rounds);
        const bool shown = std::count(std::begin(kShownSpeeds), std::end(kShownSpeeds), speed) > 0;
        const Sums sums = printKernels(result, units, clock, double(kClipFrames), speed, shown);
        const double whole = sum(result.engineTicks) * clock.nsPerTick / double(kClipFrames);
        speeds.push_back(number("speed %g", speed));
        engine.push_back(number("%.2f", whole));
        kernels.push_back(number("%.2f", sums.measured));
        bounds.push_back(number("%.2f", sums.bound));
        ratios.push_back(verdict.cell("%.2f", whole / sums.bound, kMostShareOfBound));
    }
    printTable({speeds, engine, kernels, bounds, ratios});
    verdict.print();
}

} // namespace

int main(int count, char** arguments)
{
    return printInRounds("bound", count, arguments, printAll);
}
