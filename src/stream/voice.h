// One way for a stream's sound to get from input to output, and when what comes out of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include <velora/vsp.h>

#include "stream/time_map.h"

namespace vsp {

// Stages of the steps of one pair of channels, all of about equal work.
inline constexpr int kStartStages = 4; // one of them takes most of the time
inline constexpr int kTakeStages = Velora_VSP_Conductor::kTakeStages;
inline constexpr int kGiveStages = Velora_VSP_Conductor::kGiveStages;
inline constexpr int kConvertStages = 4;

/// What the stream's rate and its caller fix.
struct Rate {
    int sampleRate;   // caller's, Hz
    int shift;        // log2 of the caller's rate over the engine's working rate
    std::int64_t hop; // caller frames that the engine takes at a time
    double delayIn;   // caller frames that low frequencies take through the engine's filters ahead
    double delayOut;  // of the analysis, and through those behind the synthesis
    bool pitchDrops;  // at the converter's speeds, as on a slowed tape
    bool isNatural;   // no low-pass at slow speeds, phases locked between channels
    double fastest;   // most that a speed can be
    std::int64_t lookAhead;       // input frames that must have come in beyond a hop that is taken
    std::int64_t lookAheadOfPart; // and beyond what the converter takes
    int pairs;                    // of channels: each has an engine of its own
    bool isSmooth;                // work is spread over the frames that are handed out meanwhile
};

enum class Path { dry, vocoder, converter };

/// How a frame is steered towards what the input sounds: see Velora_VSP_Conductor::Steer.
struct Approach {
    float lead = 0.0f;
    float share = 0.0f;
};

/// One way through: untouched, or engines at the speeds of the time map. Knows what each hop of
/// input yields.
struct Voice {
    Path path = Path::dry;
    bool isNatural = false;       // see Rate
    bool isFiltered = false;      // by the low-pass of slow speeds, at whatever speed it goes on
    double speed = 1.0;           // as asked for
    float engineSpeed = 1.0f;     // as the engine is told
    float clock = 1.0f;           // the engine's own: synthesis position in hops, single precision
    std::int64_t fed = 0;         // input frame that it takes next
    std::int64_t end = 0;         // output frame that it gives next
    std::size_t firstSegment = 0; // of the time map, at which it joins
    std::size_t segment = 0;      // of the time map, which it follows
    double lowPassDelay = 0.0;    // output frames that this takes, 0 if there is none
    double phaseDelay = 0.0;      // hops of output that it sounds later than its frames say
    // Output frame up to which it sounds as the input does, at 1.0.
    std::int64_t inPhaseTo = std::numeric_limits<std::int64_t>::min();
    Approach approach;      // of the hop of output that comes next
    bool isNew = true;      // its engines are to be started first
    int unheard = 0;        // hops that are taken before the first that its sound is made of
    int done = 0;           // stages of the step that comes next, of all pairs
    std::int64_t ahead = 0; // stages since it gave a hop of output

    static Voice at(double speed, const Rate& rate);

    bool isDry() const { return path == Path::dry; }

    /// Whether it can play at the other's speed without a fade. The low-pass that comes with slow
    /// speeds sounds too different.
    bool turnsInto(const Voice& other) const;

    /// Places the voice so that output frame `output` sounds input time `media`, and starts it far
    /// enough before that for its pipeline to have filled.
    void place(std::int64_t output, double media, const Rate& rate);

    // What it does comes in steps, a step for all pairs of channels in stages.
    enum class Step {
        start,   ///< its engines are brought to silence
        take,    ///< takes in the hop at `fed`
        give,    ///< gives a hop of output at `end`
        convert, ///< takes in what makes one hop of output, and gives that
    };
    Step nextStep() const;
    /// Frames that the next step takes in from `fed` on, and the input frame up to which input must
    /// have come in for that: 0 if it takes in none.
    std::int64_t inputStep(const Rate& rate) const;
    std::int64_t inputWanted(const Rate& rate) const;
    /// Stages of the next step, of all pairs and of each.
    int stages(const Rate& rate) const { return rate.pairs * stagesOfPair(); }
    int stagesOfPair() const;
    /// Whether it gives another hop of output if `input` frames have come in.
    bool givesNext(std::int64_t input, const Rate& rate) const;
    /// Stages of all steps from one hop of output to the end of the next.
    std::int64_t stagesToGive(const Rate& rate) const;

    /// Before a step that gives: chooses the engine's speed so that it keeps to the time map.
    void follow(const TimeMap& times, const Rate& rate);
    /// Before a step that gives, if the input itself takes over at output frame `output` with input
    /// frame `media`: chooses how far that is approached.
    void approachInput(std::int64_t output, std::int64_t media, const Rate& rate);
    /// Input frame that it sounds at an output frame of its next hop: by the time map, but beyond
    /// the segments that it follows as if these went on.
    double mediaAt(const TimeMap& times, std::int64_t output) const;
    /// The next step is done.
    void move(const Rate& rate);

    /// Output frame from which it can play at another speed: the middle of its next synthesis
    /// frame.
    std::int64_t turnFrame(const Rate& rate) const;

    /// Most hops of input that must have come in beyond an input time for it to come out, up to a
    /// speed; and most before it that a voice which joins there wants.
    static std::int64_t mostLagHops(double speed);
    static constexpr std::int64_t kMostLeadHops = 5;

private:
    std::int64_t hopsToTake() const;
    float nearSpeed(double wanted) const;
    void placeConverter(std::int64_t output, double media, const Rate& rate);
    void placeAmidst(std::int64_t output, double media, const Rate& rate);
    double position(const Rate& rate) const;
    double usualDelay(double atSpeed) const;
    double synthesisDelayHops() const;
    double centre(std::int64_t output, const Rate& rate) const;
    std::size_t segmentAt(const TimeMap& times, std::int64_t output, const Rate& rate) const;
    double positionAt(const TimeMap& times, std::int64_t output, const Rate& rate) const;
    double delay(const Rate& rate) const;
    double delayOut(const Rate& rate) const { return rate.delayOut + lowPassDelay; }
};

// ---- What a schedule asks at every step ----

inline Voice::Step Voice::nextStep() const
{
    if (isNew)
        return Step::start;
    if (path == Path::converter)
        return Step::convert;
    return clock >= 1.0f ? Step::take : Step::give;
}

inline std::int64_t Voice::inputStep(const Rate& rate) const
{
    switch (nextStep()) {
    case Step::take:
        return rate.hop;
    case Step::convert:
        return std::int64_t(double(rate.hop) * speed);
    default:
        return 0;
    }
}

inline std::int64_t Voice::inputWanted(const Rate& rate) const
{
    const std::int64_t step = inputStep(rate);
    if (step == 0)
        return 0;
    return fed + step + (path == Path::converter ? rate.lookAheadOfPart : rate.lookAhead);
}

inline int Voice::stagesOfPair() const
{
    switch (nextStep()) {
    case Step::start:
        return kStartStages;
    case Step::take:
        return unheard > 0 ? Velora_VSP_Conductor::kUnheardStages : kTakeStages;
    case Step::convert:
        return kConvertStages;
    default:
        return kGiveStages;
    }
}

// Before it gives the next hop of output.
inline std::int64_t Voice::hopsToTake() const
{
    return clock >= 1.0f ? std::int64_t(clock) : 0;
}

inline std::int64_t Voice::stagesToGive(const Rate& rate) const
{
    if (path == Path::converter)
        return stages(rate);
    return ahead - done + (hopsToTake() * kTakeStages + kGiveStages) * rate.pairs;
}

} // namespace vsp
