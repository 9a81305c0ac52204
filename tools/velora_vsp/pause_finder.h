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

    /// The pauses in all that was taken, in seconds from its start, if they last a tenth of a second
    /// without their margins.
    /// @param threshold  dB of full scale, RMS. Noise that goes on between the words raises it, and
    ///                   it lies below the loudest in any case: what is steady throughout is no pause.
    /// @param margin     seconds that stay as they are beside sound
    std::vector<Span> pauses(double threshold, double margin) const;

private:
    struct Channel {
        double last = 0.0;   // sample
        double heard = 0.0;  // the last of what passes the high-pass
        double energy = 0.0; // of this since the last level
    };
    template <class Sample>
    void measure(const Block& block, double fullScale);
    void close();

    Samples kind;
    int framesPerLevel;
    double levelSeconds;
    double decay; // of the high-pass from frame to frame
    std::vector<Channel> channels;
    int frames = 0;            // since the last level
    std::vector<float> levels; // dB of full scale: the RMS of the loudest channel
};
