// Calls that no sensible program makes, or makes only once in a while: each does what the header
// says, and touches nothing else. Behind the frames that a call reports its buffer stays as it was;
// it has exactly the size that the header asks for, and the address sanitizer sees what is beyond.

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <velora/bq.h>
#include <velora/fft.h>
#include <velora/stream.hpp>
#include <velora/vsp.h>

#include "support/owners.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<char>;
using Exe = int (Velora_VSP_Interface::*)(void*, const void*, int);

constexpr Exe kDirect = &Velora_VSP_Interface::Exe;
constexpr Exe kBuffered = &Velora_VSP_Interface::Exe_buffered;
constexpr int kWholeHops = 8192;                 // caller's frames, at any rate
constexpr int kPastTransition = 10 * kWholeHops; // lengthened or not
constexpr char kUntouched = 0x5A;

Bytes noise(size_t bytes)
{
    std::minstd_rand random(1);
    Bytes noise(bytes);
    for (char& byte : noise)
        byte = char(random() >> 8);
    return noise;
}

// 8 bytes a frame will do for any format: 16-bit samples use the first half, floats are anything.
const Bytes kNoise = noise(8 * kPastTransition);

class Caller {
public:
    Caller() = default;
    Caller(int sampleRate, Velora_BitDepth_T bitDepth, float speed)
    {
        start(sampleRate, bitDepth, speed);
    }
    void start(int sampleRate, Velora_BitDepth_T bitDepth, float speed)
    {
        engine->Init(sampleRate, bitDepth);
        engine->SetPar(speed);
        shift = sampleRate <= 48000 ? 0 : sampleRate <= 96000 ? 1 : 2;
        const bool wide = bitDepth == Velora_BitDepth_24 || bitDepth == Velora_BitDepth_32 ||
                          bitDepth == Velora_BitDepth_Float;
        frameBytes = wide ? 8 : 4;
    }

    /// What one call gives for `frames` frames of noise; 0 or less go with null pointers.
    Bytes play(int frames, Exe exe = kDirect, size_t from = 0)
    {
        if (frames <= 0) {
            EXPECT_EQ((engine.get()->*exe)(nullptr, nullptr, frames), 0);
            return {};
        }
        const size_t size = size_t(frames) * frameBytes;
        const auto in = std::make_unique_for_overwrite<char[]>(size);
        std::memcpy(in.get(), kNoise.data() + from * frameBytes, size);
        const size_t hop = size_t(512) << shift;
        const size_t carried = size_t(16384) << shift;
        const size_t taken = size_t(frames) + (exe == kBuffered ? hop : 0);
        const size_t room = 8 * (taken + 3) + hop + carried;
        const auto out = std::make_unique_for_overwrite<char[]>(room * frameBytes);
        std::fill_n(out.get(), room * frameBytes, kUntouched);
        const int written = (engine.get()->*exe)(out.get(), in.get(), frames);
        EXPECT_GE(written, 0);
        EXPECT_LE(size_t(written), room);
        const char* const end = out.get() + size_t(written) * frameBytes;
        const char* const endOfRoom = out.get() + room * frameBytes;
        EXPECT_EQ(std::count(end, endOfRoom, kUntouched), endOfRoom - end)
            << "something lies behind the " << written << " frames";
        return Bytes(static_cast<const char*>(out.get()), end);
    }

    EngineOwner engine{Velora_VSP_Factory::Create()};
    int shift = 0;
    size_t frameBytes = 4;
};

void append(Bytes& all, const Bytes& part)
{
    all.insert(all.end(), part.begin(), part.end());
}

struct Format {
    int rate;
    Velora_BitDepth_T depth;
};
constexpr Format kFormats[] = {{8000, Velora_BitDepth_32},
                               {44100, Velora_BitDepth_16},
                               {96000, Velora_BitDepth_Float},
                               {192000, Velora_BitDepth_24}};

TEST(Edges, CallsBeforeInitWorkAsAfterInitFor44100HzAnd16Bits)
{
    const std::function<Bytes(Caller&)> kFirstCalls[] = {
        [](Caller& caller) { return caller.play(3001); },
        [](Caller& caller) { return caller.play(3001, kBuffered); },
        [](Caller& caller) { return caller.play(caller.engine->GetPredictedInputFrameSize(700)); },
        [](Caller& caller) {
            caller.engine->SetPar(0.6f);
            return caller.play(kWholeHops);
        },
        [](Caller& caller) {
            caller.engine->SetPar(0.25f);
            return caller.play(3001, kBuffered);
        },
    };
    for (const auto& call : kFirstCalls) {
        Caller bare;
        Caller started(44100, Velora_BitDepth_16, 1.0f);
        const Bytes heard = call(bare);
        EXPECT_FALSE(heard.empty());
        EXPECT_TRUE(heard == call(started)) << "call " << &call - kFirstCalls;
    }
}

