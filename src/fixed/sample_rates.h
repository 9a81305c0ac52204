// The sample rates that filters and converter are made for, and their codes.
#pragma once

#include <algorithm>
#include <iterator>

namespace vsp {

/// In Hz; a rate's code is its place.
inline constexpr int kSampleRates[] = {8000,  11025, 12000, 16000, 22050,  24000,  32000, 44100,
                                       48000, 64000, 88200, 96000, 128000, 176400, 192000};
inline constexpr int kSampleRateCount = int(std::size(kSampleRates));

/// The code of a rate; kSampleRateCount for any other one.
constexpr int sampleRateCode(int rate)
{
    return int(std::find(std::begin(kSampleRates), std::end(kSampleRates), rate) -
               std::begin(kSampleRates));
}

} // namespace vsp
