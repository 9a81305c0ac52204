// Where speech pauses: from the level of the sound over time, seen as a whole.
#pragma once

#include <vector>

#include "samples.h"
#include "speed_map.h"

class PauseFinder {
public:
    PauseFinder(int rate, int channels, Samples samples);

    /// The next of the sound.
    void take(const Block& block);

    /// The pauses in all that was taken, in seconds from its start.
    /// @param threshold  dB below full scale; noise that goes on between the words raises it
    /// @param margin     seconds that stay as they are beside sound
    std::vector<Span> pauses(double threshold, double margin) const;

private:
    template <class Sample>
    void measure(const Block& block, double fullScale);
    std::vector<float> thresholds(double least) const;

    int channelCount;
    Samples kind;
    int framesPerLevel;
    double levelSeconds;
    double energy = 0.0; // of the frames since the last level
    int frames = 0;
    std::vector<float> levels; // dB
};
