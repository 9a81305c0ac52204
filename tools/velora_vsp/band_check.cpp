#include "band_check.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

constexpr double kSilence = -90.0; // dB: below, nothing is told of the pitch
constexpr double kStep = 2.0;      // cents between the points at which spectra are compared
constexpr double kFloor = 40.0;    // dB
constexpr int kFarthest = 50;      // steps that the output is looked for beside its place

double decibels(double power)
{
    return 10.0 * std::log10(std::max(power, 1e-15));
}

// Within a step to either side, or between bins where they lie wider apart than that.
double levelAt(const MeanSpectrum& spectrum, double hertz)
{
    const double step = std::exp2(kStep / 1200.0);
    if (hertz * (step - 1.0 / step) > spectrum.binHertz)
        return decibels(spectrum.powerBetween(hertz / step, hertz * step));
    const double at = hertz / spectrum.binHertz;
    const auto bin = size_t(at);
    if (bin + 1 >= spectrum.power.size())
        return decibels(0.0);
    const double below = decibels(spectrum.power[bin]);
    return below + (at - double(bin)) * (decibels(spectrum.power[bin + 1]) - below);
}

// The levels of a band at equal ratios, with `more` steps on either side, less what is broad in them.
// What is far below the loudest is noise, which has no pitch.
std::vector<double> tonesOf(const MeanSpectrum& spectrum, double low, double high, int more)
{
    constexpr int kBroad = 100; // steps on either side
    const int steps = int(1200.0 * std::log2(high / low) / kStep);
    const int margin = more + kBroad;
    std::vector<double> levels;
    for (int n = -margin; n <= steps + margin; ++n)
        levels.push_back(levelAt(spectrum, low * std::exp2(n * kStep / 1200.0)));
    const double floor = *std::max_element(levels.begin(), levels.end()) - kFloor;
    std::vector<double> sums = {0.0};
    for (double& level : levels) {
        level = std::max(level, floor);
        sums.push_back(sums.back() + level);
    }
    std::vector<double> tones;
    for (size_t n = kBroad; n + kBroad < levels.size(); ++n)
        tones.push_back(levels[n] - (sums[n + kBroad + 1] - sums[n - kBroad]) / (2 * kBroad + 1));
    return tones;
}

// How alike `band` is to as much of `wide` from `at` on: 1 where they are the same but for the scale.
double likeness(const std::vector<double>& band, const std::vector<double>& wide, int at)
{
    double product = 0.0;
    double ofBand = 0.0;
    double ofWide = 0.0;
    for (size_t n = 0; n < band.size(); ++n) {
        const double other = wide[n + size_t(at)];
        product += band[n] * other;
        ofBand += band[n] * band[n];
        ofWide += other * other;
    }
    return product / std::sqrt(std::max(ofBand * ofWide, 1e-9));
}

std::optional<double> pitchOf(const MeanSpectrum& in, const MeanSpectrum& out, double low,
                              double high, double pitch)
{
    constexpr double kAlike = 0.7;
    const std::vector<double> band = tonesOf(in, low, high, 0);
    const std::vector<double> wide = tonesOf(out, low * pitch, high * pitch, kFarthest);
    std::vector<double> alike;
    for (int at = 0; at <= 2 * kFarthest; ++at)
        alike.push_back(likeness(band, wide, at));
    const auto best = std::max_element(alike.begin(), alike.end());
    if (*best < kAlike || best == alike.begin() || best + 1 == alike.end())
        return std::nullopt;
    const double bend = best[-1] - 2.0 * *best + best[1]; // of a parabola through the three
    const double between = bend < 0.0 ? (best[-1] - best[1]) / (2.0 * bend) : 0.0;
    return (double(best - alike.begin()) - kFarthest + between) * kStep;
}

} // namespace

std::vector<BandCheck> checkBands(const MeanSpectrum& in, const MeanSpectrum& out, int perOctave,
                                  double pitch)
{
    constexpr double kReference = 1000.0;
    constexpr int kLowest = -4; // octaves from there
    constexpr int kHighest = 4;
    const double highest = in.binHertz * double(in.power.size() - 1);
    const double half = std::exp2(0.5 / perOctave);
    std::vector<BandCheck> bands;
    for (int n = kLowest * perOctave; n <= kHighest * perOctave; ++n) {
        const double middle = kReference * std::exp2(double(n) / perOctave);
        const double low = middle / half;
        const double high = middle * half;
        if (high > highest)
            break;
        BandCheck band{middle, decibels(in.powerBetween(low, high)),
                       decibels(out.powerBetween(low * pitch, high * pitch)), std::nullopt};
        if (band.in > kSilence && band.out > kSilence)
            band.cents = pitchOf(in, out, low, high, pitch);
        bands.push_back(band);
    }
    return bands;
}
