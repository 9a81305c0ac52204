// Brings the phases to those of the input as it is, so that who goes on with that after a few frames
// hears no partial dip while the two are faded.
//
// Around each peak all bins are turned alike, so that a partial stays one sound.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "fixed/angles.h"
#include "fixed/fixed.h"
#include "kernels/peaks.h"
#include "kernels/sizes.h"
#include "vocoder/vocoder.h"

namespace vsp {

namespace {

template <class Value>
bool isPeak(int bin, Value valueOf)
{
    const auto value = valueOf(bin);
    for (int distance = 1; distance <= kPeakReach; ++distance)
        if (value <= valueOf(bin - distance) || value < valueOf(bin + distance))
            return false;
    return true;
}

double angleBetween(ComplexShort from, ComplexShort to)
{
    return angleOf(double(to.re * from.re + to.im * from.im),
                   double(to.im * from.re - to.re * from.im));
}

// Energy of a bin that all channels have a turn for.
double energyOf(ComplexInt turn)
{
    return double(turn.re) * turn.re + double(turn.im) * turn.im;
}

} // namespace

void Vocoder::steer(float lead, float share)
{
    constexpr float kFarthest = 64.0f; // hops
    const bool isInRange = std::abs(lead) <= kFarthest && share >= 0.0f && share <= 1.0f;
    approach = isInRange ? Approach{lead, share} : Approach{};
}

void Vocoder::sumTargets()
{
    std::fill(std::begin(targetSum), std::end(targetSum), ComplexInt{0, 0});
    const auto magnitude = [this](int bin) { return interpMag[0][bin] + interpMag[1][bin]; };
    for (int bin = kFirstPeakBin; bin <= kLastPeakBin; ++bin) {
        if (!isPeak(bin, magnitude))
            continue;
        for (int c = 0; c < 2; ++c) {
            const Phasor turn = phasorOf(targetTurn(c, bin));
            const double weight = interpMag[c][bin];
            targetSum[bin].re = fx::wrapAdd(targetSum[bin].re, int32_t(weight * turn.re));
            targetSum[bin].im = fx::wrapAdd(targetSum[bin].im, int32_t(weight * turn.im));
        }
    }
}

// What this frame's analysis phase of a bin is to be turned by: how far the phase moves to the place
// that is approached, in radians. Between two rows, and beyond them, it moves on as between those that
// lie nearest; bin k by about k quarters of a turn a hop.
double Vocoder::targetTurn(int channel, int bin) const
{
    const auto& ring = phasorRing[channel];
    const double place = double(frameClock) + double(approach.lead);
    const auto rowAt = [](double position, int last) {
        return int(std::clamp(std::floor(position), 0.0, double(last)));
    };
    const int nearest = rowAt(place + 0.5, ring.size - 1);
    const int before = rowAt(place, ring.size - 2);
    const double centre = bin * kQuarterTurn;
    const double step = angleBetween(ring[before][bin], ring[before + 1][bin]) - centre;
    const double whole = std::floor(step / (4.0 * kQuarterTurn) + 0.5);
    const double aHop = centre + step - whole * 4.0 * kQuarterTurn;
    return angleBetween(ring[phaseRow()][bin], ring[nearest][bin]) +
           (place - double(nearest)) * aHop;
}

void Vocoder::steerTurns()
{
    const ComplexInt* const sums = turnSum();
    int peaks = 0;
    for (int bin = kFirstPeakBin; bin <= kLastPeakBin; ++bin)
        if (isPeak(bin, [=](int at) { return energyOf(sums[at]); }))
            peakList[peaks++] = int16_t(bin);
    for (int n = 0, first = 0; n < peaks; ++n) {
        const int last = n + 1 < peaks ? (peakList[n] + peakList[n + 1]) / 2 : kLastBin - 1;
        const Phasor turn = phasorOf(angleToTarget(peakList[n]) * double(approach.share));
        for (int bin = first; bin <= last; ++bin) {
            const ComplexShort t = turns[bin];
            turns[bin] = {int16_t(std::floor(t.re * turn.re - t.im * turn.im + 0.5)),
                          int16_t(std::floor(t.im * turn.re + t.re * turn.im + 0.5))};
        }
        first = last + 1;
    }
}

// Other engines' peaks may lie a bin or two beside the one that all have in common.
double Vocoder::angleToTarget(int bin) const
{
    Phasor target = {0.0, 0.0};
    for (int at = bin - kPeakReach; at <= bin + kPeakReach; ++at) {
        target.re += targetSum[at].re;
        target.im += targetSum[at].im;
    }
    const ComplexShort t = turns[bin];
    return angleOf(target.re * t.re + target.im * t.im, target.im * t.re - target.re * t.im);
}

} // namespace vsp
