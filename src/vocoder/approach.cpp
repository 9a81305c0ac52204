// Brings the phases to those of the input as it is, so that who goes on with that after a few frames
// hears no partial dip while the two are faded.
//
// Around each peak all bins are turned alike, so that a partial stays one sound.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

#include "fixed/angles.h"
#include "fixed/complex.h"
#include "kernels/peaks.h"
#include "kernels/sizes.h"
#include "vocoder/vocoder.h"

namespace vsp {

namespace {

// Peaks this much below the highest one follow those beside them.
constexpr int32_t kFaint = 512;

constexpr double kUnit = 1 << 14; // of a phasor in Q14

double angleBetween(ComplexShort from, ComplexShort to)
{
    return angleOf(double(to.re * from.re + to.im * from.im),
                   double(to.im * from.re - to.re * from.im));
}

} // namespace

void Vocoder::steer(float lead, float share)
{
    constexpr float kFarthest = 64.0f; // hops
    const bool isInRange = std::abs(lead) <= kFarthest && share >= 0.0f && share <= 1.0f;
    approach = isInRange ? Approach{lead, share} : Approach{};
}

// The audible peaks of `mag` to `list`, in all bands, so that engines that are steered together list the
// same ones; returns their number.
int Vocoder::listClearPeaks(int16_t* list, const int32_t* mag) const
{
    constexpr int8_t kIdleBands[kBands] = {};
    int count = 0;
    kernels.findPeaks(list, &count, mag, kIdleBands, bandTable);
    int32_t highest = 0;
    for (int n = 0; n < count; ++n)
        highest = std::max(highest, mag[list[n]]);
    const auto isFaint = [=](int16_t bin) { return mag[bin] < highest / kFaint; };
    return int(std::remove_if(list, list + count, isFaint) - list);
}

void Vocoder::sumTargets(Work& work)
{
    auto& targetSum = work.targetSum;
    std::fill(std::begin(targetSum), std::end(targetSum), ComplexInt{0, 0});
    int16_t peakList[kPeakRoom];
    MagnitudeRow both;
    for (int bin = 0; bin < kBins; ++bin)
        both[bin] = interpMag[0][bin] + interpMag[1][bin];
    const int peaks = listClearPeaks(peakList, both);
    const Target target = targetOfFrame();
    for (int n = 0; n < peaks; ++n) {
        const int bin = peakList[n];
        const int louder = interpMag[1][bin] > interpMag[0][bin] ? 1 : 0;
        const Phasor turn = targetTurn(target, louder, bin);
        targetSum[bin] = {int32_t(both[bin] * turn.re), int32_t(both[bin] * turn.im)};
    }
}

Vocoder::Target Vocoder::targetOfFrame() const
{
    constexpr int kLastRow = kAnalyses - 1;
    const double place = double(frameClock) + double(approach.lead);
    const int nearest = std::clamp(nearestTo(place), 0, kLastRow);
    const int before = place < double(nearest) ? nearest - 1 : nearest;
    return {nearest, std::clamp(before, 0, kLastRow - 1), place - double(nearest)};
}

// What this frame's analysis phase of a bin is to be turned by: to that of the nearest row, and on to
// the place that is approached as the phase moves between the two rows that lie nearest; that of bin k
// moves by about k quarters of a turn a hop.
Phasor Vocoder::targetTurn(const Target& target, int channel, int bin) const
{
    const double centre = bin * kQuarterTurn;
    const double step = angleBetween(phasorRing(target.before)[channel][bin],
                                     phasorRing(target.before + 1)[channel][bin]) -
                        centre;
    const int whole = nearestTo(step * (0.25 / kQuarterTurn));
    const double aHop = centre + step - double(whole) * 4.0 * kQuarterTurn;
    const Phasor on = phasorOf(target.rest * aHop);
    const ComplexShort from = phasorRing(phaseRow())[channel][bin];
    const ComplexShort to = phasorRing(target.nearest)[channel][bin];
    const double re = double(to.re * from.re + to.im * from.im) / (kUnit * kUnit);
    const double im = double(to.im * from.re - to.re * from.im) / (kUnit * kUnit);
    return {re * on.re - im * on.im, re * on.im + im * on.re};
}

void Vocoder::steerTurns(Work& work)
{
    MagnitudeRow mag;
    PhasorRow ignored;
    kernels.Velora_VSP_MagPhase_Bins(mag, ignored, work.turnSum());
    int16_t peakList[kPeakRoom];
    const int peaks = listClearPeaks(peakList, mag);
    PhasorRow back; // against the way that each bin is to be turned
    std::fill(std::begin(back), std::end(back), kPhaseZero);
    for (int n = 0, first = 0; n < peaks; ++n) {
        const int end = n + 1 < peaks ? (peakList[n] + peakList[n + 1]) / 2 + 1 : kLastBin;
        const Phasor step = phasorOf(angleToTarget(work, peakList[n]) * double(approach.share));
        std::fill(back + first, back + end,
                  ComplexShort{int16_t(nearestTo(step.re * kUnit)),
                               int16_t(nearestTo(-step.im * kUnit))});
        first = end;
    }
    PhasorRow turned;
    kernels.phasorStep(turned, back, work.turns);
    std::copy(turned, turned + kBins, work.turns);
}

// Other engines' peaks may lie a bin or two beside the one that all have in common.
double Vocoder::angleToTarget(const Work& work, int bin)
{
    Phasor target = {0.0, 0.0};
    for (int at = bin - kPeakReach; at <= bin + kPeakReach; ++at) {
        target.re += work.targetSum[at].re;
        target.im += work.targetSum[at].im;
    }
    const ComplexShort t = work.turns[bin];
    return angleOf(target.re * t.re + target.im * t.im, target.im * t.re - target.re * t.im);
}

} // namespace vsp
