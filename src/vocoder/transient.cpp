// Finds onsets: where in time, within the newest analysis frame, each band's energy lies, and
// whether enough bands say "late" at once. Starts the countdown that treats a band around an onset.

#include <cmath>
#include <cstdint>
#include <iterator>
#include <numeric>

#include "fixed/floating_point.h"
#include "kernels/sizes.h"
#include "vocoder/frame_pipeline.h"
#include "vocoder/vocoder.h"

namespace vsp {
namespace {

// A centre of gravity above it says "onset"; in lengths of the analysis frame.
constexpr float kLateInFrame = 0.08f;

int countOf(const int8_t (&flags)[kBands])
{
    return std::accumulate(std::begin(flags), std::end(flags), 0);
}

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

void Vocoder::Velora_VSP_computeCOG(const SpectrumRow (&spectrum)[2])
{
    kernels.bandCentres(bandCog, spectrum[0], spectrum[1]);
}

void Vocoder::Velora_VSP_TransientProbability()
{
    bandFlagRing.turn();
    for (int b = 0; b < kBands; ++b)
        bandFlagRing.newest()[b] = bandCog[b] > kLateInFrame ? 1 : 0;
    const int newest = countOf(bandFlagRing.newest());
    int lastFour = 0;
    for (int age = 0; age < bandFlagRing.size; ++age)
        lastFour += countOf(bandFlagRing[age]);

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

void Vocoder::Velora_VSP_ModifyBandStatus()
{
    for (int b = 0; b < kBands; ++b)
        if (bandStatus[b] == 0 && bandTransient[b] == 1) {
            bandStatus[b] = kCountdownStart;
            bandRingIndex[b] = kFrozenRowStart;
        }
}

} // namespace vsp
