// How much media a Stream holds inside at the most, by speed and by how it was made: the table of docs/streaming.md.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include <velora/stream.hpp>

#include "benchmarks/dense_music.h"

namespace {

constexpr int kRate = 44100; // Hz
constexpr size_t kBlockFrames = 64;
constexpr size_t kSeconds = 5;
constexpr double kSpeeds[] = {0.5, 0.75, 1.0, 1.5, 2.0};

using Stream = velora::Stream<std::int16_t>;

struct Manner {
    const char* name;
    Stream (*make)();
};

constexpr Manner kManners[] = {
    {"rate and channels", [] { return Stream(kRate, 2); }},
    {"`Options`", [] { return Stream(kRate, 2, velora::Options{}); }},
    {"`Options` with `Latency::least`",
     [] {
         velora::Options options;
         options.latency = velora::Latency::least;
         return Stream(kRate, 2, options);
     }},
};

// Milliseconds of media.
double mostHeld(Stream stream, double speed, const std::vector<std::int16_t>& music)
{
    std::vector<std::int16_t> out(2 * kRate);
    stream.setSpeed(speed);
    std::int64_t most = 0;
    for (size_t at = 0; at + 2 * kBlockFrames <= music.size(); at += 2 * kBlockFrames) {
        stream.process(music.data() + at, kBlockFrames, out.data(), kRate);
        most = std::max(most, stream.latencyFrames());
    }
    return 1000.0 * double(most) / kRate;
}

void printTable()
{
    std::printf("| made with |");
    for (const double speed : kSpeeds)
        std::printf(" %g |", speed);
    std::printf("\n| --- | ---: | ---: | ---: | ---: | ---: |\n");
    const std::vector<std::int16_t> music = denseMusic(kRate, kSeconds * kRate);
    for (const Manner& manner : kManners) {
        std::printf("| %s |", manner.name);
        for (const double speed : kSpeeds) {
            const double held = mostHeld(manner.make(), speed, music);
            std::printf(held > 0.0 ? " %.0f ms |" : " %.0f |", held);
        }
        std::printf("\n");
    }
}

} // namespace

int main()
{
    try {
        printTable();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "latency: %s\n", error.what());
        return 1;
    }
}
