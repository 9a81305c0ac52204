#include "pause_finder.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

namespace {

constexpr int kLevelsPerSecond = 50; // so that hum of 50 and 100 Hz is steady
constexpr double kRumble = 100.0;    // Hz, below which sound counts less and less

// Levels in dB.
constexpr float kSilence = -90.0f;  // softer than any microphone: there is no sound at all
constexpr float kHysteresis = 6.0f; // words begin and end so much softer than they are in between
constexpr float kAboveNoise = 8.0f; // that they are, and half of it where they begin and end
constexpr float kMostRaise = 15.0f; // of the threshold by noise: what is louder may be music
constexpr float kBelowLoudest = 12.0f; // that a pause is
constexpr double kLoudest = 0.5;       // seconds that the loudest lasts in all, at most

struct Thresholds {
    float word; // in which the level gets above this ...
    float end;  // ... and which lasts as long as it is above this
};

// The level that so many of them don't reach.
float quantile(std::vector<float> of, size_t count)
{
    const auto at = of.begin() + std::ptrdiff_t(count);
    std::nth_element(of.begin(), at, of.end());
    return *at;
}

// Of the noise between the words. It keeps its level, while words and music that die away pass
// through every level on their way to silence, which is what there is then.
float noiseLevel(const std::vector<float>& sounding)
{
    constexpr float kSpread = 3.0f;
    const float softest = quantile(sounding, sounding.size() / 30);
    const float noise = quantile(sounding, sounding.size() / 10);
    return noise - softest < kSpread ? noise : kSilence;
}

Thresholds chooseThresholds(const std::vector<float>& levels, float wanted)
{
    std::vector<float> sounding;
    std::copy_if(levels.begin(), levels.end(), std::back_inserter(sounding),
                 [](float level) { return level > kSilence; });
    if (sounding.empty())
        return {kSilence, kSilence};
    const size_t loud = std::min(size_t(kLoudest * kLevelsPerSecond), sounding.size() / 20);
    const float loudest = quantile(sounding, sounding.size() - 1 - loud);
    const float noise = noiseLevel(sounding);
    const float raised = std::clamp(noise + kAboveNoise, wanted, wanted + kMostRaise);
    const float word = std::max(std::min(raised, loudest - kBelowLoudest), kSilence);
    return {word, std::clamp(word - kHysteresis, std::min(noise + kAboveNoise / 2, word), word)};
}

// For each level whether it is part of a word, which is looked for forwards and backwards.
std::vector<bool> findWords(const std::vector<float>& levels, const Thresholds& thresholds)
{
    std::vector<bool> isWord(levels.size());
    bool goesOn = false;
    const auto look = [&](size_t at) {
        goesOn = levels[at] > thresholds.word || (goesOn && levels[at] > thresholds.end);
        isWord[at] = isWord[at] || goesOn;
    };
    for (size_t at = 0; at < levels.size(); ++at)
        look(at);
    goesOn = false;
    for (size_t at = levels.size(); at-- > 0;)
        look(at);
    return isWord;
}

} // namespace

PauseFinder::PauseFinder(int rate, int channelCount, Samples samples)
    : kind(samples), framesPerLevel(rate / kLevelsPerSecond),
      levelSeconds(double(framesPerLevel) / rate),
      decay(1.0 - 2.0 * std::numbers::pi * kRumble / rate), channels(size_t(channelCount))
{
}

template <class Sample>
void PauseFinder::measure(const Block& block, double fullScale)
{
    const auto* sample = reinterpret_cast<const Sample*>(block.data());
    const auto* const end = sample + block.size() / sizeof(Sample);
    while (sample < end) {
        for (Channel& channel : channels) {
            const double value = double(*sample++) / fullScale;
            const double now = std::isfinite(value) ? value : channel.last;
            channel.heard = now - channel.last + decay * channel.heard;
            channel.last = now;
            channel.energy += channel.heard * channel.heard;
        }
        if (++frames == framesPerLevel)
            close();
    }
}

void PauseFinder::close()
{
    double energy = 0.0;
    for (Channel& channel : channels) {
        energy = std::max(energy, channel.energy);
        channel.energy = 0.0;
    }
    constexpr double kLeast = 1e-12;
    levels.push_back(float(10.0 * std::log10(std::max(energy / frames, kLeast))));
    frames = 0;
}

void PauseFinder::take(const Block& block)
{
    switch (kind) {
    case Samples::int16:
        return measure<int16_t>(block, 0x1p15);
    case Samples::int24:
        return measure<int32_t>(block, 0x1p23);
    case Samples::int32:
        return measure<int32_t>(block, 0x1p31);
    case Samples::float32:
        return measure<float>(block, 1.0);
    case Samples::float64:
        return measure<double>(block, 1.0);
    }
}

std::vector<Span> PauseFinder::pauses(double threshold, double margin) const
{
    constexpr double kShortest = 0.1; // seconds
    const std::vector<bool> isWord = findWords(levels, chooseThresholds(levels, float(threshold)));
    const double total =
        double(levels.size()) * levelSeconds + double(frames) / framesPerLevel * levelSeconds;
    std::vector<Span> found;
    for (auto from = isWord.begin(); from != isWord.end();) {
        const auto to = std::find(from, isWord.end(), !*from);
        const double start = double(from - isWord.begin()) * levelSeconds;
        const double end = to == isWord.end() ? total : double(to - isWord.begin()) * levelSeconds;
        const Span pause{from == isWord.begin() ? start : start + margin,
                         to == isWord.end() ? end : end - margin};
        if (!*from && pause.to - pause.from >= kShortest)
            found.push_back(pause);
        from = to;
    }
    return found;
}
