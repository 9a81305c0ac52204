// Half-band recursions in two segments at once: a processor's units are half idle while each sample
// waits for the one before.
#pragma once

#include <cstdint>

#include "kernels/half_band.h"

namespace vsp {

/// So many steps the second segment begins early, from the state in which the first one begins. The
/// slowest pole, at -0.845, forgets a full-scale difference to one unit in 83 steps; then rounding has
/// to bring both together. With music they are apart once in 150 times, with noise once in 30.
inline constexpr int kEarlySteps = 128;
/// The second segment begins a multiple of so many steps behind the first one: constant sound, silence
/// above all, may leave a state that returns every three or four steps, and then the guess is right.
inline constexpr int kSteadySteps = 12;
/// Fewer steps than these gain next to nothing. From here on the early steps are over before the first
/// segment comes to where they were.
inline constexpr int kLeastSteps = 3 * kEarlySteps + 2 * kSteadySteps;

/// Runs `count` steps, or the first of them, and leaves the states as if they had gone one by one:
/// where the second segment wasn't in the state in which the first one ends, what it did doesn't count.
/// @param state  [channel]
/// @param run    run(lanes, begin, end, ahead) runs steps `begin` to `end` and, in the other lanes,
///               those that are `ahead` steps further
/// @returns      steps that are done
template <class State, class Run>
int runInTwoSegments(State (&state)[2], int count, Run run)
{
    if (count < kLeastSteps)
        return 0;
    const int ahead = (count - kEarlySteps) / 2 / kSteadySteps * kSteadySteps;
    const int steps = ahead + kEarlySteps;
    HalfBandLanes lanes;
    for (int lane = 0; lane < 4; ++lane)
        setLane(lanes, lane, state[lane % 2]);
    run(lanes, 0, kEarlySteps, ahead);
    const HalfBandState assumed[2] = {laneOf(lanes, 2), laneOf(lanes, 3)};
    run(lanes, kEarlySteps, steps, ahead);
    const bool isAsAssumed = laneOf(lanes, 0) == assumed[0] && laneOf(lanes, 1) == assumed[1];
    for (int channel = 0; channel < 2; ++channel)
        static_cast<HalfBandState&>(state[channel]) =
            laneOf(lanes, isAsAssumed ? 2 + channel : channel);
    return isAsAssumed ? ahead + steps : steps;
}

} // namespace vsp
