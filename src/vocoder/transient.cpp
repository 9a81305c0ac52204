// Finds onsets: where in time, within the newest analysis frame, each band's energy lies, and
// whether enough bands say "late" at once. Starts the eight-hop countdown that treats a band around
// an onset.

#include <cmath>

#include <velora/detail/floating_point.hpp>

#include "engine/velora_vsp.h"
#include "kernels/sizes.h"

using namespace vsp;

namespace {

// A centre of gravity above it says "onset"; in lengths of the analysis frame.
constexpr float kLateInFrame = 0.08f;

constexpr int kStatusStart = 8;
constexpr int kRingIndexStart = 7;

// Lower confidence bound (Wilson score, z = 2) of the share n / 10 of flagged bands.
float lowerBound(int n)
{
    return float(((20 * n + 40) - 2.0 * std::sqrt(double(40 * (10 * n + 10 - n * n)))) / 280.0);
}

// Upper confidence bound of the share m / 40 over four frames.
float upperBound(int m)
{
    return float(((80 * m + 160) + 2.0 * std::sqrt(double(160 * (40 * m + 40 - m * m)))) / 3520.0);
}

} // namespace

void Velora_VSP::Velora_VSP_computeCOG()
{
    kernels.bandCentres(bandCog, spectrum[0], spectrum[1]);
}

void Velora_VSP::Velora_VSP_TransientProbability()
{
    turnRing(bandFlagRing);
    int newest = 0;
    for (int b = 0; b < kBands; ++b) {
        bandFlagRing[3][b] = bandCog[b] > kLateInFrame ? 1 : 0;
        newest += bandFlagRing[3][b];
    }
    int lastFour = 0;
    for (const int8_t* flags : bandFlagRing)
        for (int b = 0; b < kBands; ++b)
            lastFour += flags[b];

    const float lower = lowerBound(newest);
    const float upper = upperBound(lastFour);
    float threshold = upper >= 0.7f * lower ? upper : 0.7f * lower;
    if (threshold <= 0.99f * transientThreshold)
        threshold = 0.99f * transientThreshold;
    transientThreshold = threshold;

    // The bands hear of a decision one hop later.
    transientDecisionPrev = transientDecision;
    transientDecision = lower > threshold ? 1 : 0;
    for (uint8_t& flag : bandTransient)
        flag = transientDecisionPrev;
}

void Velora_VSP::Velora_VSP_ModifyBandStatus()
{
    for (int b = 0; b < kBands; ++b)
        if (bandStatus[b] == 0 && bandTransient[b] == 1) {
            bandStatus[b] = kStatusStart;
            bandRingIndex[b] = kRingIndexStart;
        }
}