TEST(Edges, UnknownFormatsAreTakenAs16Bit)
{
    for (const int unknown : {4, -1, INT_MAX, INT_MIN})
        for (const int rate : {44100, 192000})
            for (const float speed : {1.0f, 0.5f, 0.7f}) {
                Caller odd(rate, static_cast<Velora_BitDepth_T>(unknown), speed);
                Caller plain(rate, Velora_BitDepth_16, speed);
                EXPECT_TRUE(odd.play(kWholeHops) == plain.play(kWholeHops)) << unknown;
                EXPECT_TRUE(odd.play(3001, kBuffered) == plain.play(3001, kBuffered)) << unknown;
            }
}

TEST(Edges, EveryRateHasItsHop)
{
    const std::pair<int, int> kHops[] = {{8000, 128},   {11025, 128},  {12000, 128}, {16000, 256},
                                         {22050, 256},  {24000, 256},  {32000, 512}, {44100, 512},
                                         {48000, 512},  {64000, 512},  {88200, 512}, {96000, 512},
                                         {128000, 512}, {176400, 512}, {192000, 512}};
    for (const auto& [rate, hop] : kHops)
        EXPECT_EQ(Caller(rate, Velora_BitDepth_16, 1.0f).engine->GetPredictedInputFrameSize(1), hop)
            << rate << " Hz";
}

TEST(Edges, RatesNobodyUsesPlayLikeOthersOfTheirClass)
{
    const std::pair<int, int> kAlike[] = {{INT_MIN, 44100}, {-1, 44100},      {0, 44100},
                                          {1, 44100},       {47999, 44100},   {48001, 64000},
                                          {96001, 128000},  {INT_MAX, 192000}};
    for (const auto& [odd, usual] : kAlike)
        for (const float speed : {1.0f, 0.8f, 0.3f}) {
            if (speed < 0.5f && usual != 44100)
                continue; // their low-pass is that of 44100 Hz, too
            Caller a(odd, Velora_BitDepth_16, speed);
            Caller b(usual, Velora_BitDepth_16, speed);
            const Bytes heard = a.play(kPastTransition);
            EXPECT_TRUE(heard == b.play(kPastTransition)) << odd << " Hz at " << speed;
            EXPECT_NE(std::count(heard.begin(), heard.end(), char(0)),
                      std::ptrdiff_t(heard.size()));
        }
}

TEST(Edges, WhatIsNoSpeedMeansOne)
{
    using Limits = std::numeric_limits<float>;
    for (const float none : {Limits::quiet_NaN(), -Limits::quiet_NaN(), Limits::infinity(),
                             -Limits::infinity(), Limits::denorm_min(), 0.0f, -0.7f,
                             std::nextafter(0.125f, 0.0f), std::nextafter(8.0f, 9.0f)}) {
        Caller a(44100, Velora_BitDepth_16, 0.7f);
        Caller b(44100, Velora_BitDepth_16, 0.7f);
        a.play(kPastTransition);
        b.play(kPastTransition);
        a.engine->SetPar(none);
        b.engine->SetPar(1.0f);
        EXPECT_TRUE(a.play(kWholeHops) == b.play(kWholeHops)) << none;
    }
}

// Blocks of no frames leave limit, carry and waiting input alone, and their pointers unread.
TEST(Edges, EmptyBlocksChangeNothing)
{
    for (const Format& format : kFormats)
        for (const Exe exe : {kDirect, kBuffered}) {
            Caller a(format.rate, format.depth, 0.7f);
            Caller b(format.rate, format.depth, 0.7f);
            for (int call = 0; call < 30; ++call) {
                const int wanted = call * 300;
                EXPECT_EQ(a.engine->GetPredictedInputFrameSize(wanted),
                          b.engine->GetPredictedInputFrameSize(wanted));
                for (const int none : {INT_MIN, INT_MIN + 1, -1, 0})
                    a.play(none, exe);
                ASSERT_TRUE(a.play(3001, exe) == b.play(3001, exe)) << "call " << call;
            }
        }
    const FilterOwner filter{Velora_BQ_Factory::Create()};
    for (const int none : {INT_MIN, -1, 0})
        filter->Exe(nullptr, nullptr, none);
}

