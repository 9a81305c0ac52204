// How late sound comes through the filters around the vocoder, for who counts its time.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "kernels/band_split.h"
#include "kernels/half_band.h"
#include "kernels/sizes.h"

namespace vsp {

/// Caller frames that low frequencies take, ahead of the analysis and behind the synthesis.
struct FilterDelays {
    double in;
    double out;
};

/// @param hop    caller frames that the engine takes at a time
/// @param shift  log2 of the caller's rate over the working rate
constexpr FilterDelays filterDelays(std::int64_t hop, int shift)
{
    const auto log2Factor = std::size_t(std::bit_width(std::uint64_t(hop >> shift) / kLowHop)) - 1;
    FilterDelays delays{kSplitDelay[log2Factor], kInterpDelay[log2Factor]};
    for (int stage = 0; stage < shift; ++stage) {
        delays.in = 2.0 * delays.in + kHalfBandDelay;
        delays.out = 2.0 * delays.out + kHalfBandDelay;
    }
    return delays;
}

} // namespace vsp
