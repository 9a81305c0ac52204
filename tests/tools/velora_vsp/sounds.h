// Sounds that the tool's tests play, and how they measure what comes out.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <sndfile.h>

struct Sound {
    int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    int rate = 44100;
    int channels = 2;
    std::vector<double> samples; // interleaved, full scale 1.0

    long frames() const { return long(samples.size()) / channels; }
};

inline Sound tone(double hertz, long frames, int rate = 44100, int channels = 2)
{
    Sound sound{SF_FORMAT_WAV | SF_FORMAT_PCM_16, rate, channels, {}};
    for (long n = 0; n < frames; ++n)
        sound.samples.insert(sound.samples.end(), size_t(channels),
                             0.5 * std::sin(2.0 * std::numbers::pi * hertz * double(n) / rate));
    return sound;
}

inline Sound noise(int channels, long frames, int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                   double amplitude = 0.5)
{
    Sound sound{format, 44100, channels, std::vector<double>(size_t(frames * channels))};
    std::mt19937 random(7);
    std::uniform_real_distribution<double> uniform(-amplitude, amplitude);
    std::generate(sound.samples.begin(), sound.samples.end(), [&] { return uniform(random); });
    return sound;
}

/// Silence with short rings at 500 Hz, each within two hops around its frame, in all channels.
inline Sound rings(int rate, int channels, long frames, const std::vector<long>& centres, int hop)
{
    Sound sound{SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, channels,
                std::vector<double>(size_t(frames * channels))};
    for (const long centre : centres)
        for (long n = -2 * hop; n < 2 * hop; ++n)
            std::fill_n(sound.samples.begin() + (centre + n) * channels, channels,
                        0.5 * std::exp(-0.5 * std::pow(double(n) / (hop / 4.0), 2)) *
                            std::cos(2.0 * std::numbers::pi * 500.0 * double(n) / rate));
    return sound;
}

/// In frames: of the left channel, within `reach` frames of `near`.
inline double centreOfEnergy(const Sound& sound, double near, double reach)
{
    double energy = 0.0;
    double moment = 0.0;
    const long end = std::min(sound.frames(), long(near + reach));
    for (long n = std::max(0L, long(near - reach)); n < end; ++n) {
        const double power = std::pow(sound.samples[size_t(n * sound.channels)], 2);
        energy += power;
        moment += power * double(n);
    }
    EXPECT_GT(energy, 1e-4) << "no sound near " << near;
    return moment / energy;
}

inline double rms(const Sound& sound)
{
    double sum = 0.0;
    for (const double sample : sound.samples)
        sum += sample * sample;
    return std::sqrt(sum / double(sound.samples.size()));
}

/// In Hz: of the left channel, from its zero crossings, without a tenth at either end.
inline double frequency(const Sound& sound)
{
    const auto left = [&](long n) { return sound.samples[size_t(n * sound.channels)]; };
    const long skip = sound.frames() / 10;
    long rising = 0;
    for (long n = skip; n < sound.frames() - skip; ++n)
        rising += left(n - 1) < 0.0 && left(n) >= 0.0;
    return double(rising) * sound.rate / double(sound.frames() - 2 * skip);
}
