#include "benchmarks/dense_music.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <random>

namespace {

constexpr double kPi = 3.141592653589793;

class Mix {
public:
    Mix(int sampleRate, size_t frameCount)
        : rate(sampleRate), frames(frameCount), samples(2 * frameCount)
    {
    }

    double seconds() const { return double(frames) / rate; }

    /// A decaying sinusoid; pan 0 is left, 1 right; decay is the time to 1/e, in seconds.
    void partial(double start, double length, double hertz, double amplitude, double pan,
                 double decay)
    {
        if (hertz > 0.45 * rate)
            return;
        std::complex<double> phasor = std::polar(amplitude, value(0.0, 2.0 * kPi));
        const std::complex<double> step =
            std::polar(std::exp(-1.0 / (decay * rate)), 2.0 * kPi * hertz / rate);
        for (size_t n = frameAt(start); n < frameAt(start + length); ++n) {
            add(n, phasor.real(), pan);
            phasor *= step;
        }
    }

    /// Decaying white noise.
    void noise(double start, double length, double amplitude, double pan)
    {
        const double step = std::exp(-4.0 / (length * rate));
        for (size_t n = frameAt(start); n < frameAt(start + length); ++n) {
            add(n, value(-amplitude, amplitude), pan);
            amplitude *= step;
        }
    }

    double value(double low, double high)
    {
        return low + (high - low) * double(random()) / double(std::minstd_rand::max());
    }

    std::vector<int16_t> normalised() const
    {
        double peak = 1e-9;
        for (const double sample : samples)
            peak = std::max(peak, std::abs(sample));
        std::vector<int16_t> out(samples.size());
        std::transform(samples.begin(), samples.end(), out.begin(), [peak](double sample) {
            return int16_t(std::lround(sample * 0.9 * 32767.0 / peak));
        });
        return out;
    }

private:
    size_t frameAt(double time) const { return std::min(frames, size_t(time * rate)); }

    void add(size_t frame, double sample, double pan)
    {
        samples[2 * frame] += sample * (1.0 - pan);
        samples[2 * frame + 1] += sample * pan;
    }

    double rate;
    size_t frames;
    std::vector<double> samples;
    std::minstd_rand random{1};
};

void chord(Mix& mix, double start, double root)
{
    for (const double interval : {0.5, 1.0, 1.25, 1.5, 2.25}) {
        const double pan = mix.value(0.2, 0.8);
        for (int harmonic = 1; harmonic <= 16; ++harmonic)
            mix.partial(start, 1.0, root * interval * harmonic * mix.value(0.999, 1.001),
                        1.0 / harmonic, pan, 1.5);
    }
}

void drums(Mix& mix, double start)
{
    mix.partial(start, 0.3, 55.0, 4.0, 0.5, 0.08);
    mix.noise(start + 0.25, 0.15, 2.5, 0.45);
    for (int eighth = 0; eighth < 4; ++eighth)
        mix.noise(start + 0.125 * eighth, 0.04, 0.8, 0.65);
}

} // namespace

std::vector<int16_t> denseMusic(int sampleRate, size_t frames)
{
    constexpr double kRoots[] = {220.0, 174.6, 196.0, 261.6};
    Mix mix(sampleRate, frames);
    for (int partial = 0; partial < 30; ++partial)
        mix.partial(0.0, mix.seconds(), 80.0 * std::pow(150.0, mix.value(0.0, 1.0)), 0.15,
                    mix.value(0.0, 1.0), 1e3);
    for (int second = 0; second < mix.seconds(); ++second)
        chord(mix, second, kRoots[second % 4]);
    for (int beat = 0; 0.5 * beat < mix.seconds(); ++beat)
        drums(mix, 0.5 * beat);
    return mix.normalised();
}
