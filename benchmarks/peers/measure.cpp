#include "benchmarks/peers/measure.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <time.h>

double threadSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

double wallSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void printMachine()
{
    std::ifstream cpuInfo("/proc/cpuinfo");
    std::string line;
    while (std::getline(cpuInfo, line) && !line.starts_with("model name")) {
    }
    const size_t colon = line.find(": ");
    double load = 0.0;
    getloadavg(&load, 1);
    std::printf("Machine: %s, %u processors, load %.2f.\n\n",
                colon == std::string::npos ? "unknown" : line.substr(colon + 2).c_str(),
                std::thread::hardware_concurrency(), load);
}

int printInRounds(const char* program, int count, char** arguments, void (*print)(int rounds))
{
    try {
        if (count != 1 && (count != 3 || std::string_view(arguments[1]) != "--rounds"))
            throw std::runtime_error("usage: " + std::string(program) + " [--rounds N]");
        print(count == 1 ? 9 : std::max(1, std::atoi(arguments[2])));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", program, error.what());
        return 1;
    }
    return 0;
}

namespace {

void checkLength(const Library& library, const Pass& pass, double speed)
{
    const double expected = double(pass.inFrames) / speed;
    // Latency and start-up are a fraction of a second.
    if (std::abs(double(pass.outFrames) - expected) > 0.1 * expected + 8192.0)
        throw std::runtime_error(library.name + " returns " + std::to_string(pass.outFrames) +
                                 " frames instead of about " + std::to_string(long(expected)));
}

} // namespace

Clip::Clip(int sampleRate, std::vector<int16_t> interleaved)
    : rate(sampleRate), frames(interleaved.size() / 2), samples(std::move(interleaved))
{
    for (size_t n = 0; n < 2 * frames; ++n) {
        floats.push_back(float(samples[n]) / 32768.0f);
        planes[n % 2].push_back(floats.back());
    }
}

Pass play(const Library& library, const Clip& clip, double speed, int blockFrames)
{
    const size_t block = size_t(blockFrames);
    const std::unique_ptr<Stretcher> stretcher = library.start(clip.rate, speed);
    Pass pass{};
    pass.callSeconds.reserve(clip.frames / block);
    const double cpuStart = threadSeconds();
    double before = wallSeconds();
    for (size_t from = 0; from + block <= clip.frames; from += block) {
        pass.outFrames += stretcher->process(clip, from, blockFrames);
        const double after = wallSeconds();
        pass.callSeconds.push_back(after - before);
        before = after;
    }
    pass.cpuSeconds = threadSeconds() - cpuStart;
    pass.inFrames = long(pass.callSeconds.size() * block);
    return pass;
}

std::vector<Measurement> measure(const std::vector<Entrant>& entrants, double speed,
                                 int blockFrames, int rounds)
{
    std::vector<Measurement> all(entrants.size());
    for (int round = 0; round < rounds; ++round)
        for (size_t i = 0; i < entrants.size(); ++i) {
            const auto& [library, clip] = entrants[i];
            const Pass pass = play(library, *clip, speed, blockFrames);
            checkLength(library, pass, speed);
            Measurement& m = all[i];
            m.name = library.name;
            m.rate = clip->rate;
            m.load.push_back(pass.cpuSeconds * clip->rate / double(pass.inFrames));
            m.callSeconds.resize(pass.callSeconds.size(), HUGE_VAL);
            std::transform(pass.callSeconds.begin(), pass.callSeconds.end(), m.callSeconds.begin(),
                           m.callSeconds.begin(),
                           [](double a, double b) { return std::min(a, b); });
        }
    return all;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + long(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double largest(const std::vector<double>& values)
{
    return *std::max_element(values.begin(), values.end());
}

double nsPerFrame(const Measurement& m)
{
    return 1e9 * median(m.load) / m.rate;
}

double spread(const Measurement& m)
{
    const auto [least, most] = std::minmax_element(m.load.begin(), m.load.end());
    return (*most - *least) / median(m.load);
}

double ratio(const Measurement& a, const Measurement& b)
{
    std::vector<double> ratios(a.load.size());
    std::transform(a.load.begin(), a.load.end(), b.load.begin(), ratios.begin(), std::divides<>());
    return median(ratios);
}
