// The phase vocoder: one hop of input in, as many hops out as the speed asks for.
//
// The low band goes through the spectrum at a reduced rate, the high band through plain
// overlap-add. Analysis and synthesis take the same hop; the speed decides how many synthesis
// frames are made of each analysis frame.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>

#include <velora/vsp.h>

#include "fft/spectra.h"
#include "fixed/angles.h"
#include "fixed/cache_line.h"
#include "fixed/complex.h"
#include "fixed/frame.h"
#include "fixed/ring.h"
#include "kernels/band_split.h"
#include "kernels/peaks.h"
#include "kernels/sizes.h"
#include "kernels/turns.h"
#include "vocoder/high_band_hops.h"
#include "vocoder/level_keeper.h"

namespace vsp {

inline constexpr int kNoLimit = INT_MAX;

/// Weights of the two segments of high band that are faded, as mixHighBand takes them, Q14.
struct Fades {
    alignas(kLine) int32_t q14[4][kMaxHop];
};

class Vocoder : public Spectra {
public:
    explicit Vocoder(const KernelTable& table) : Spectra(table) {}

    /// Analyses one hop and synthesises as many hops as the frame clock asks for.
    /// @param out      room for all that the clock asks for, at most kSlowestRatio * frames
    /// @param in       [frames]; 1 to 2^(hopIndex + 7)
    /// @param written  frames that stand in the caller's output before `out`; counted against
    ///                 outputLimit
    /// @returns        frames written at `out`, a multiple of `frames`; the others went to carryBuf
    int Velora_VSP_frame(Frame* out, const Frame* in, int frames, int written);

    // The same in steps, for who wants no more than one frame at a time; and each step in stages of
    // about equal work, for whole hops only. Between stages, what they work on stands in `stageWork`.
    /// Analyses one hop, as Velora_VSP_frame does; ends the one before.
    void takeHop(const Frame* in, int frames);
    /// @param in  read in stages 0 and 1
    void takeStage(int stage, const Frame* in, int frames);
    /// Whether the clock asks for (another) frame of the hop that was taken last.
    bool hasFrame() const { return frameClock < 1.0f; }
    /// Synthesises that frame, one hop of output.
    /// @param out  [frames], as many as were taken
    void giveFrame(Frame* out, int frames);
    /// @param out  written in the last stage only
    void giveStage(int stage, Frame* out, int frames);

    static constexpr int kTakeStages = 5; // 0 to 4
    static constexpr int kGiveStages = 5;
    static constexpr int kUnheardHops = 3; // after prime
    static constexpr int kUnheardStages = 3;

    // With LockedChannels, between stages 0 and 1 of giveStage, for engines that all are at the same
    // frame: what they agree on, so that more than two channels keep in step.
    static constexpr int kMostShift = 8;
    /// How well segments of the high band that start up to kMostShift frames before or behind where
    /// the next one belongs agree with the sound so far: products with it, and its energy.
    struct Matches {
        int64_t products[2 * kMostShift + 1];
        int64_t energy;
    };
    struct Agreement {
        ComplexInt turns[kBins]; // weighted, of each bin
        ComplexInt targets[kBins];
        Matches matches;
    };
    /// Adds this engine's.
    void addTo(Agreement& total) const;
    /// Goes by those of all engines.
    void agreeOn(const Agreement& total);

    /// With LockedChannels: the next synthesis frame's phases are steered towards the input `lead` hops
    /// ahead of where the frame lies, by `share` of what they differ by, 0 to 1.
    void steer(float lead, float share);

    /// After reset, for a stream that has been playing: the first frame takes its phases from the
    /// input.
    /// @param hops  that it comes after, 1 or more; a fraction says how far behind an analysis frame
    void prime(float hops);

