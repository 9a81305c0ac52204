#include "sound_picture.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <utility>

namespace {

constexpr int kFirstColumn = 64; // frames
constexpr double kShort = 0.06;  // seconds of sound in a spectrum, at least
constexpr double kLong = 0.6;

int sizeFor(int rate, double seconds)
{
    return int(std::bit_ceil(unsigned(rate * seconds)));
}

template <class Sample>
void appendScaled(std::vector<float>& to, const Block& block, double fullScale)
{
    const auto* const samples = reinterpret_cast<const Sample*>(block.data());
    for (size_t n = 0; n < block.size() / sizeof(Sample); ++n) {
        const double value = double(samples[n]) / fullScale;
        to.push_back(std::isfinite(value) ? float(std::clamp(value, -8.0, 8.0)) : 0.0f);
    }
}

void toNumbers(std::vector<float>& to, const Block& block, Samples kind)
{
    to.clear();
    switch (kind) {
    case Samples::int16:
        return appendScaled<int16_t>(to, block, 0x1p15);
    case Samples::int24:
        return appendScaled<int32_t>(to, block, 0x1p23);
    case Samples::int32:
        return appendScaled<int32_t>(to, block, 0x1p31);
    case Samples::float32:
        return appendScaled<float>(to, block, 1.0);
    case Samples::float64:
        return appendScaled<double>(to, block, 1.0);
    }
}

void add(SoundPicture::Column& to, const SoundPicture::Column& from, double part)
{
    to.low = to.samples > 0.0 ? std::min(to.low, from.low) : from.low;
    to.high = to.samples > 0.0 ? std::max(to.high, from.high) : from.high;
    to.squares += part * from.squares;
    to.samples += part * from.samples;
    for (size_t band = 0; band < to.power.size(); ++band)
        to.power[band] += float(part) * from.power[band];
    to.spectra += float(part) * from.spectra;
}

} // namespace

double MeanSpectrum::powerBetween(double low, double high) const
{
    const double from = std::max(low / binHertz + 0.5, 0.0); // bin k reaches half a bin each way
    const double to = std::min(high / binHertz + 0.5, double(power.size()));
    double sum = 0.0;
    for (auto bin = size_t(from); double(bin) < to; ++bin)
        sum += power[bin] * (std::min(to, double(bin + 1)) - std::max(from, double(bin)));
    return sum;
}

double SoundPicture::Column::rms() const
{
    return samples > 0.0 ? std::sqrt(squares / samples) : 0.0;
}

double SoundPicture::Column::level(size_t band) const
{
    constexpr double kSilence = 1e-15;
    return 10.0 *
           std::log10(std::max(spectra > 0.0f ? double(power[band] / spectra) : 0.0, kSilence));
}

SoundPicture::SoundPicture(Samples samples, int hertz, int count, Weight weight)
    : kind(samples), rate(hertz), channels(size_t(count)), weightAt(std::move(weight)),
      highestHertz(std::min(20000.0, hertz / 2.0)), columnFrames(kFirstColumn),
      shortSize(sizeFor(hertz, kShort)), mean(size_t(sizeFor(hertz, kLong)) / 2 + 1),
      shortSpectrum(shortSize, count,
                    [this](int64_t frame, const auto& power) { addSpectrum(frame, power); }),
      longSpectrum(sizeFor(hertz, kLong), count,
                   [this](int64_t frame, const auto& power) { addToMean(frame, power); })
{
    shortSpectrum.setHop(columnFrames);
}

void SoundPicture::take(const Block& given)
{
    toNumbers(block, given, kind);
    addToColumns();
    shortSpectrum.take(block);
    longSpectrum.take(block);
}

void SoundPicture::finish()
{
    shortSpectrum.finish();
    longSpectrum.finish();
}

void SoundPicture::addToColumns()
{
    for (size_t at = 0; at < block.size(); at += channels, ++frames) {
        while (columnOf(frames) >= kMostColumns)
            halveColumns();
        if (columnOf(frames) >= done.size())
            done.emplace_back();
        Column& column = done.back();
        for (size_t channel = 0; channel < channels; ++channel) {
            const float sample = block[at + channel];
            column.low = column.samples > 0.0 ? std::min(column.low, sample) : sample;
            column.high = column.samples > 0.0 ? std::max(column.high, sample) : sample;
            column.squares += double(sample) * double(sample);
            ++column.samples;
        }
    }
}

// Stretches that reach beyond the sound count only where it is shorter than one.
void SoundPicture::addToMean(int64_t frame, const std::vector<float>& power)
{
    const auto half = int64_t(power.size()) - 1;
    const bool isWhole = frame >= half && frame + half <= frames;
    if (isWhole && !hasWhole) {
        std::fill(mean.begin(), mean.end(), 0.0);
        weights = 0.0;
        hasWhole = true;
    }
    if (!isWhole && hasWhole)
        return;
    const double part = weightAt(double(frame) / rate);
    weights += part;
    for (size_t bin = 0; bin < mean.size(); ++bin)
        mean[bin] += part * double(power[bin]);
}

void SoundPicture::halveColumns()
{
    for (size_t n = 0; n < done.size(); ++n)
        if (n % 2 == 0)
            done[n / 2] = done[n];
        else
            add(done[n / 2], done[n], 1.0);
    done.resize((done.size() + 1) / 2);
    columnFrames *= 2;
    shortSpectrum.setHop(std::min(columnFrames, shortSize / 2));
}

// What lies in a band, or, where bins are wider than bands, what would be there between them.
void SoundPicture::addSpectrum(int64_t frame, const std::vector<float>& power)
{
    if (columnOf(frame) >= done.size())
        return; // beyond the end
    sums.assign(1, 0.0);
    for (const float bin : power)
        sums.push_back(sums.back() + double(bin));
    const double binHertz = double(rate) / shortSize;
    const auto below = [&](double bin) { // bin k reaches half a bin each way
        const double at = std::clamp(bin + 0.5, 0.0, double(power.size()) - 1e-6);
        const auto whole = size_t(at);
        return sums[whole] + (at - double(whole)) * double(power[whole]);
    };
    Column& column = done[columnOf(frame)];
    const double ratio = std::pow(highestHertz / kLowest, 1.0 / kBands);
    double edge = kLowest / binHertz;
    for (float& band : column.power) {
        const double middle = edge * (1.0 + ratio) / 2.0;
        const double half = std::max(edge * (ratio - 1.0), 1.0) / 2.0;
        band += float(below(middle + half) - below(middle - half));
        edge *= ratio;
    }
    ++column.spectra;
}

SoundPicture::Column SoundPicture::between(double from, double to) const
{
    Column sum;
    if (done.empty())
        return sum;
    const double last = double(done.size()) - 1.0;
    const double first = from / columnSeconds();
    const double end = to / columnSeconds();
    const auto lowest = size_t(std::clamp(first, 0.0, last));
    const auto highest = size_t(std::clamp(std::ceil(end) - 1.0, double(lowest), last));
    for (size_t n = lowest; n <= highest; ++n) {
        const double part = std::min(end, double(n + 1)) - std::max(first, double(n));
        add(sum, done[n], std::max(part, 1e-6));
    }
    return sum;
}

MeanSpectrum SoundPicture::spectrum() const
{
    MeanSpectrum result{double(rate) / sizeFor(rate, kLong), mean};
    for (double& bin : result.power)
        bin /= std::max(weights, 1e-9);
    return result;
}
