// What a sound looks like and what it is made of, collected while it passes: the same memory however
// long it is.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "samples.h"
#include "spectrum.h"

/// Mean power over a whole sound, by frequency.
struct MeanSpectrum {
    double binHertz = 0.0;
    std::vector<double> power; // by bin; a full-scale sine adds up to 1

    /// Between two frequencies, as part of a full-scale sine.
    double powerBetween(double low, double high) const;
};

class SoundPicture {
public:
    static constexpr int kBands = 128; // between kLowest and highest(), at equal ratios
    static constexpr double kLowest = 30.0;
    static constexpr size_t kMostColumns = 2048;

    /// What is seen of a stretch of time, all channels together.
    struct Column {
        float low = 0.0f; // of its samples, full scale is 1
        float high = 0.0f;
        double squares = 0.0; // the sum over its samples
        double samples = 0.0;
        std::array<float, kBands> power{}; // the sum over its spectra
        float spectra = 0.0f;

        double rms() const;
        /// In decibels below a full-scale sine.
        double level(size_t band) const;
    };
    /// How much a second of the sound counts in its mean spectrum, by the time in seconds.
    using Weight = std::function<double(double)>;

    SoundPicture(Samples samples, int rate, int channels, Weight weight);
    SoundPicture(const SoundPicture&) = delete; // its spectra come to it
    SoundPicture& operator=(const SoundPicture&) = delete;

    void take(const Block& block);
    /// To be called once, after the last block.
    void finish();

    double highest() const { return highestHertz; }
    size_t columns() const { return done.size(); }
    double columnSeconds() const { return double(columnFrames) / rate; }
    double seconds() const { return double(frames) / rate; }
    /// What is seen between two times in seconds. Between columns it is the nearest one.
    Column between(double from, double to) const;
    MeanSpectrum spectrum() const;

private:
    size_t columnOf(int64_t frame) const { return size_t(frame / columnFrames); }
    void addToColumns();
    void addSpectrum(int64_t frame, const std::vector<float>& power);
    void addToMean(int64_t frame, const std::vector<float>& power);
    void halveColumns();

    Samples kind;
    int rate;
    size_t channels;
    Weight weightAt;
    double highestHertz;
    int columnFrames; // as many as the time so far takes for the columns there may be
    int shortSize;
    int64_t frames = 0;
    std::vector<Column> done;
    std::vector<float> block; // as numbers, full scale is 1
    std::vector<double> sums; // of the power of bins below
    std::vector<double> mean;
    double weights = 0.0;
    bool hasWhole = false;         // stretches in the mean lie within the sound
    SlidingSpectrum shortSpectrum; // for the eye: fine in time
    SlidingSpectrum longSpectrum;  // for the mean: fine in frequency
};
