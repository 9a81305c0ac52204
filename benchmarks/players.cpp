// What velora::Stream costs: its time as a share of the bare engine's, at 1.0 as a share of a copy's,
// and how much longer than the usual call of a player its longest one is.
//
//     players [--rounds N]

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <velora/stream.hpp>
#include <velora/vsp.h>

#include "benchmarks/dense_music.h"
#include "benchmarks/peers/measure.h"
#include "benchmarks/peers/table.h"

namespace {

constexpr int kRate = 44100;
constexpr size_t kHopFrames = 512;
constexpr size_t kClipFrames = size_t(1) << 16; // a whole number of all blocks
constexpr size_t kBlocks[] = {64, 512, 4096};   // frames that go in
constexpr size_t kBuffers[] = {64, 128, 512};   // frames that come out

// ---- Targets ----
constexpr double kMostShareOfEngine = 1.05;   // int16 stereo in blocks of 512, the engine's sound
constexpr double kMostShareNatural = 1.25;    // the same in natural sound
constexpr double kMostShareOfCopy = 3.0;      // stereo at 1.0, blocks of a hop and more
constexpr double kMostShareOfUsualCall = 4.0; // a change that comes within 50 ms

/// Dense music as a stream takes it and as the engines of its pairs of channels do, each pair a
/// part of the clip later than the one before.
template <class Sample>
struct Music {
    explicit Music(int channelCount) : channels(channelCount)
    {
        const std::vector<int16_t> stereo = denseMusic(kRate, kClipFrames);
        pairs.resize(size_t(channels + 1) / 2);
        for (size_t pair = 0; pair < pairs.size(); ++pair)
            for (size_t n = 0; n < stereo.size(); ++n)
                pairs[pair].push_back(
                    sample(stereo[(n + pair * 2 * kClipFrames / pairs.size()) % stereo.size()]));
        for (size_t frame = 0; frame < kClipFrames; ++frame)
            for (size_t channel = 0; channel < size_t(channels); ++channel)
                interleaved.push_back(pairs[channel / 2][2 * frame + channel % 2]);
    }