// Address space through which the same few pages come again and again.
class Repeating {
public:
    static constexpr size_t kPeriod = size_t(1) << 20; // bytes

    explicit Repeating(size_t size)
        : bytes(size), start(mmap(nullptr, bytes, PROT_NONE, kAnywhere, -1, 0))
    {
        const int pages = memfd_create("pages", 0);
        complete = start != MAP_FAILED && pages >= 0 && ftruncate(pages, kPeriod) == 0;
        for (size_t done = 0; complete && done < bytes; done += kPeriod)
            complete = mmap(data() + done, kPeriod, PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_FIXED | MAP_POPULATE, pages, 0) != MAP_FAILED;
        close(pages);
    }
    ~Repeating()
    {
        if (start != MAP_FAILED)
            munmap(start, bytes);
    }
    Repeating(const Repeating&) = delete;
    Repeating& operator=(const Repeating&) = delete;

    bool isComplete() const { return complete; }
    char* data() const { return static_cast<char*>(start); }

private:
    static constexpr int kAnywhere = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

    size_t bytes;
    void* start;
    bool complete = false;
};

TEST(Edges, TheLargestBlockPassesWhole)
{
    if (sizeof(void*) < 8)
        GTEST_SKIP() << "no room for a block of INT_MAX frames";
    const size_t bytes = (size_t(INT_MAX) + 1) * 4;
    const Repeating in(bytes);
    const Repeating out(bytes);
    if (!in.isComplete() || !out.isComplete())
        GTEST_SKIP() << "this system refuses to map a block of INT_MAX frames";
    std::memcpy(in.data(), kNoise.data(), kNoise.size());
    Caller caller;
    EXPECT_EQ(caller.engine->Exe(out.data(), in.data(), INT_MAX), INT_MAX);
    EXPECT_EQ(std::memcmp(out.data(), in.data(), Repeating::kPeriod), 0);
}

// More than the queries count frame by frame.
TEST(Edges, AStreamTakesBlocksBeyond2To28Frames)
{
    if (sizeof(void*) < 8)
        GTEST_SKIP() << "no room for such a block";
    const size_t frames = (size_t(1) << 28) + 100001;
    const size_t bytes = frames * 2 + Repeating::kPeriod - frames * 2 % Repeating::kPeriod;
    const Repeating in(bytes);
    const Repeating out(bytes);
    if (!in.isComplete() || !out.isComplete())
        GTEST_SKIP() << "this system refuses to map such a block";
    std::memcpy(in.data(), kNoise.data(), kNoise.size());
    const auto* const from = reinterpret_cast<const int16_t*>(in.data());
    auto* const to = reinterpret_cast<int16_t*>(out.data());
    velora::Stream<int16_t> stream(44100, 1, velora::Options{});
    EXPECT_GE(stream.maxOutputFrames(frames), frames);
    EXPECT_GE(stream.inputFramesFor(frames), size_t(1) << 28);
    EXPECT_EQ(stream.process(from, frames, to, frames), frames);
    EXPECT_EQ(std::memcmp(out.data(), in.data(), kNoise.size()), 0);
    EXPECT_EQ(stream.clock().mediaFrame, int64_t(frames));
    // What comes behind them is counted as exactly as ever.
    stream.setSpeed(2.0);
    const size_t wanted = stream.inputFramesFor(5000);
    EXPECT_EQ(stream.process(from, wanted, to, 5000), 5000u);
}

TEST(Edges, InitBetweenPredictionAndProcessingStartsAnew)
{
    for (const Format& from : kFormats)
        for (const Format& to : kFormats) {
            Caller used(from.rate, from.depth, 1.6f);
            used.play(kPastTransition);
            used.engine->GetPredictedInputFrameSize(1);
            used.play(2048);                              // leaves a carry behind
            used.play(100, kBuffered);                    // and frames that wait
            used.engine->GetPredictedInputFrameSize(900); // and a limit
            used.start(to.rate, to.depth, 0.6f);
            Caller fresh(to.rate, to.depth, 0.6f);
            for (const Exe exe : {kDirect, kBuffered, kDirect})
                EXPECT_TRUE(used.play(kPastTransition, exe) == fresh.play(kPastTransition, exe))
                    << from.rate << " Hz to " << to.rate << " Hz";
            EXPECT_EQ(used.engine->GetPredictedInputFrameSize(1000),
                      fresh.engine->GetPredictedInputFrameSize(1000));
        }
}

