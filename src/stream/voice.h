// One way for a stream's sound to get from input to output, and when what comes out of it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "stream/time_map.h"

namespace vsp {

/// What the stream's rate and its caller fix.
struct Rate {
    int sampleRate;   // caller's, Hz
    int shift;        // log2 of the caller's rate over the engine's working rate
    std::int64_t hop; // caller frames that the engine takes at a time
    bool pitchDrops;  // at the converter's speeds, as on a slowed tape
    double fastest;   // most that a speed can be
    int pairs;        // of channels: each has an engine of its own
    bool isSmooth;    // work is spread over the frames that are handed out meanwhile
};

enum class Path { dry, vocoder, converter };

/// One way through: untouched, or engines at the speeds of the time map. Knows what each hop of
/// input yields.
struct Voice {
    Path path = Path::dry;
    double speed = 1.0;       // as asked for
    float engineSpeed = 1.0f; // as the engine is told
    float clock = 1.0f;       // the engine's own: synthesis position in hops, single precision
    std::int64_t fed = 0;     // input frame that it takes next
    std::int64_t end = 0;     // output frame that it gives next
    std::size_t segment = 0;  // of the time map, which it follows
    double phaseDelay = 0.0;  // hops of output that it sounds later than its frames say
    int pairsDone = 0;        // of the step that comes next
    int mute = 0;             // hops to be taken before the first whose sound is wanted

    static Voice at(double speed, const Rate& rate);

    bool isDry() const { return path == Path::dry; }
    bool isMute() const { return mute > 0; }

    /// Whether it can play at the other's speed without a fade. The low-pass that comes with slow
    /// speeds sounds too different.
    bool turnsInto(const Voice& other) const;

    /// Places the voice so that output frame `output` sounds input time `media`, and starts it far
    /// enough before that for its pipeline to have filled.
    void place(std::int64_t output, double media, const Rate& rate);

    /// Whether it must take in before it can give.
    bool wantsInput() const { return path == Path::converter || clock >= 1.0f; }
    /// Frames that it takes in at a time.
    std::int64_t inputStep(const Rate& rate) const;

    /// Steps, takes and one give, to the next hop of output.
    std::int64_t stepsToGive() const;

    /// Takes the hop at `fed`.
    void takeHop(const Rate& rate);
    /// Chooses the engine's speed for the next hop of output so that it keeps to the time map.
    void follow(const TimeMap& times, const Rate& rate);
    /// Gives a hop of output at `end`, or none while it is mute.
    void giveHop(const Rate& rate);
    /// Takes in what makes one hop of output, and gives that.
    void convertHop(const Rate& rate);
    /// Whichever of takeHop, giveHop and convertHop comes next; and with `follow` before it.
    void move(const Rate& rate);
    void step(const TimeMap& times, const Rate& rate);

    /// Output frame from which it can play at another speed: the middle of its next synthesis
    /// frame.
    std::int64_t turnFrame(const Rate& rate) const;

    /// Most hops of input that must have come in beyond an input time for it to come out, and most
    /// before it, up to a speed.
    static std::int64_t mostLagHops(double speed);
    static std::int64_t mostLeadHops(double speed);

private:
    bool isFiltered() const;
    float nearSpeed(double wanted) const;
    std::int64_t leadHops() const;
    double synthesisDelayHops() const;
    double centre(std::int64_t output, const Rate& rate) const;
    std::size_t segmentAt(const TimeMap& times, std::int64_t output, const Rate& rate) const;
    double positionAt(const TimeMap& times, std::int64_t output, const Rate& rate) const;
    double delay(const Rate& rate) const;
    double filterDelay(const Rate& rate) const;
};

} // namespace vsp
