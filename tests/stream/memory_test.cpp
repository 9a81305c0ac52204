// Memory that runs out under a stream: nothing is lost but the change that it was asked for.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include <gtest/gtest.h>
#include <velora/stream.hpp>
#include <velora/vsp_c.h>

#include "support/allocations.h"

namespace {

using Stream = velora::Stream<std::int16_t>;

constexpr int kChannels = 5;

std::vector<std::int16_t> sawtooth(int frames)
{
    std::vector<std::int16_t> samples(std::size_t(frames * kChannels));
    for (std::size_t n = 0; n < samples.size(); ++n)
        samples[n] = std::int16_t(n * 1237);
    return samples;
}

/// What came of a call for which memory ran out after some allocations.
struct Outcome {
    bool reached; // the call has more of them
    bool thrown;  // std::bad_alloc; a companion that can't be had stays absent instead
};

template <class Call>
Outcome callWithin(int allocations, Call call)
{
    const MemoryLimit limit(allocations);
    try {
        call();
    } catch (const std::bad_alloc&) {
        return {true, true};
    }
    return {limit.wasMet(), false};
}

/// `test(allocations)` for 0, 1 and so on, until it tells that memory didn't run out.
/// @returns how many allocations that takes
template <class Test>
int withinEveryLimit(Test test)
{
    int allocations = 0;
    while (test(allocations) && !testing::Test::HasFailure())
        ++allocations;
    return allocations;
}

} // namespace

TEST(StreamMemory, AStreamThatCannotBeMadeLeavesNothingBehind)
{
    const int allocations = withinEveryLimit([](int limit) {
        const std::size_t before = liveAllocations();
        const bool reached = callWithin(limit, [] { Stream(48000, kChannels); }).reached;
        EXPECT_EQ(liveAllocations(), before) << "allocations: " << limit;
        return reached;
    });
    EXPECT_GT(allocations, 3 * 3); // three engines, each with companions

    withinEveryLimit([](int limit) {
        const std::size_t before = liveAllocations();
        velora_stream* stream = nullptr;
        int error = VELORA_OK;
        const bool reached = callWithin(limit, [&] {
                                 error = velora_stream_create(&stream, 48000, kChannels,
                                                              VELORA_INT16, VELORA_PITCH_KEEP);
                             }).reached;
        EXPECT_EQ(error, stream != nullptr ? VELORA_OK : VELORA_ERROR_MEMORY);
        velora_stream_destroy(stream);
        EXPECT_EQ(liveAllocations(), before) << "allocations: " << limit;
        return reached;
    });
}

/// A change of speed that fails at any of its allocations, and another attempt at it.
template <class Change>
void expectStrongGuarantee(Change change)
{
    const std::vector<std::int16_t> in = sawtooth(12000);
    // Engines sound, others will join: both must be there at a time.
    const auto start = [&](Stream& stream, std::vector<std::int16_t>& out) {
        stream.setSpeed(0.8);
        stream.process(in, out);
        for (int n = 0; n < 64; ++n) // all that there is room for
            stream.setSpeedAt(13000 + 50 * n, n % 2 == 0 ? 1.0 : 0.9);
    };
    const auto finish = [&](Stream& stream, std::vector<std::int16_t>& out) {
        stream.process(in, out);
        stream.flush(out);
    };
    std::vector<std::int16_t> unchanged, changed;
    Stream first(48000, kChannels), second(48000, kChannels);
    start(first, unchanged);
    finish(first, unchanged);
    start(second, changed);
    change(second);
    finish(second, changed);
    ASSERT_FALSE(unchanged == changed);

    const int allocations = withinEveryLimit([&](int limit) {
        const std::size_t before = liveAllocations();
        Outcome outcome{};
        for (const bool again : {false, true}) {
            Stream stream(48000, kChannels);
            std::vector<std::int16_t> out;
            start(stream, out);
            outcome = callWithin(limit, [&] { change(stream); });
            if (outcome.thrown && again)
                change(stream);
            finish(stream, out);
            EXPECT_TRUE(out == (outcome.thrown && !again ? unchanged : changed))
                << "allocations: " << limit;
        }
        EXPECT_EQ(liveAllocations(), before) << "allocations: " << limit;
        return outcome.reached;
    });
    EXPECT_GT(allocations, 0);
}

TEST(StreamMemory, APlanThatFailsLeavesTheStreamAsItWas)
{
    expectStrongGuarantee([](Stream& stream) { stream.setSpeedAt(20000, 2.0); });
}

TEST(StreamMemory, OutputThatCannotPileUpIsMadeLater)
{
    const std::vector<std::int16_t> in = sawtooth(400000);
    std::vector<std::int16_t> wanted;
    Stream reference(48000, kChannels);
    reference.setSpeed(0.3);
    reference.process(in, wanted);
    reference.flush(wanted);

    const int allocations = withinEveryLimit([&](int limit) {
        Stream stream(48000, kChannels);
        stream.setSpeed(0.3);
        std::vector<std::int16_t> out;
        const Outcome outcome =
            callWithin(limit, [&] { stream.process(in.data(), 400000, out.data(), 0); });
        EXPECT_EQ(outcome.thrown, outcome.reached);
        const std::size_t taken = std::size_t(stream.inputFrames());
        stream.process(in.data() + taken * kChannels, 400000 - taken, out);
        stream.flush(out);
        EXPECT_TRUE(out == wanted) << "allocations: " << limit;
        return outcome.reached;
    });
    EXPECT_GT(allocations, 1);
}
