// Our engine and the libraries that a user would otherwise pick, on the same sound in the same
// blocks, and which of our targets hold.
//
//     peers [--rounds N] [--seconds N] [--raw FILE]   FILE: 16-bit stereo at 44100 Hz, no header
//     peers --list                                    names of the libraries
//     peers --once LIBRARY SPEED SECONDS              one pass, for counting its instructions

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "benchmarks/dense_music.h"
#include "benchmarks/peers/measure.h"
#include "benchmarks/peers/stretcher.h"
#include "benchmarks/peers/table.h"

namespace {

constexpr int kRate = 44100;
constexpr int kHighRate = 96000;
constexpr int kBlockFrames = 1024;
constexpr int kHopFrames = 512; // at 44.1 kHz
// Some calls last 50 ns, others 10 us: the shortest of this many is free of interruptions.
constexpr int kCallRounds = 51;
constexpr int kSpeeds = 6;
constexpr double kSpeed[kSpeeds] = {0.6, 0.75, 1.25, 1.5, 2.0, 3.0};
constexpr const char* kHighRateName = "at 96 kHz, float";

// ---- Targets: the most that our time may be as a share of a peer's, at each speed ----
struct Target {
    std::string ours;
    std::string peer;
    double share[kSpeeds];
};
const Target kTargets[] = {
    {"avx2", "SoundTouch", {0.40, 0.40, 0.38, 0.36, 0.35, 0.34}},
    {"avx2", "SoundTouch quick seek", {0.92, 0.84, 0.70, 0.64, 0.60, 0.56}},
    {"avx2", "Sonic", {1, 1, 1, 1, 1, 1}},
    {"avx2", "Rubber Band R2", {0.020, 0.020, 0.030, 0.028, 0.028, 0.024}},
    {"sse41", "SoundTouch", {0.62, 0.62, 0.58, 0.56, 0.50, 0.55}},
    {"portable", "SoundTouch", {2, 2, 2, 2, 2, 2}},
    {"Stream, natural", "SoundTouch", {0.55, 0.55, 0.55, 0.55, 0.55, 0.55}},
    {"Stream, natural", "avx2", {1.25, 1.25, 1.25, 1.25, 1.25, 1.25}},
    {"Stream, engine", "avx2", {1.05, 1.05, 1.05, 1.05, 1.05, 1.05}},
};
constexpr double kMostHighRateCost = 1.75; // of the time per second of 44.1 kHz 16-bit music
constexpr double kMostWorstCall = 3.0;     // of the median call
constexpr size_t kMostEngineBytes = size_t(320) * 1024;

struct Settings {
    int rounds = 9;
    double seconds = 10.0;
    std::string raw;
};

std::vector<Library> allLibraries()
{
    std::vector<Library> all = veloraEngines();
    const std::vector<Library> streams = veloraStreams();
    all.insert(all.end(), streams.begin(), streams.end());
#ifdef VELORA_PEER_SOUNDTOUCH
    all.push_back(soundTouch());
    all.push_back(soundTouchQuickSeek());
#endif
#ifdef VELORA_PEER_SONIC
    all.push_back(sonic());
#endif
#ifdef VELORA_PEER_RUBBERBAND
    all.push_back(rubberBandR2());
    all.push_back(rubberBandR3());
#endif
    return all;
}

Clip music(int rate, double seconds)
{
    return {rate, denseMusic(rate, size_t(seconds * rate))};
}

Clip readRaw(const std::string& path)
{
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff bytes = file.tellg();
    if (bytes < 4 * kRate)
        throw std::runtime_error(path + ": can't be read, or shorter than a second");
    std::vector<int16_t> samples(size_t(bytes / 4) * 2);
    file.seekg(0);
    file.read(reinterpret_cast<char*>(samples.data()), std::streamsize(samples.size() * 2));
    return {kRate, std::move(samples)};
}

const Measurement* find(const std::vector<Measurement>& all, std::string_view name)
{
    const auto found = std::find_if(all.begin(), all.end(),
                                    [name](const Measurement& m) { return m.name == name; });
    return found == all.end() ? nullptr : &*found;
}

void printSpeed(double speed, const std::vector<Measurement>& all,
                const std::vector<Library>& engines)
{
    std::vector<std::vector<std::string>> rows = {{"speed " + number("%g", speed), "x real time",
                                                   "ns per frame", "spread", "largest call, us"}};
    for (const Library& engine : engines)
        rows[0].push_back(engine.name + " / it");
    for (const Measurement& m : all) {
        rows.push_back({m.name, number("%.0f", 1.0 / median(m.load)), number("%.1f", nsPerFrame(m)),
                        number("%.0f %%", 100.0 * spread(m)),
                        number("%.0f", 1e6 * largest(m.callSeconds))});
        for (const Library& engine : engines)
            rows.back().push_back(number("%.3f", ratio(*find(all, engine.name), m)));
    }
    printTable(rows);
}

std::vector<std::string> headOfSpeeds(const char* what)
{
    std::vector<std::string> head = {what};
    for (const double speed : kSpeed)
        head.push_back("speed " + number("%g", speed));
    return head;
}

void printTimes(const std::vector<std::vector<Measurement>>& bySpeed)
{
    std::vector<std::vector<std::string>> rows = {headOfSpeeds("ns per input frame")};
    for (size_t entrant = 0; entrant < bySpeed[0].size(); ++entrant) {
        rows.push_back({bySpeed[0][entrant].name});
        for (const std::vector<Measurement>& all : bySpeed)
            rows.back().push_back(number("%.1f", nsPerFrame(all[entrant])));
    }
    printTable(rows);
}

void printShares(Verdict& verdict, const std::vector<std::vector<Measurement>>& bySpeed,
                 const std::string& best)
{
    std::vector<std::vector<std::string>> rows = {headOfSpeeds("share of time")};
    const auto addRow = [&](const std::string& ours, const std::string& peer, const auto& target) {
        if (find(bySpeed[0], ours) == nullptr || find(bySpeed[0], peer) == nullptr)
            return;
        rows.push_back({ours + " / " + peer});
        for (size_t i = 0; i < kSpeeds; ++i)
            rows.back().push_back(verdict.cell(
                "%.3f", ratio(*find(bySpeed[i], ours), *find(bySpeed[i], peer)), target[i]));
    };
    for (const Target& target : kTargets)
        addRow(target.ours, target.peer, target.share);
    addRow(kHighRateName, best, std::vector<double>(kSpeeds, kMostHighRateCost));
    printTable(rows);
}

void printCalls(Verdict& verdict, const Library& engine, const Clip& clip)
{
    std::vector<std::vector<std::string>> rows = {
        {engine.name + ", a hop a call", "median call, us", "largest call, us", "share"}};
    for (const double speed : {1.0, 1.25, 1.5, 2.0, 3.0}) {
        const Measurement m = measure({{engine, &clip}}, speed, kHopFrames, kCallRounds)[0];
        const double middle = median(m.callSeconds), worst = largest(m.callSeconds);
        rows.push_back({"speed " + number("%g", speed), number("%.2f", 1e6 * middle),
                        number("%.2f", 1e6 * worst),
                        verdict.cell("%.2f", worst / middle, kMostWorstCall)});
    }
    printTable(rows);
}

void compare(const Settings& settings)
{
    const Clip clip = settings.raw.empty() ? music(kRate, settings.seconds) : readRaw(settings.raw);
    const Clip highRate = music(kHighRate, settings.seconds);
    const std::vector<Library> engines = veloraEngines();

    const std::vector<Library> libraries = allLibraries();
    std::vector<Entrant> entrants;
    std::transform(libraries.begin(), libraries.end(), std::back_inserter(entrants),
                   [&clip](const Library& library) {
                       return Entrant{library, &clip};
                   });
    entrants.push_back(
        {{kHighRateName, veloraEngines(SampleForm::float32).back().start}, &highRate});

    printMachine();
    std::vector<std::vector<Measurement>> bySpeed;
    for (const double speed : kSpeed) {
        bySpeed.push_back(measure(entrants, speed, kBlockFrames, settings.rounds));
        printSpeed(speed, bySpeed.back(), engines);
    }
    printTimes(bySpeed);
    Verdict verdict;
    printCalls(verdict, engines.back(), clip);
    printShares(verdict, bySpeed, engines.back().name);
    std::printf(
        "Bytes of an engine object: %s\n\n",
        verdict.cell("%.0f", double(veloraEngineBytes()), double(kMostEngineBytes)).c_str());
    verdict.print();
}

void playOnce(const std::string& name, double speed, double seconds)
{
    const std::vector<Library> libraries = allLibraries();
    const auto found = std::find_if(libraries.begin(), libraries.end(),
                                    [&](const Library& library) { return library.name == name; });
    if (found == libraries.end())
        throw std::runtime_error("no library " + name);
    // Making the sound costs the same, however much of it is played.
    Clip clip = music(kRate, 3.0);
    clip.frames = std::min(clip.frames, size_t(seconds * kRate));
    const Pass pass = play(*found, clip, speed, kBlockFrames);
    std::printf("%ld %ld\n", pass.inFrames, pass.outFrames);
}

Settings parse(int count, char** arguments)
{
    Settings settings;
    if (count % 2 == 0)
        throw std::runtime_error("options come with a value each");
    for (int i = 1; i < count; i += 2) {
        const std::string_view name = arguments[i];
        if (name == "--rounds")
            settings.rounds = std::max(1, std::atoi(arguments[i + 1]));
        else if (name == "--seconds")
            settings.seconds = std::max(1.0, std::atof(arguments[i + 1]));
        else if (name == "--raw")
            settings.raw = arguments[i + 1];
        else
            throw std::runtime_error("unknown option " + std::string(name));
    }
    return settings;
}

} // namespace

int main(int count, char** arguments)
{
    try {
        if (count == 2 && std::string_view(arguments[1]) == "--list")
            for (const Library& library : allLibraries())
                std::puts(library.name.c_str());
        else if (count == 5 && std::string_view(arguments[1]) == "--once")
            playOnce(arguments[2], std::atof(arguments[3]), std::atof(arguments[4]));
        else
            compare(parse(count, arguments));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "peers: %s\n", error.what());
        return 1;
    }
    return 0;
}
