// What a whole stream costs under each table of kernels, by speed, rate and sample format, and what
// a change of format costs before the first sound.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/dense_music.h"
#include "engine/velora_vsp.h"

namespace {

constexpr int kBlockFrames = 1024;

struct Stream {
    int rate; // Hz
    Velora_BitDepth_T depth;
    float speed;
};

const Stream kStreams[] = {
    {44100, Velora_BitDepth_16, 0.25f},    {44100, Velora_BitDepth_16, 0.3f},
    {44100, Velora_BitDepth_16, 0.5f},     {44100, Velora_BitDepth_16, 0.6f},
    {44100, Velora_BitDepth_16, 0.75f},    {44100, Velora_BitDepth_16, 1.0f},
    {44100, Velora_BitDepth_16, 1.25f},    {44100, Velora_BitDepth_16, 1.5f},
    {44100, Velora_BitDepth_16, 2.0f},     {44100, Velora_BitDepth_16, 3.0f},
    {8000, Velora_BitDepth_16, 0.75f},     {8000, Velora_BitDepth_16, 1.5f},
    {96000, Velora_BitDepth_Float, 0.75f}, {96000, Velora_BitDepth_Float, 1.5f},
};

/// Two seconds of dense music as bytes of the stream's format.
std::vector<char> input(const Stream& stream)
{
    const std::vector<int16_t> samples = denseMusic(stream.rate, 2 * size_t(stream.rate));
    if (stream.depth == Velora_BitDepth_16) {
        std::vector<char> bytes(samples.size() * sizeof(int16_t));
        std::memcpy(bytes.data(), samples.data(), bytes.size());
        return bytes;
    }
    std::vector<char> bytes(samples.size() * sizeof(float));
    for (size_t n = 0; n < samples.size(); ++n) {
        const float value = float(samples[n]) / 32768.0f;
        std::memcpy(bytes.data() + n * sizeof value, &value, sizeof value);
    }
    return bytes;
}

void playStream(benchmark::State& state, const vsp::KernelTable& kernels, const Stream& stream)
{
    const std::vector<char> in = input(stream);
    const size_t blockBytes = kBlockFrames * (stream.depth == Velora_BitDepth_16 ? 4 : 8);
    std::vector<float> out(2 * (8 * (kBlockFrames + 3) + 2 * vsp::kMaxHop));
    const auto engine = std::make_unique<Velora_VSP>(kernels);
    engine->Init(stream.rate, stream.depth);
    engine->SetPar(stream.speed);
    int64_t outFrames = 0;
    size_t from = 0;
    for (auto _ : state) {
        outFrames += engine->Exe(out.data(), in.data() + from, kBlockFrames);
        from = from + 2 * blockBytes <= in.size() ? from + blockBytes : 0;
    }
    const double inFrames = double(state.iterations()) * kBlockFrames;
    using benchmark::Counter;
    state.counters["x_real_time"] = Counter(inFrames / stream.rate, Counter::kIsRate);
    state.counters["s_per_in_frame"] = Counter(inFrames, Counter::kIsRate | Counter::kInvert);
    state.counters["s_per_out_frame"] =
        Counter(double(outFrames), Counter::kIsRate | Counter::kInvert);
}

/// Init, SetPar and what they leave to the next processing call.
void startStream(benchmark::State& state, const vsp::KernelTable& kernels)
{
    const auto engine = std::make_unique<Velora_VSP>(kernels);
    for (auto _ : state) {
        engine->Init(44100, Velora_BitDepth_16);
        engine->SetPar(0.75f);
        engine->Exe(nullptr, nullptr, 0);
    }
}

std::string streamName(const Stream& stream)
{
    return std::to_string(stream.rate) +
           (stream.depth == Velora_BitDepth_16 ? "_16_bit" : "_float") + "/speed_" +
           std::to_string(stream.speed).substr(0, 4);
}

[[maybe_unused]] const bool kRegistered = [] {
    benchmark::AddCustomContext("Bytes of an engine object", std::to_string(sizeof(Velora_VSP)));
    for (auto table = vsp::availableKernels(); *table != nullptr; ++table) {
        const std::string prefix = std::string("stream/") + (*table)->name + "/";
        for (const Stream& stream : kStreams)
            benchmark::RegisterBenchmark((prefix + streamName(stream)).c_str(), playStream,
                                         std::cref(**table), stream);
        benchmark::RegisterBenchmark((prefix + "start").c_str(), startStream, std::cref(**table));
    }
    return true;
}();

} // namespace