// However little a caller asked for, and however much came in: the carry neither runs over nor
// loses a frame, also when the speed changes between prediction and processing.
TEST(Edges, WhatALimitHoldsBackComesWithTheNextCall)
{
    for (const Format& format : kFormats)
        for (const float speed : {0.126f, 0.4f, 0.6f, 1.5f})
            for (const int limit : {INT_MIN, 700}) {
                Caller free(format.rate, format.depth, speed);
                Caller limited(format.rate, format.depth, speed);
                free.play(kPastTransition);
                limited.play(kPastTransition);
                Bytes whole;
                Bytes parts;
                for (int call = 0; call < 24; ++call) {
                    if (call % 3 != 2)
                        limited.engine->GetPredictedInputFrameSize(limit);
                    if (call % 5 == 0)
                        for (Caller* caller : {&free, &limited})
                            caller->engine->SetPar(call % 2 == 0 ? 0.7f : speed);
                    const int frames = call % 2 == 0 ? 2048 : kWholeHops;
                    append(whole, free.play(frames));
                    append(parts, limited.play(frames));
                }
                EXPECT_EQ(parts.size(), whole.size()) << speed << ", limit " << limit;
                // Slow speeds filter what a call returns, without the carry.
                if (speed > 0.5f) {
                    EXPECT_TRUE(parts == whole) << speed << ", limit " << limit;
                }
            }
}

TEST(Edges, FramesWithoutPartnersWaitInTheDecimator)
{
    for (const int rate : {64000, 192000})
        for (const int block : {1, 2, 3, 5, 7}) {
            Caller whole(rate, Velora_BitDepth_Float, 1.0f);
            Caller cut(rate, Velora_BitDepth_Float, 1.0f);
            Bytes all;
            const int frames = 4 * 3 * 5 * 7;
            for (int from = 0; from < frames; from += block) {
                append(all, cut.play(block, kDirect, size_t(from)));
                cut.engine->SetPar(1.0f);
                cut.engine->GetPredictedInputFrameSize(100);
                cut.play(0);
            }
            EXPECT_EQ(all.size(), size_t(frames) * 8);
            EXPECT_TRUE(all == whole.play(frames)) << rate << " Hz in blocks of " << block;
        }
}

TEST(Edges, FftSizeIsTheCallersButForANewEngine)
{
    Velora_FFT_NEON_Init(5);
    const Caller engine;
    int32_t re[512] = {1};
    int32_t im[512] = {};
    Velora_FFT_NEON(re, im);
    EXPECT_EQ(std::count(re, re + 512, 1), 512) << "the spectrum of an impulse";

    Caller disturbed(44100, Velora_BitDepth_16, 0.7f);
    Caller left(44100, Velora_BitDepth_16, 0.7f);
    for (int call = 0; call < 20; ++call) {
        Velora_FFT_NEON_Init(5 + call % 4);
        EXPECT_TRUE(disturbed.play(2048) == left.play(2048));
    }
    Velora_FFT_NEON_Init(9);
}

// Any calls in any order with any numbers, and with the usual ones.
TEST(Edges, WildCallsStayWithinTheirBuffers)
{
    constexpr int kRates[] = {8000, 11025, 22050, 44100, 64000, 96000, 192000};
    constexpr int kBlocks[] = {1, 2, 3, 5, 100, 511, 512, 777, 2047, 2048, 2049, 6000};
    std::mt19937 random(1);
    const auto anyInt = [&] { return int(random()) >> (random() % 32); };
    const auto anySpeed = [&] {
        if (random() % 4 == 0) {
            const auto bits = uint32_t(random());
            float speed = 0.0f;
            std::memcpy(&speed, &bits, sizeof speed);
            return speed;
        }
        return std::ldexp(float(random() % 9), int(random() % 4) - 3);
    };
    Caller caller;
    for (int call = 0; call < 4000; ++call) {
        SCOPED_TRACE(call);
        switch (random() % 12) {
        case 0:
            caller.start(
                random() % 4 ? kRates[random() % std::size(kRates)] : anyInt(),
                static_cast<Velora_BitDepth_T>(random() % 4 ? int(random() % 4) : anyInt()),
                anySpeed());
            break;
        case 1:
        case 2:
        case 3:
            caller.engine->SetPar(anySpeed());
            break;
        case 4:
        case 5:
            caller.engine->GetPredictedInputFrameSize(anyInt() >> 8);
            break;
        default:
            caller.play(random() % 2 ? kBlocks[random() % std::size(kBlocks)]
                                     : std::min(anyInt(), kWholeHops),
                        random() % 3 ? kDirect : kBuffered);
        }
    }
}

} // namespace
