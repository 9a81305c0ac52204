// How far the bins beside one have a say in what its analysis phases are turned by.
#pragma once

namespace vsp {

/// Bins on each side that have a say: half as much as the bin itself, and a thirty-second;
/// what is further away is soon another tone.
inline constexpr int kTurnReach = 2;

} // namespace vsp
