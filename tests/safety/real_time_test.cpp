// The promise to audio threads: processing neither allocates nor locks nor calls the system.

#include <mutex>
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

TEST(RealTime, HoldsForStreamsWhileSpeedsComeAndGo)
{
    velora::Stream<float> stream(96000, 3);
    const std::vector<float> in(3 * 100000, 0.25f);
    std::vector<float> out(3 * 512);
    expectNone(watch([&] {
        for (const double speed : {0.7, 1.0, 0.5, 3.0, 0.125, 8.0, 1.0}) {
            stream.setSpeed(speed);
            for (int buffer = 0; buffer < 100; ++buffer) {
                const Section section("Stream", speed);
                stream.process(in.data(), stream.inputFramesFor(512), out.data(), 512);
            }
        }
        const Section section("Stream at its end", 1.0);
        while (stream.flush(out.data(), 512) == 512) {
        }
    }));
}

} // namespace
