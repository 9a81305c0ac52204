#include "pause_finder.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kLevelsPerSecond = 100;
constexpr float kSilence = -120.0f; // dB

// Noise of the room is what is left in the softest tenth of half a minute.
constexpr int kNoiseReach = 15 * kLevelsPerSecond; // either way
constexpr int kNoiseStep = kLevelsPerSecond;
constexpr float kAboveNoise = 6.0f; // dB that sound has to rise above it
// Sound that is as even as noise, but no softer than the loudest by this, isn't noise; and noise may
// raise the threshold by so much at most.
constexpr float kBelowSpeech = 12.0f;
constexpr float kMostRaise = 12.0f;

// Once it is silent, sound has to be so much louder than what counts as silence, and for so long.
constexpr float kHysteresis = 3.0f;      // dB
constexpr int kShortestSound = 3;        // levels: clicks are part of a pause
constexpr double kShortestPause = 0.100; // seconds, margins left out

// The level that so large a part of some levels doesn't reach.
float quantile(std::vector<float> of, double part)
{
    if (of.empty())
        return kSilence;
    const auto at = of.begin() + std::ptrdiff_t(part * double(of.size() - 1));
    std::nth_element(of.begin(), at, of.end());
    return *at;
}

} // namespace

PauseFinder::PauseFinder(int rate, int channels, Samples samples)
    : channelCount(channels), kind(samples), framesPerLevel(rate / kLevelsPerSecond),
      levelSeconds(double(framesPerLevel) / rate)
{
}

template <class Sample>
void PauseFinder::measure(const Block& block, double fullScale)
{
    const auto* sample = reinterpret_cast<const Sample*>(block.data());
    const auto* const end = sample + block.size() / sizeof(Sample);
    while (sample < end) {
        for (int channel = 0; channel < channelCount; ++channel, ++sample)
            energy += double(*sample) * double(*sample);
        if (++frames < framesPerLevel)
            continue;
        const double power = energy / (double(frames) * channelCount * fullScale * fullScale);
        levels.push_back(power > 1e-12 ? float(10.0 * std::log10(power)) : kSilence);
        energy = 0.0;
        frames = 0;
    }
}

void PauseFinder::take(const Block& block)
{
    switch (kind) {
    case Samples::int16:
        return measure<int16_t>(block, 32768.0);
    case Samples::int24:
        return measure<int32_t>(block, 8388608.0);
    case Samples::int32:
        return measure<int32_t>(block, 2147483648.0);
    case Samples::float32:
        return measure<float>(block, 1.0);
    case Samples::float64:
        return measure<double>(block, 1.0);
    }
}

// Below which a level is silence, over time.
std::vector<float> PauseFinder::thresholds(double least) const
{
    const auto lowest = float(least);
    const float highest = std::min(quantile(levels, 0.9) - kBelowSpeech, lowest + kMostRaise);
    std::vector<float> limits(levels.size());
    for (size_t at = 0; at < levels.size(); at += kNoiseStep) {
        const size_t from = at > kNoiseReach ? at - kNoiseReach : 0;
        const size_t to = std::min(at + kNoiseReach, levels.size());
        const float noise = quantile(
            {levels.begin() + std::ptrdiff_t(from), levels.begin() + std::ptrdiff_t(to)}, 0.1);
        const float limit = std::max(std::min(noise + kAboveNoise, highest), lowest);
        std::fill(limits.begin() + std::ptrdiff_t(at),
                  limits.begin() + std::ptrdiff_t(std::min(at + kNoiseStep, levels.size())), limit);
    }
    return limits;
}

std::vector<Span> PauseFinder::pauses(double threshold, double margin) const
{
    const std::vector<float> limits = thresholds(threshold);
    std::vector<Span> found;
    const size_t count = levels.size();
    // From the level `from` up to the next sound, and no further than that leaves its margin.
    const auto add = [&](size_t from, size_t to) {
        const double start = double(from) * levelSeconds + (from == 0 ? 0.0 : margin);
        const double end = double(to) * levelSeconds - (to == count ? 0.0 : margin);
        if (end - start >= kShortestPause)
            found.push_back({start, end});
    };
    bool isSilent = false;
    size_t silentFrom = 0;
    int loud = 0; // levels in a row that are sound
    for (size_t at = 0; at < count; ++at) {
        if (!isSilent && levels[at] < limits[at]) {
            isSilent = true;
            silentFrom = at;
            loud = 0;
        } else if (isSilent) {
            loud = levels[at] > limits[at] + kHysteresis ? loud + 1 : 0;
            if (loud == kShortestSound) {
                isSilent = false;
                add(silentFrom, at + 1 - size_t(kShortestSound));
            }
        }
    }
    if (isSilent)
        add(silentFrom, count);
    return found;
}