    /// Splits a hop into `lowBandFrame` and the newest hop of `highBand`, the latter under the gain
    /// of the high band. Without decimation all of it is low band.
    /// @param in  [frames]
    void Velora_VSP_LPHP_separate(const Frame* in, int frames);
    /// The next hop of the stretched high band: half of each of two input hops, faded.
    /// @param hpOut  [frames]; without decimation left as it is
    void Velora_VSP_Combine_HP(Frame* hpOut, int frames);
    /// Writes `outFrames` frames from `lowFrames` frames of `lowBandFrame` and from `hpOut`; what
    /// these don't reach is silence.
    /// @param dest, hpOut  [outFrames]
    void Velora_VSP_LP_interpolate(Frame* dest, const Frame* hpOut, int lowFrames, int outFrames);

    /// Where in time the energy of each band of both channels' spectra lies: `bandCog`.
    void Velora_VSP_computeCOG(const SpectrumRow (&spectrum)[2]);
    /// Whether the newest frame holds an onset, by how many bands have late energy; the bands hear
    /// of it one hop later.
    void Velora_VSP_TransientProbability();
    /// Starts the countdown of an onset in every band that has none running.
    void Velora_VSP_ModifyBandStatus();
    /// Gives the bins around each spectral peak the synthesis phase of the peak plus the phase
    /// offset that they had from it in the analysis.
    /// @param X       [kBins] synthesis spectrum
    /// @param mag     [kBins] magnitudes in which peaks are searched
    /// @param A       [kBins] analysis phasors, Q14
    /// @param S       [kBins] synthesis phasors, Q14
    /// @param status  [kBands]; a band is left alone unless its status is 0
    /// @param bands   first and last bins of the bands
    /// @returns the number of all peaks
    int peakphaselock(ComplexInt* X, int* mag, ComplexShort* A, ComplexShort* S,
                      signed char* status, const short (*bands)[10]);

    /// Whether the newest frame holds an onset; and says that it does.
    bool foundOnset() const { return transientDecision != 0; }
    void takeOnset() { transientDecision = 1; }

protected:
    /// Sets the hop to 2^(index + 7) frames, index 0 to 2.
    void configure(int index);
    int hopFrames() const { return kLowHop << hopIndex; }

    /// To silence at speed 1.0, with no limit and nothing carried. What a hop writes before it
    /// reads is left as it is.
    void reset()
    {
        Spectra::reset();
        highBandGainQ15 = 32768;
        frameClock = 1.0f;
        effectiveSpeed = 1.0f;
        hopPart = HopPart::none;
        startsInPhase = false;
        approach = {};
        unheardHops = 0;
        clear(splitState, interpState);
        highBand.reset(hopFrames());
        clear(bandCog, bandFlagRing, transientThreshold, transientDecision, transientDecisionPrev);
        clear(bandStatus, bandRingIndex, bandHold);
        clear(interpMag);
        alikeHops = kAlikeHops;
        for (auto& phasors : synthPhasor)
            std::fill(std::begin(phasors), std::end(phasors), kPhaseZero);
        outputLimit = kNoLimit;
        carryCount = 0;
        levelKeeper.reset();
        clear(hopsSinceFrame, hpStart, hpStepRing, tookFirst);
    }

    bool does(Velora_VSP_Sound_T what) const { return (sound & what) != 0; }

    // What every hop asks for stands together here, before what kernels walk.

    // ---- Settings ----
    uint32_t sound = Velora_VSP_Sound_Own; // what goes beyond the engine's own sound
    int16_t hopIndex = 0;
    int16_t bandFactor = 1;                // 1, 2 or 4: decimation of the low band
    const int16_t* splitCoeffs = nullptr;  // Q14
    const int16_t* interpCoeffs = nullptr; // Q14
    int32_t highBandGainQ15 = 32768;
    const Fades* hpFades = nullptr; // for whole hops

