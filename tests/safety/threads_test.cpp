// Engines, filters, transforms and streams on many threads at once give what each gives alone.
// Under ThreadSanitizer (scripts/check tsan) this also proves that they share nothing that changes.

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <velora/bq.h>
#include <velora/fft.h>
#include <velora/stream.hpp>
#include <velora/vsp.h>

#include "support/owners.h"

#include <gtest/gtest.h>

namespace {

constexpr int kEngines = 64;
constexpr int kOthers = 8; // of each kind
constexpr int kThreads = 16;
constexpr int kMostFrames = 3000; // in one call
// Frames of the largest format: eight times the input, a hop, all that can have been carried.
constexpr size_t kRoom = 8 * (kMostFrames + 3) + 2048 + 4 * 16384;

using Bytes = std::vector<char>;

int rounds()
{
    const char* const wanted = std::getenv("VELORA_THREAD_ROUNDS");
    return wanted != nullptr ? std::atoi(wanted) : 30;
}

// Two int32 or float, or twice two int16, a frame. The floats are noise at half of full scale.
const std::vector<int32_t>& integers()
{
    static const std::vector<int32_t> samples = [] {
        std::minstd_rand random(1);
        std::vector<int32_t> all(2 * 2 * kMostFrames);
        for (int32_t& sample : all)
            sample = int32_t(random() << 1);
        return all;
    }();
    return samples;
}
const std::vector<float>& floats()
{
    static const std::vector<float> samples = [] {
        std::vector<float> all;
        for (int32_t sample : integers())
            all.push_back(float(sample) * 0x1p-32f);
        return all;
    }();
    return samples;
}

// Something that sounds: a course of calls that chance decides, the same in every run.
class Voice {
public:
    explicit Voice(unsigned seed) : random(seed) {}
    virtual ~Voice() = default;
    // Makes the next calls, which may write to `out`.
    virtual void step(Bytes& out) = 0;

    std::vector<uint64_t> heard; // a digest of each step's results

protected:
    template <class T, size_t n>
    T oneOf(const T (&values)[n])
    {
        return values[random() % n];
    }
    size_t position() { return 2 * (random() % kMostFrames); }
    // FNV-1a.
    void hear(const void* data, size_t bytes)
    {
        uint64_t digest = 14695981039346656037u;
        for (size_t n = 0; n < bytes; ++n)
            digest = (digest ^ static_cast<const unsigned char*>(data)[n]) * 1099511628211u;
        heard.push_back(digest);
    }
    std::minstd_rand random;
};

class EngineVoice : public Voice {
public:
    using Voice::Voice;
    void step(Bytes& out) override
    {
        if (engine == nullptr || random() % 16 == 0)
            create();
        else if (random() % 8 == 0)
            configure();
        if (random() % 3 == 0)
            engine->SetPar(
                oneOf({1.0f, 0.125f, 0.2f, 0.25f, 0.4f, 0.5f, 0.7f, 0.9f, 1.3f, 2.0f, 8.0f}));
        if (random() % 4 == 0) {
            const int predicted = engine->GetPredictedInputFrameSize(int(random() % 2000));
            hear(&predicted, sizeof predicted);
        }
        const void* const in = depth == Velora_BitDepth_Float
                                   ? static_cast<const void*>(floats().data() + position())
                                   : integers().data() + position();
        const int frames = int(random() % kMostFrames);
        const int written = random() % 4 == 0 ? engine->Exe_buffered(out.data(), in, frames)
                                              : engine->Exe(out.data(), in, frames);
        hear(out.data(), size_t(written) * (depth == Velora_BitDepth_16 ? 4 : 8));
    }

private:
    void create()
    {
        engine.reset(Velora_VSP_Factory::Create());
        depth = Velora_BitDepth_16;
        if (random() % 4 != 0)
            configure();
    }
    void configure()
    {
        depth = oneOf(
            {Velora_BitDepth_16, Velora_BitDepth_24, Velora_BitDepth_32, Velora_BitDepth_Float});
        engine->Init(oneOf({8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000,
                            88200, 96000, 128000, 176400, 192000}),
                     depth);
    }

