// The promise to audio threads: processing neither allocates nor locks nor calls the system.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <random>
#include <tuple>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

#include <velora/stream.hpp>
#include <velora/vsp.h>

#include "support/owners.h"
#include "support/real_time_watch.h"
#include "support/signals.h"

#include <gtest/gtest.h>

namespace {

using real_time::Section;
using real_time::watch;

constexpr size_t kFrames = 8192;

void expectNone(const real_time::Findings& findings)
{
    EXPECT_EQ(findings.fault, "");
    if (!findings.systemCallsWatched)
        GTEST_SKIP() << "no seccomp filter to be had: only memory and locks were watched";
}

// What the tests below stand on.
TEST(RealTime, WatchSeesMemoryLocksAndSystemCalls)
{
    const auto faultOf = [](auto call) {
        return watch([&] {
                   const Section section("a call", 1.0);
                   call();
               })
            .fault;
    };
    void* const memory = ::operator new(100);
    std::mutex mutex;
    EXPECT_EQ(faultOf([] { ::operator delete(::operator new(100)); }),
              "malloc by a call at speed 1");
    EXPECT_EQ(faultOf([&] { ::operator delete(memory); }), "free by a call at speed 1");
    EXPECT_EQ(faultOf([&] { mutex.lock(); }), "pthread_mutex_lock by a call at speed 1");
    EXPECT_EQ(faultOf([] {}), "");
    if (watch([] {}).systemCallsWatched) {
        EXPECT_EQ(faultOf([] { getppid(); }),
                  "system call " + std::to_string(SYS_getppid) + " by a call at speed 1");
    }
    ::operator delete(memory);
}

class EngineInRealTime : public testing::TestWithParam<std::tuple<int, Velora_BitDepth_T>> {
protected:
    const EngineOwner engine{Velora_VSP_Factory::Create()};
};

TEST_P(EngineInRealTime, HoldsAtEverySpeedAndThroughEveryTransition)
{
    const int rate = std::get<0>(GetParam());
    const Velora_BitDepth_T depth = std::get<1>(GetParam());
    const int shift = rate <= 48000 ? 0 : rate <= 96000 ? 1 : 2;
    // 16-bit noise, loud and quiet by turns, so that transitions are lengthened.
    // Taken as float, it is anything.
    auto in = signals::noise(2 * kFrames, 20000, 1);
    for (size_t n = 0; n < in.size(); ++n)
        if (n / 1024 % 2 == 0)
            in[n] = {10, -10};
    std::vector<char> out(8 * (8 * kFrames + 4 * 16384));

    expectNone(watch([&] {
        engine->Init(rate, depth);
        for (const float speed :
             {0.7f, 1.0f, 0.5f, 0.25f, 0.3f, 0.125f, 1.0f, 8.0f, 1.3f, 0.126f}) {
            engine->SetPar(speed);
            engine->Exe(out.data(), in.data(), 0); // may make or destroy the converter
            for (int block = 0; block < 12; ++block) {
                const Section section("a processing call", speed);
                const int predicted = engine->GetPredictedInputFrameSize(1000) << shift;
                engine->Exe(out.data(), in.data(), std::min(predicted, 2048));
                engine->Exe(out.data(), in.data(), 2048);
                engine->Exe(out.data(), in.data(), 777);
                engine->Exe_buffered(out.data(), in.data(), 3000);
            }
        }
    }));
}

INSTANTIATE_TEST_SUITE_P(RatesAndFormats, EngineInRealTime,
                         testing::Combine(testing::Values(11025, 24000, 44100, 96000, 192000),
                                          testing::Values(Velora_BitDepth_16, Velora_BitDepth_24,
                                                          Velora_BitDepth_32,
                                                          Velora_BitDepth_Float)));

// Everything that an application does to a stream on its audio thread, whatever comes.
TEST(RealTime, HoldsForStreamsWhateverComes)
{
    constexpr int kActions = 100000;
    std::minstd_rand random(3);
    const std::vector<float> in(3 * 70000, 0.25f);
    std::vector<float> out(3 * 64);
    const auto speed = [&] {
        constexpr std::array kSpeeds = {0.125, 0.25, 0.3, 0.5, 0.7, 1.0, 1.3, 3.0, 8.0};
        return kSpeeds[random() % kSpeeds.size()];
    };
    for (const velora::Pitch pitch : {velora::Pitch::keep, velora::Pitch::drop}) {
        velora::Options options;
        options.pitch = pitch;
        velora::Stream<float> stream(44100, 3, options);
        const auto place = [&] { return std::int64_t(random() % 100000); };
        const auto act = [&] {
            switch (random() % 12) {
            case 0:
                return stream.seek(place());
            case 1:
                return stream.seek(place(), in.data(), random() % 20000);
            case 2:
                return random() % 50 == 0 ? stream.reset() : stream.clearPlans();
            case 3:
                return void(stream.jump(place()));
            case 4:
            case 5:
                return void(stream.setSpeedAt(stream.mediaFrameOf(stream.outputFrames()) + place(),
                                              speed()));
            case 6:
                return stream.requestSpeed(speed());
            case 7: // with too little room, or none
                return void(stream.process(in.data(), random() % 3000, out.data(), random() % 64));
            case 8:
                return void(random() % 50 == 0 ? stream.flush(out.data(), 64) : 0);
            default:
                return stream.setSpeed(speed(), random() % 2 == 0 ? 0 : place() / 20);
            }
        };
        expectNone(watch([&] {
            for (int n = 0; n < kActions / 2; ++n) {
                const Section section("action", n);
                act();
                if (n % 8 == 0) {
                    stream.process(in.data(),
                                   std::min<std::size_t>(stream.inputFramesFor(64), 70000),
                                   out.data(), 64);
                    stream.latencyFrames();
                    stream.maxOutputFrames(1000);
                    stream.clock();
                }
            }
        }));
    }
}

} // namespace