    // ---- Frame clock ----
    float frameClock = 1.0f;     // history: synthesis position in analysis hops
    float effectiveSpeed = 1.0f; // settings: what the clock moves on by
    enum class HopPart { none, analysed, synthesised };
    HopPart hopPart = HopPart::none; // history: how far the last hop has got
    bool startsInPhase = false;      // the next frame takes its phases from the analysis
    int unheardHops = 0; // after the start of one: hops up to the first whole analysis frame, of
                         // which no synthesis frame is made, and which would look like onsets
    bool isHeard = true; // this hop: isn't one of them

    // ---- What goes beyond the limit of a call ----
    int32_t outputLimit = kNoLimit; // next call: hops beyond it, carried ones included, are carried
    int32_t carryCount = 0;         // history: frames in carryBuf

    // ---- Onsets ----
    float bandCog[kBands] = {};           // this hop: where in the frame the energy lies, from its
                                          // middle, in lengths of the frame
    Ring<int8_t[kBands], 4> bandFlagRing; // history: bands with late energy
    float transientThreshold = 0.0f;      // history: falls by at most 1 % a hop
    uint8_t transientDecision = 0;        // history: the newest frame holds an onset
    uint8_t transientDecisionPrev = 0;    // history: the frame before did
    uint8_t bandTransient[kBands] = {};   // this hop
    int8_t bandStatus[kBands] = {};       // history: hops left of an onset's countdown, 0 none
    int8_t bandRingIndex[kBands] = {}; // history: row of magRing that is frozen; falls as the ring
                                       // turns, so it stays on one analysis frame
    int8_t bandHold[kBands] = {};      // history: synthesis frames left before the band freezes; 4:
                                       // the phase reset is due
    bool nearsOnset =
        false; // this synthesis frame: some band waits for an onset, or restarts at it

    // ---- Band split ----
    int32_t splitState[2][7] = {};  // history: [channel] delays, four times the value
    int32_t interpState[2][6] = {}; // history: [channel] delays, four times the value
    Ring<int32_t[1], 4> hpStepRing; // history: input frames from each segment's one before
    int32_t hpStart = 0;            // history: where the newest of them starts
    int32_t hopsSinceFrame = 0;     // history: input hops taken since the last frame
    int32_t hpPlace = 0;            // this synthesis frame: where the next segment belongs

    // This hop: the bin that is in no band, as it was analysed, then as its last frame left it.
    ComplexInt lastBin[2] = {};

    // ---- With LockedChannels ----
    // This synthesis frame: the row nearest to it, and the first of the two whose middle is nearest to
    // the middle of this frame and the next.
    struct Rows {
        int nearest;
        int ofStep;
    };
    Rows rows = {0, 0};
    bool tookFirst[2] = {}; // history: of two that were as near, of each kind
    struct Approach {
        float lead = 0.0f; // hops of input
        float share = 0.0f;
    };
    Approach approach;          // this synthesis frame
    int alikeHops = kAlikeHops; // history: hops whose channels were the same
    Matches hpMatches = {};     // this synthesis frame

    LevelKeeper levelKeeper; // history, with EvenLevel: level of the low band

    // ---- What kernels walk ----
    HighBandHops highBand; // history
    // This hop: into the analysis, then out of the synthesis; a shorter one leaves the rest as is.
    alignas(kLine) Frame lowBandFrame[kLowHop] = {};
    alignas(kLine) MagnitudeRow interpMag[2] = {}; // history: last interpolated magnitudes
    alignas(kLine) PhasorRow phaseAdvance[2];      // this hop: rotation over one hop, Q14
    alignas(kLine) PhasorRow synthPhasor[2];       // history: running phases, Q14
    // A limited call may have to carry all that it makes.
    alignas(kLine) Frame carryBuf[kSlowestRatio * kPieceFrames];