    int channels;
    std::vector<Sample> interleaved;        // [kClipFrames * channels]
    std::vector<std::vector<Sample>> pairs; // [pair][2 * kClipFrames]

private:
    static Sample sample(int16_t value)
    {
        if constexpr (std::is_same_v<Sample, float>)
            return float(value) / 32768.0f;
        else
            return value;
    }
};

template <class Sample>
constexpr const char* kFormatName = std::is_same_v<Sample, float> ? "float" : "int16";

velora::Options optionsFor(velora::Sound sound)
{
    velora::Options options;
    options.sound = sound;
    return options;
}

// ---- Shares of time ----

/// Plays the clip once, and goes on where it stood the next time. What is made for it, is before.
using Pass = std::function<void()>;

template <class Sample>
Pass engines(const Music<Sample>& music, double speed, size_t block)
{
    using Engine = std::shared_ptr<Velora_VSP_Interface>;
    std::vector<Engine> all;
    for (size_t pair = 0; pair < music.pairs.size(); ++pair) {
        all.emplace_back(Velora_VSP_Factory::Create(), Velora_VSP_Factory::Destroy);
        all.back()->Init(kRate, std::is_same_v<Sample, float> ? Velora_BitDepth_Float
                                                              : Velora_BitDepth_16);
        all.back()->SetPar(float(speed));
    }
    std::vector<Sample> out(2 * (8 * (block + 3) + 2 * kHopFrames));
    return [&music, all, out, block]() mutable {
        for (size_t from = 0; from < kClipFrames; from += block)
            for (size_t pair = 0; pair < all.size(); ++pair) {
                const Sample* const in = music.pairs[pair].data() + 2 * from;
                if (block % kHopFrames == 0)
                    all[pair]->Exe(out.data(), in, int(block));
                else
                    all[pair]->Exe_buffered(out.data(), in, int(block));
            }
    };
}

template <class Sample>
Pass stream(const Music<Sample>& music, velora::Sound sound, double speed, size_t block)
{
    const auto player =
        std::make_shared<velora::Stream<Sample>>(kRate, music.channels, optionsFor(sound));
    player->setSpeed(speed);
    const size_t room = 8 * (block + kHopFrames);
    std::vector<Sample> out(room * size_t(music.channels));
    return [&music, player, out, room, block]() mutable {
        for (size_t from = 0; from < kClipFrames; from += block)
            player->process(music.interleaved.data() + from * size_t(music.channels), block,
                            out.data(), room);
    };
}

template <class Sample>
Pass copies(const Music<Sample>& music, size_t block)
{
    const size_t samples = block * size_t(music.channels);
    std::vector<Sample> out(samples);
    return [&music, out, samples]() mutable {
        for (size_t from = 0; from < music.interleaved.size(); from += samples) {
            std::memcpy(out.data(), music.interleaved.data() + from, samples * sizeof(Sample));
            std::atomic_signal_fence(std::memory_order_seq_cst); // each copy is made
        }
    };
}

/// Times of each pass, `clips` times the clip, as shares of the first one's: medians of the rounds,
/// in which they take turns.
std::vector<double> shares(std::vector<Pass> passes, int clips, int rounds)
{
    std::vector<Measurement> all(passes.size());
    for (int round = -1; round < rounds; ++round) // the first one warms up
        for (size_t i = 0; i < passes.size(); ++i) {
            const double start = threadSeconds();
            for (int clip = 0; clip < clips; ++clip)
                passes[i]();
            if (round >= 0)
                all[i].load.push_back(threadSeconds() - start);
        }
    std::vector<double> result(all.size());
    std::transform(all.begin(), all.end(), result.begin(),
                   [&](const Measurement& m) { return ratio(m, all[0]); });
    return result;
}

using Rows = std::vector<std::vector<std::string>>;

std::vector<std::string> headOf(const std::string& what)
{
    std::vector<std::string> head = {what};
    for (const size_t block : kBlocks)
        head.push_back(number("%.0f frames", double(block)));
    return head;
}

/// What a Stream's time is compared with, and the most that its share may be in each sound.
struct Comparison {
    std::function<Pass(size_t block)> with;
    double mostOwn;
    double mostNatural;
    size_t firstBlock, lastBlock; // for which that holds
    int clips;
};

/// Adds a row for each sound.
template <class Sample>
void addShares(Rows& rows, Verdict& verdict, const Music<Sample>& music, double speed,
               const Comparison& comparison, int rounds)
{
    const std::string name = std::string(kFormatName<Sample>) + ", " +
                             std::to_string(music.channels) + " channels" +
                             (speed == 1.0 ? "" : number(", speed %g", speed));
    rows.push_back({name + ", engine"});
    rows.push_back({name + ", natural"});
    for (const size_t block : kBlocks) {
        const std::vector<double> all =
            shares({comparison.with(block), stream(music, velora::Sound::engine, speed, block),
                    stream(music, velora::Sound::natural, speed, block)},
                   comparison.clips, rounds);
        const bool hasTarget = block >= comparison.firstBlock && block <= comparison.lastBlock;
        rows.end()[-2].push_back(
            verdict.cell("%#.3g", all[1], hasTarget ? comparison.mostOwn : HUGE_VAL));
        rows.end()[-1].push_back(
            verdict.cell("%#.3g", all[2], hasTarget ? comparison.mostNatural : HUGE_VAL));
    }
}

template <class Sample>
void addSharesOfEngine(Rows& rows, Verdict& verdict, int channels, double speed, int rounds)
{
    const Music<Sample> music(channels);
    const bool hasTarget = std::is_same_v<Sample, int16_t> && channels == 2;
    addShares(rows, verdict, music, speed,
              {[&](size_t block) { return engines(music, speed, block); },
               hasTarget ? kMostShareOfEngine : HUGE_VAL, hasTarget ? kMostShareNatural : HUGE_VAL,
               kHopFrames, kHopFrames, 2},
              rounds);
}

template <class Sample>
void addSharesOfCopy(Rows& rows, Verdict& verdict, int channels, int rounds)
{
    const Music<Sample> music(channels);
    const double most = channels == 2 ? kMostShareOfCopy : HUGE_VAL;
    addShares(
        rows, verdict, music, 1.0,
        {[&](size_t block) { return copies(music, block); }, most, most, kHopFrames, 4096, 20},
        rounds);
}

// ---- Longest calls ----

/// Two seconds of a player that fills buffers of `block` frames at speed `from`; every 50 ms it
/// goes to `to` or back, within as much time.
/// @returns seconds of each call, the shortest of all runs, which do the same work; those of the
///          first fifth are left out
std::vector<double> calls(const Music<float>& music, size_t block, double from, double to, int runs)
{
    const size_t channels = size_t(music.channels);
    std::vector<double> shortest(2 * kRate / block, HUGE_VAL);
    std::vector<float> out(block * channels);
    for (int run = 0; run < runs; ++run) {
        velora::Stream<float> player(kRate, music.channels, optionsFor(velora::Sound::natural));
        player.setSpeed(from);
        const size_t most = player.mostInputFrames(block);
        size_t at = 0, changes = 0;
        for (size_t call = 0; call < shortest.size(); ++call) {
            const double start = wallSeconds();
            if (call * block * 20 >= (changes + 1) * kRate)
                player.setSpeed(++changes % 2 == 0 ? from : to, kRate / 20);
            const size_t wanted = player.inputFramesFor(block);
            at = at + most <= kClipFrames ? at : 0;
            const size_t given =
                player.process(music.interleaved.data() + at * channels, wanted, out.data(), block);
            shortest[call] = std::min(shortest[call], wallSeconds() - start);
            at += wanted;
            if (given != block)
                throw std::runtime_error("a buffer isn't full");
        }
    }
    shortest.erase(shortest.begin(), shortest.begin() + long(shortest.size() / 5));
    return shortest;
}

constexpr double kChanges[][2] = {{1.0, 0.125}, {1.0, 0.3}, {1.0, 0.75},  {1.0, 1.5}, {1.0, 4.0},
                                  {1.0, 8.0},   {0.4, 0.6}, {0.125, 8.0}, {0.75, 1.5}};

/// Adds a column: the longest call of each change as a share of the usual one, which is the median
/// of steady play at the busier of its speeds; then the worst of them.
void addLongestCalls(Rows& rows, Verdict& verdict, const Music<float>& music, size_t block,
                     int rounds)
{
    rows[0].push_back(number("%.0f ch, ", music.channels) + number("%.0f", double(block)));
    double worst = 0.0;
    auto row = rows.begin() + 1;
    for (const auto& [from, to] : kChanges) {
        const double usual = std::max(median(calls(music, block, from, from, rounds)),
                                      median(calls(music, block, to, to, rounds)));
        const double share = largest(calls(music, block, from, to, rounds)) / usual;
        worst = std::max(worst, share);
        (row++)->push_back(number("%.1f", share));
    }
    row->push_back(verdict.cell("%.1f", worst, kMostShareOfUsualCall));
}

// ---- The tables ----

void printAll(int rounds)
{
    printMachine();
    Verdict verdict;
    Rows rows = {headOf("Stream / bare engine")};
    for (const int channels : {2, 6})
        for (const double speed : {0.75, 1.5}) {
            addSharesOfEngine<int16_t>(rows, verdict, channels, speed, rounds);
            addSharesOfEngine<float>(rows, verdict, channels, speed, rounds);
        }
    printTable(rows);

    rows = {headOf("Stream at 1.0 / copy")};
    for (const int channels : {2, 6}) {
        addSharesOfCopy<int16_t>(rows, verdict, channels, rounds);
        addSharesOfCopy<float>(rows, verdict, channels, rounds);
    }
    printTable(rows);

    rows = {{"longest / usual call"}};
    for (const auto& [from, to] : kChanges)
        rows.push_back({number("%g to ", from) + number("%g", to)});
    rows.push_back({"worst"});
    for (const int channels : {1, 2, 8}) {
        const Music<float> music(channels);
        for (const size_t block : kBuffers)
            addLongestCalls(rows, verdict, music, block, rounds);
    }
    printTable(rows);
    verdict.print();
}

} // namespace

int main(int count, char** arguments)
{
    return printInRounds("players", count, arguments, printAll);
}
