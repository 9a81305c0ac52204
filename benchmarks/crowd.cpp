// What many players in one thread cost: each gets a block in turn, so that all that one has touched
// is out of the cache when it comes up again.
//
//     crowd [--rounds N]

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <velora/stream.hpp>
#include <velora/vsp.h>

#include "benchmarks/dense_music.h"
#include "benchmarks/peers/measure.h"
#include "benchmarks/peers/table.h"

namespace {

constexpr int kRate = 44100;
constexpr size_t kBlock = 1024;
constexpr size_t kClipBlocks = 128;
constexpr size_t kBlocksOfAll = 1 << 12; // that a round plays, whatever the number of players
constexpr size_t kPlayers[] = {1, 16, 256, 1000};
constexpr double kMostShareOfOne = 1.3;

using Music = std::vector<int16_t>;
using Player = std::function<void(const int16_t* block)>;

Player engine(double speed)
{
    const std::shared_ptr<Velora_VSP_Interface> one(Velora_VSP_Factory::Create(),
                                                    Velora_VSP_Factory::Destroy);
    one->Init(kRate, Velora_BitDepth_16);
    one->SetPar(float(speed));
    return [one](const int16_t* block) {
        static int16_t out[2 * (8 * (kBlock + 3) + 2 * 512)];
        one->Exe(out, block, int(kBlock));
    };
}

Player stream(double speed, velora::Sound sound)
{
    velora::Options options;
    options.sound = sound;
    const auto one = std::make_shared<velora::Stream<int16_t>>(kRate, 2, options);
    one->setSpeed(speed);
    return [one](const int16_t* block) {
        static int16_t out[2 * 16 * kBlock];
        one->process(block, kBlock, out, 16 * kBlock);
    };
}

/// Players of one kind, each at its own place in the music.
class Crowd {
public:
    Crowd(const Music& clip, size_t count, const std::function<Player()>& make) : music(clip)
    {
        for (size_t i = 0; i < count; ++i)
            players.push_back(make());
        play(2 * count); // past the start
    }
    /// @returns CPU seconds of a block
    double play(size_t blocks)
    {
        const double start = threadSeconds();
        for (size_t n = 0; n < blocks; ++n, ++at) {
            const size_t player = at % players.size();
            const size_t block = (at / players.size() + 7 * player) % kClipBlocks;
            players[player](music.data() + 2 * kBlock * block);
        }
        return (threadSeconds() - start) / double(blocks);
    }

private:
    const Music& music;
    std::vector<Player> players;
    size_t at = 0;
};

/// A row: the time of one player, then what a block costs where there are more, as shares of that.
std::vector<std::string> row(const std::string& name, const Music& music, Verdict& verdict,
                             int rounds, const std::function<Player()>& make)
{
    std::vector<Crowd> crowds;
    for (const size_t count : kPlayers)
        crowds.emplace_back(music, count, make);
    std::vector<std::vector<double>> shares(crowds.size());
    std::vector<double> alone;
    for (int round = 0; round < rounds; ++round)
        for (size_t i = 0; i < crowds.size(); ++i) {
            const double seconds = crowds[i].play(kBlocksOfAll);
            if (i == 0)
                alone.push_back(seconds);
            shares[i].push_back(seconds / alone.back());
        }
    std::vector<std::string> cells = {name, number("%.1f", 1e9 * median(alone) / double(kBlock))};
    for (size_t i = 1; i < shares.size(); ++i)
        cells.push_back(verdict.cell("%.2f", median(shares[i]), kMostShareOfOne));
    return cells;
}

void printAll(int rounds)
{
    printMachine();
    const Music music = denseMusic(kRate, kClipBlocks * kBlock);
    std::vector<std::vector<std::string>> rows = {{"players in one thread", "1, ns per frame"}};
    for (size_t i = 1; i < std::size(kPlayers); ++i)
        rows[0].push_back(number("%.0f / 1", double(kPlayers[i])));
    Verdict verdict;
    for (const double speed : {0.75, 1.5}) {
        const std::string at = number(", speed %g", speed);
        rows.push_back(row("engine" + at, music, verdict, rounds, [=] { return engine(speed); }));
        for (const auto& [name, sound] : {std::pair("engine", velora::Sound::engine),
                                          std::pair("natural", velora::Sound::natural)})
            rows.push_back(row(std::string("Stream, ") + name + at, music, verdict, rounds,
                               [=, sound = sound] { return stream(speed, sound); }));
    }
    printTable(rows);
    verdict.print();
}

} // namespace

int main(int count, char** arguments)
{
    return printInRounds("crowd", count, arguments, printAll);
}