    static constexpr int kTurnMargin = kLine / int(sizeof(ComplexInt)); // bins
    static_assert(kTurnMargin >= kTurnReach && kTurnMargin + kBins + kTurnReach <= kRowBins);
    /// What one hop or synthesis frame is worked on in. Whoever does it as a whole has this on the
    /// stack, where it stays in the first-level cache, however many engines take turns.
    struct Work {
        alignas(kLine) SpectrumRow spectrum[2]; // analysis, synthesis
        alignas(kLine) Frame hpOut[kMaxHop];    // high band of a synthesis frame
        // With LockedChannels: what this frame's analysis phases are turned by.
        alignas(kLine) SpectrumRow turnSumRow; // turnSum and room on both sides of it
        alignas(kLine) PhasorRow turns;        // Q14
        alignas(kLine) SpectrumRow targetSum;  // while it is approached: what turns are to become

        /// All channels' weighted turns [kBins]; 0 from bin 256 on, and in bands in an onset's
        /// countdown.
        ComplexInt* turnSum() { return turnSumRow + kTurnMargin; }
    };
    Work stageWork; // of the stage that comes next

private:
    /// When so many hops had the same sound left and right, nothing else is heard any more: a frame of
    /// four and three of look-ahead are analysed, and four frames, up to eight hops apart, overlap.
    static constexpr int kAlikeHops = 4 + 3 + 4 * 8;

    void beginHop(const Frame* in, int frames);
    void endHop();
    /// A part of Velora_VSP_LPHP_separate: frames from..to - 1, `from` a multiple of bandFactor.
    void separate(const Frame* in, int from, int to);
    void takeStage(Work& work, int stage, const Frame* in, int frames);
    void giveStage(Work& work, int stage, Frame* out, int frames);
    void keepLastBins(const Work& work);
    void addHops(Work& work);
    void analyse(Work& work);
    void synthesise(Work& work);
    void findOnset(const Work& work);
    int32_t positionInHop() const; // Q15
    const ComplexShort* phasorsToRestart(int channel, PhasorRow& room) const;
    int nearestRow() const; // of the rings, to that position
    void chooseRows();
    void synthesiseBands(Work& work, int channel);
    void advancePhases();
    void lockPhases(Work& work, int channel);
    // With LockedChannels: what follows reads the running phases before they advance.
    void sumTurns(Work& work);
    void turnBands(Work& work, int channel);
    // While input is approached:
    void sumTargets(Work& work);
    void steerTurns(Work& work);
    /// Where between the rows the place lies that is approached: the nearest row, the first of the two
    /// around it, and hops beyond the nearest.
    struct Target {
        int nearest;
        int before;
        double rest;
    };
    Target targetOfFrame() const;
    Phasor targetTurn(const Target& target, int channel, int bin) const;
    int listClearPeaks(int16_t* list, const int32_t* mag) const;
    static double angleToTarget(const Work& work, int bin);
    bool isApproaching() const { return approach.share > 0.0f; }
    bool isThere() const { return approach.share >= 1.0f; }
    // The row whose phases this frame is given: up to a speed of 1.0 the first of step.
    int phaseRow() const { return effectiveSpeed < 1.0f ? rows.ofStep : rows.nearest; }
    const ComplexShort* nextPhasors(int channel, PhasorRow& room) const;
    // Left and right go through one complex transform and differ by a step or two behind it even
    // where they were the same.
    void compareChannels(const Frame* in, int frames);
    void makeChannelsAlike(Frame* out, int frames) const;
    /// Whether some of the input passes the low band by.
    bool hasHighBand() const { return bandFactor > 1; }
    void turnHighBand(int frames);
    void setFades();
    // Hops of `frames` frames:
    int followingSegment(int frames) const { return hpStart + (1 - hopsSinceFrame) * frames; }
    static int lastSegment(int frames) { return (HighBandHops::kHops - 2) * frames; }
    int segmentStart(int frames) const;
    void matchSegments(int frames);
    int bestSegment(int frames) const;
    int alikenessQ14(const Frame* older, const Frame* newer, int frames) const;
    /// Whether fades of the high band keep its level and span a hop, however long it is.
    bool fadesEvenly() const
    {
        return does(Velora_VSP_Sound_EvenLevel) || does(Velora_VSP_Sound_ShortHop);
    }
    void countDownBands();
};

} // namespace vsp
