// How far the bins beside one have a say in what its analysis phases are turned by.
#pragma once

namespace vsp {

/// Bins on each side that have a say: half as much as the bin itself, and an eighth.
inline constexpr int kTurnReach = 2;

} // namespace vsp
