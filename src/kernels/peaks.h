// Peaks of a magnitude spectrum.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kernels/sizes.h"

namespace vsp {

/// A peak is larger than this many neighbours on each side, which then follow it.
inline constexpr int kPeakReach = 2;
inline constexpr int kFirstPeakBin = kPeakReach;
inline constexpr int kLastPeakBin = kLastBin - kPeakReach;
inline constexpr int kMaxPeaks = (kLastPeakBin - kFirstPeakBin) / (kPeakReach + 1) + 1;

/// How many peaks lie in a few bins can't be foretold, and a processor that guesses is often wrong. So
/// as many are written for each group of bins as it can have, and counted afterwards.
inline constexpr int kGroupBins = 8;
inline constexpr int kMostOfGroup = (kGroupBins - 1) / (kPeakReach + 1) + 1;
/// Room for a list of peaks.
inline constexpr int kPeakRoom = kMaxPeaks + kMostOfGroup;

/// The peaks of a group.
struct GroupPeaks {
    int16_t places[kMostOfGroup]; // ascending, in bins from the first one
    int16_t count;
};
/// By one bit for each of its bins.
inline constexpr auto kGroupPeaks = [] {
    std::array<GroupPeaks, 1 << kGroupBins> table{};
    for (unsigned bits = 0; bits < table.size(); ++bits)
        for (int16_t place = 0; place < kGroupBins; ++place) {
            GroupPeaks& peaks = table[bits];
            if ((bits >> place & 1) != 0 && peaks.count < kMostOfGroup)
                peaks.places[std::size_t(peaks.count++)] = place;
        }
    return table;
}();

/// Magnitude that a peak must exceed.
inline constexpr int32_t kPeakFloor = 100;

} // namespace vsp
