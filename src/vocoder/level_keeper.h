// Keeps the stretched low band as loud as the input. Overlapping synthesis frames of which the
// phases don't agree add up to less than what was analysed: 0 to 3 dB less, by material, speed and
// how phases are locked. What is lost is measured as the stream goes, and made good.
#pragma once

#include <cstdint>

#include "fixed/ring.h"

namespace vsp {

/// Both energies, that of the input and that of the output at the same media time, are averaged over
/// most of a second of output; the gain is the root of their ratio. It moves so slowly, and the two
/// averages start and end together, so attacks, decays and silence stay as they are.
class LevelKeeper {
public:
    /// Forgets all energies; the gain is that of usual material.
    void reset();
    /// The same for frames that start in phase with the input, which lose nothing.
    void startInPhase()
    {
        gain = 1.0;
        filling = 4;
    }
    /// A hop of low band went into the analysis.
    /// @param energy  sum of its squared samples, both channels
    void tookHop(int64_t energy);
    /// A hop of low band came out of the synthesis, under the gain as it was.
    /// @param energy    sum of its squared samples, both channels
    /// @param position  of the synthesis frame that was added last, in hops of analysis from the one
    ///                  that was taken last (0) to the next one (1)
    /// @param speed     hops of analysis that pass for one of synthesis
    void gaveHop(int64_t energy, double position, double speed);
    /// For the next synthesis frame, Q14: 0.9 to 1.6.
    int32_t gainQ14() const { return int32_t(gain * 16384.0); }

private:
    static constexpr int kHistoryHops = 32;

    double energyBetween(double from, double to) const;

    Ring<double[1], kHistoryHops> taken; // history: energy of each hop that was analysed
    double wanted = 0.0;                 // history: average energy that a hop of output should have
    double given = 0.0;                  // history: average energy that it had before the gain
    int averaged = 0;                    // history: hops that these hold, up to a limit
    double gain = 1.0;
    int filling = 0; // history: hops of output left that not all of their synthesis frames are in
};

} // namespace vsp
