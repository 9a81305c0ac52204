// Compares energies at the same media time and steers the gain.

#include "vocoder/level_keeper.h"

#include <algorithm>
#include <cmath>

#include "fixed/floating_point.h"
#include "kernels/sizes.h"

namespace vsp {
namespace {

// A synthesis frame at position 0 is centred on the middle of the oldest of four analysis frames of
// four hops. The hop of output that it completes lies one and a half hops of output before.
constexpr double kAnalysisDelayHops = 5.0; // to the end of the hop that was taken last
constexpr double kSynthesisLeadHops = 1.5;

// Hops that are averaged: 0.4 to 0.75 s; fewer at the start.
constexpr int kAveraged = 64;

// Dense music loses about as much as this.
constexpr double kUsualGain = 1.12;
constexpr double kLeastGain = 0.9;
constexpr double kMostGain = 1.6;
// Most that a hop of output may change it: 8 to 16 dB a second.
constexpr double kMostStep = 0.01;

// Hops more quiet than this are rounding as much as sound: 3 units, root mean square.
constexpr double kQuiet = 9.0 * 2.0 * kLowHop;

} // namespace

void LevelKeeper::reset()
{
    taken.fill(0.0);
    wanted = 0.0;
    given = 0.0;
    averaged = 0;
    filling = 0;
    gain = kUsualGain;
}

void LevelKeeper::tookHop(int64_t energy)
{
    taken.turn();
    taken.newest()[0] = double(energy);
}

void LevelKeeper::gaveHop(int64_t energy, double position, double speed)
{
    if (filling > 0) {
        --filling;
        return;
    }
    const double centre = position - kAnalysisDelayHops - kSynthesisLeadHops * speed;
    const double expected = energyBetween(centre - 0.5 * speed, centre + 0.5 * speed) / speed;
    if (expected < kQuiet)
        return;
    averaged = std::min(averaged + 1, kAveraged);
    wanted += (expected - wanted) / averaged;
    given += (double(energy) / (gain * gain) - given) / averaged;
    const double aim = std::sqrt(wanted / std::max(given, kQuiet / averaged));
    const double step = std::clamp(aim - gain, -kMostStep, kMostStep);
    gain = std::clamp(gain + step, kLeastGain, kMostGain);
}

// Energy of the input between two times, in hops from the end of the one that was taken last.
double LevelKeeper::energyBetween(double from, double to) const
{
    double sum = 0.0;
    const int first = std::max(int(std::floor(from)), -kHistoryHops);
    for (int hop = first; hop < to; ++hop)
        sum +=
            (std::min(to, hop + 1.0) - std::max(from, double(hop))) * taken[kHistoryHops + hop][0];
    return sum;
}

} // namespace vsp
