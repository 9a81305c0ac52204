// How far the bins beside one have a say in what its analysis phases are turned by.
#pragma once

#include <cstdint>

namespace vsp {

/// Bins on each side that have a say.
inline constexpr int kTurnReach = 2;

/// Complex weights of the first and the second bin above, Q16, in each component at most 1/2 and
/// 1/8; of those below their conjugates, of the bin itself 1.
struct NeighbourWeights {
    int32_t nextRe, nextIm;
    int32_t secondRe, secondIm;
};

} // namespace vsp
