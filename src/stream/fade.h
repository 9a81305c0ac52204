// Fades between two sounds of the same media time that keep the level, however much these sounds
// have in common.
#pragma once

#include <cstdint>

#include <velora/vsp.h>

#include "stream/pair_queue.h"

namespace vsp {

/// Weights over a fade. Those of a linear fade give the sum of two equal sounds their level; sounds
/// that have nothing in common would dip by 3 dB in the middle, and opposite ones vanish. So both
/// are raised alike to where the energy of the sum passes evenly from that of the one to that of the
/// other: by 8 dB at most.
class FadeWeights {
public:
    struct Pair {
        double old;
        double fresh;
    };

    /// Linear ones.
    explicit FadeWeights(std::int64_t frames) : total(frames) {}
    /// By how much `old` and `fresh` have in common, all channels together, in `frames` frames from
    /// `frame` on, which both hold. Takes 3 multiplications a sample.
    FadeWeights(const PairQueue& old, const PairQueue& fresh, Velora_BitDepth_T depth,
                std::int64_t frame, std::int64_t frames);

    /// Of frame 0 to frames - 1 of the fade: from (1, 0) on. Takes a root and two divisions.
    Pair at(std::int64_t n) const;

private:
    std::int64_t total;
    double oldEnergy = 1.0;
    double freshEnergy = 1.0;
    double product = 1.0; // sum of old times fresh
};

/// Fades what stands in `fresh` in, from `old` at the same frames: `count` frames from `frame` on,
/// of a fade that begins at frame `start`. A fade may be done in parts. Integers are rounded to the
/// nearest and limited.
void fade(PairQueue& fresh, const PairQueue& old, Velora_BitDepth_T depth,
          const FadeWeights& weights, std::int64_t frame, std::int64_t count, std::int64_t start);

} // namespace vsp