    EngineOwner engine;
    Velora_BitDepth_T depth = Velora_BitDepth_16;
};

class FilterVoice : public Voice {
public:
    using Voice::Voice;
    void step(Bytes& out) override
    {
        if (filter == nullptr || random() % 16 == 0)
            filter.reset(Velora_BQ_Factory::Create());
        if (random() % 4 == 0)
            filter->Init(oneOf({8000, 44100, 192000}));
        const size_t frames = random() % kMostFrames;
        filter->Exe(reinterpret_cast<short(*)[2]>(out.data()),
                    reinterpret_cast<const short(*)[2]>(integers().data() + position()),
                    int(frames));
        hear(out.data(), 4 * frames);
    }

private:
    FilterOwner filter;
};

class TransformVoice : public Voice {
public:
    using Voice::Voice;
    void step(Bytes&) override
    {
        Velora_FFT_NEON_Init(9);
        int32_t points[2][512]; // real, imaginary
        for (int32_t& point : points[0])
            point = int32_t(random() % 65536) - 32768;
        for (int32_t& point : points[1])
            point = int32_t(random() % 65536) - 32768;
        for (int pass = 0; pass < 10; ++pass) {
            Velora_FFT_NEON(points[0], points[1]);
            for (auto& part : points)
                for (int32_t& point : part)
                    point /= 512;
            Velora_IFFT_NEON(points[0], points[1]);
        }
        hear(points, sizeof points);
    }
};

class StreamVoice : public Voice {
public:
    using Voice::Voice;
    void step(Bytes&) override
    {
        if (random() % 3 == 0)
            stream.setSpeed(oneOf({0.125, 0.3, 0.5, 0.8, 1.0, 1.5, 4.0}));
        std::vector<float> result;
        stream.process(floats().data() + position(), random() % (kMostFrames / 2), result);
        hear(result.data(), result.size() * sizeof result[0]);
    }

private:
    velora::Stream<float> stream{48000, 3};
};

template <class Kind>
void addVoices(std::vector<std::unique_ptr<Voice>>& voices, int count)
{
    for (int n = 0; n < count; ++n)
        voices.push_back(std::make_unique<Kind>(unsigned(voices.size() + 1)));
}

// What every voice gives when `threadCount` threads share them.
// Each round, every voice moves on to the next thread.
std::vector<std::vector<uint64_t>> play(size_t threadCount)
{
    std::vector<std::unique_ptr<Voice>> voices;
    addVoices<EngineVoice>(voices, kEngines);
    addVoices<FilterVoice>(voices, kOthers);
    addVoices<TransformVoice>(voices, kOthers);
    addVoices<StreamVoice>(voices, kOthers);

    std::barrier endOfRound{std::ptrdiff_t(threadCount)};
    const auto work = [&](size_t thread) {
        Bytes out(kRoom * 8);
        for (size_t round = 0; round < size_t(rounds()); ++round) {
            for (size_t v = 0; v < voices.size(); ++v)
                if ((v + round) % threadCount == thread)
                    voices[v]->step(out);
            endOfRound.arrive_and_wait();
        }
    };
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < threadCount; ++thread)
        threads.emplace_back(work, thread);
    for (std::thread& thread : threads)
        thread.join();

    std::vector<std::vector<uint64_t>> all;
    for (const auto& voice : voices)
        all.push_back(voice->heard);
    return all;
}

// At speed 1.0 media and output frames are the same, so a clock that is put together from two
// positions shows.
TEST(Threads, ReadAStreamsClockWhileItRuns)
{
    velora::Stream<float> stream{48000, 2};
    std::atomic<bool> done = false;
    std::vector<std::thread> readers;
    std::atomic<int> torn = 0, backwards = 0;
    for (int n = 0; n < 3; ++n)
        readers.emplace_back([&] {
            std::int64_t last = 0;
            while (!done) {
                const velora::Clock clock = stream.clock();
                torn += clock.mediaFrame != clock.outputFrame + 1000 * clock.seeks;
                backwards += clock.seeks * 1000000 + clock.outputFrame < last;
                last = clock.seeks * 1000000 + clock.outputFrame;
                stream.requestSpeed(1.0);
            }
        });
    const std::vector<float> in(2 * 100, 0.5f);
    std::vector<float> out(2 * 100);
    for (int round = 0; round < 20 * rounds(); ++round) {
        stream.process(in.data(), 1 + std::size_t(round) % 100, out.data(), 100);
        if (round % 97 == 0)
            stream.seek(1000 * (round / 97 + 1));
    }
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(backwards, 0);
}

// On threads first: so they meet what a process sets up once while it is being set up.
TEST(Threads, GiveEveryVoiceWhatItGivesAlone)
{
    std::atomic<bool> done = false;
    std::thread settler([&] {
        while (!done) {
            Velora_FFT_NEON_Init(9);
            Velora_VSP_FFT_Init(9);
            std::this_thread::yield();
        }
    });
    const auto together = play(kThreads);
    done = true;
    settler.join();

    const auto alone = play(1);
    for (size_t v = 0; v < alone.size(); ++v) {
        const auto difference = std::mismatch(alone[v].begin(), alone[v].end(), //
                                              together[v].begin(), together[v].end());
        EXPECT_EQ(together[v], alone[v])
            << "voice " << v << " from result " << difference.first - alone[v].begin();
    }
}

} // namespace
