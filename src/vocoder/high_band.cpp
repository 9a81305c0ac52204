// The high band, which is stretched in the time domain: each synthesis frame has a segment of two
// hops of it as it was, and segments that don't follow on one another are faded.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "fixed/floating_point.h"
#include "fixed/frame.h"
#include "vocoder/vocoder.h"

namespace vsp {
namespace {

// What is compared of two segments: frames in the middle of their fade. Sounds that have a pitch
// agree by more than half of their energy; of noise the best of several places does by a quarter.
constexpr int kCompared = 64;
constexpr int kAlike = 2; // of the energy, one part in so many

struct Middle {
    explicit Middle(int fade) : count(std::min(fade, kCompared)), first((fade - count) / 2) {}

    int count;
    int first;
};

constexpr double kOneHalf = 0.7071067811865476; // square root of 1/2

// What mixHighBand takes for a hop of `frames` frames, all weights Q14.
Fades makeFades(int frames)
{
    Fades fades = {};
    for (int n = 0; n < frames; ++n) {
        const double rise = (n + 0.5) / frames;
        const double fall = 1.0 - rise;
        const double scale = 1.0 / std::sqrt(rise * rise + fall * fall);
        const double weights[] = {fall * scale, rise * scale, fall - fall * scale,
                                  rise - rise * scale};
        for (int row = 0; row < 4; ++row)
            fades.q14[row][n] = int32_t(weights[row] * 16384.0);
    }
    return fades;
}

// Made with the first engine, for all of them.
const Fades& fadesFor(int hopIndex)
{
    static const Fades all[] = {makeFades(kLowHop), makeFades(2 * kLowHop), makeFades(4 * kLowHop)};
    return all[hopIndex];
}

} // namespace

void Vocoder::setFades()
{
    hpFades = &fadesFor(hopIndex);
}

void Vocoder::turnHighBand(int frames)
{
    if (hasHighBand())
        highBand.turn(frames);
}

// Where the next segment starts, in frames from the oldest hop on. The bare engine keeps to
// whole hops, as its low band does. Else the middle of the segment, a hop of output behind the
// middle of the synthesis frame, is to sound the input that belongs there: to the frame at onsets;
// otherwise it goes on where the one before ended, which is heard least, as long as it comes within
// half a hop.
int Vocoder::segmentStart(int frames) const
{
    if (!does(Velora_VSP_Sound_LockedChannels))
        return frames;
    const int last = lastSegment(frames);
    const int wanted = std::min(int((frameClock + effectiveSpeed) * float(frames)), last);
    if (isThere()) {
        const int there = int(std::lround((frameClock + approach.lead + 1.0f) * float(frames)));
        return std::clamp(there, 0, last);
    }
    constexpr float kNoneFollows = 2.0f;
    if (nearsOnset || effectiveSpeed >= kNoneFollows)
        return wanted;
    const int following = followingSegment(frames);
    const bool mayFollow =
        following >= 0 && following <= last && std::abs(following - wanted) <= frames / 2;
    if (mayFollow)
        return following;
    // A run of segments that follow on one another begins, which moves off by so many hops with each
    // of them: as far on the other side as it will get, so that it is in time in the mean.
    const float step = std::max(std::abs(1.0f - effectiveSpeed), 1e-6f);
    const int ahead = int(0.5f * std::floor(1.0f / step) * step * float(frames));
    return std::clamp(following > wanted ? wanted - ahead : wanted + ahead, 0, last);
}

// Compares the sound so far with the segments around the one that is due. The lowest tone of the
// high band goes through four periods there.
void Vocoder::matchSegments(int frames)
{
    hpPlace = segmentStart(frames);
    hpMatches = {};
    if (!does(Velora_VSP_Sound_LockedChannels) || !hasHighBand() || nearsOnset || isThere() ||
        hpPlace == followingSegment(frames))
        return;
    const int reach = 2 * bandFactor;
    const int first = std::max(hpPlace - reach, 0);
    const int last = std::min(hpPlace + reach, lastSegment(frames));
    const Middle middle(frames);
    Frame candidates[kCompared + 2 * kMostShift];
    highBand.copy(candidates, first + middle.first, middle.count + last - first, frames);
    Frame room[kCompared];
    const Frame* const soFar =
        highBand.segment(HighBandHops::kSegments - 1, frames + middle.first, middle.count, room);
    hpMatches.energy = kernels.product(*soFar, *soFar, 2 * middle.count);
    for (int start = first; start <= last; ++start)
        hpMatches.products[kMostShift + start - hpPlace] =
            kernels.product(*soFar, candidates[start - first], 2 * middle.count);
}

// Where the next segment starts: where it agrees best, or if none does, where it belongs. What other
// engines found may lie around another place than this one's.
int Vocoder::bestSegment(int frames) const
{
    const auto& products = hpMatches.products;
    const auto* const best = std::max_element(std::begin(products), std::end(products));
    if (*best <= hpMatches.energy / kAlike)
        return hpPlace;
    return std::clamp(hpPlace + int(best - products) - kMostShift, 0, lastSegment(frames));
}

// How far the fade between two segments is that of equal sounds, in Q14: so that in the middle of it
// the level is theirs.
int Vocoder::alikenessQ14(const Frame* older, const Frame* newer, int frames) const
{
    const Middle middle(frames);
    const auto product = [=, this](const Frame* a, const Frame* b) {
        return double(kernels.product(a[middle.first], b[middle.first], 2 * middle.count));
    };
    const double both = product(older, newer);
    const double energies = product(older, older) * product(newer, newer);
    if (both * kAlike <= std::sqrt(energies))
        return 0;
    const double correlation = std::min(both / std::sqrt(energies), 1.0);
    const double weight = 1.0 / std::sqrt(2.0 + 2.0 * correlation);
    return int((kOneHalf - weight) / (kOneHalf - 0.5) * 16384.0);
}

void Vocoder::Velora_VSP_Combine_HP(Frame* hpOut, int frames)
{
    const int start = bestSegment(frames);
    hpStepRing.turn();
    hpStepRing.newest()[0] = std::exchange(hopsSinceFrame, 0) * frames + start - hpStart;
    hpStart = start;
    if (!hasHighBand())
        return;
    highBand.addSegment(start, frames);
    Frame room[2][kMaxHop];
    const Frame* const older = highBand.segment(0, frames, frames, room[0]);
    const Frame* const newer = highBand.segment(1, 0, frames, room[1]);
    if (!fadesEvenly())
        kernels.fadeHighBand(hpOut, older, newer, frames);
    else if (hpStepRing[1][0] == frames)
        copyFrames(hpOut, newer, frames); // both are the same input
    else
        kernels.mixHighBand(hpOut, older, newer, hpFades->q14, alikenessQ14(older, newer, frames),
                            frames);
}

} // namespace vsp
