#include "spectrum.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>
#include <numeric>
#include <utility>

SlidingSpectrum::SlidingSpectrum(int length, int count, Sink sink)
    : size(size_t(length)), channels(size_t(count)), give(std::move(sink)), hop(length / 2),
      waiting(size / 2 * channels), window(size), stretch(size), bins(size), power(size / 2 + 1)
{
    for (size_t n = 0; n < size; ++n)
        window[n] = float(0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * double(n) / length));
    const float energy = std::inner_product(window.begin(), window.end(), window.begin(), 0.0f);
    scale = 4.0f / (float(size) * energy * float(count));
    AVTXContext* made = nullptr;
    const float one = 1.0f;
    if (av_tx_init(&made, &run, AV_TX_FLOAT_FFT, 0, length, &one, AV_TX_UNALIGNED) < 0)
        throw std::bad_alloc();
    transform.reset(made);
}

void SlidingSpectrum::take(const std::vector<float>& samples)
{
    waiting.insert(waiting.end(), samples.begin(), samples.end());
    frames += int64_t(samples.size() / channels);
    size_t first = 0;
    while ((first + size) * channels <= waiting.size()) {
        analyse(first);
        first += size_t(hop);
        middle += hop;
        give(middle - hop, power);
    }
    const size_t done = std::min(first * channels, waiting.size());
    waiting.erase(waiting.begin(), waiting.begin() + std::ptrdiff_t(done));
}

void SlidingSpectrum::finish()
{
    const int64_t end = frames;
    const std::vector<float> silence(size_t(hop) * channels);
    while (middle < end)
        take(silence);
    frames = end;
}

void SlidingSpectrum::analyse(size_t first)
{
    std::fill(power.begin(), power.end(), 0.0f);
    for (size_t channel = 0; channel < channels; channel += 2)
        addPair(first, channel);
    for (float& bin : power)
        bin *= scale;
}

// One transform takes two channels, as real and imaginary part, whose power is then that of both.
void SlidingSpectrum::addPair(size_t first, size_t channel)
{
    const bool isPair = channel + 1 < channels;
    for (size_t n = 0; n < size; ++n) {
        const float* const frame = &waiting[(first + n) * channels + channel];
        stretch[n] = {window[n] * frame[0], isPair ? window[n] * frame[1] : 0.0f};
    }
    run(transform.get(), bins.data(), stretch.data(), sizeof(AVComplexFloat));
    const auto powerOf = [](AVComplexFloat bin) { return bin.re * bin.re + bin.im * bin.im; };
    for (size_t k = 0; k < power.size(); ++k)
        power[k] += (powerOf(bins[k]) + powerOf(bins[(size - k) % size])) / 2.0f;
}
