// When a stream's sound comes out, and what is done for it at which time. Counts frames and touches
// no sample, so the same code that drives the engines also answers how much input or room the next
// calls take.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "stream/time_map.h"
#include "stream/voice.h"

namespace vsp {

/// The course of a stream: one voice sounds and follows the time map; where the map asks for another
/// one, that is primed with what went in before, and takes over after a short fade. Nothing is made
/// before it is wanted, but for the rest of a hop.
///
/// The calls are told a `Sound`, which does to the samples what is decided here:
///     times()                   the time map
///     take(voice, isNext)       the hop at voice.fed goes through that voice's analysis
///     give(voice, isNext)       the hop of output at voice.end, or none if that is muted
///     convert(voice, isNext)    both in one, for the converter; these three for one pair of
///                               channels, voice.pairsDone
///     copy(voice, n, isNext)    n frames of a dry voice
///     join(voice, output)       the next voice starts in silence; what it gives before output frame
///                               `output` is not wanted
///     fade(output, frames)      from the voice that sounds to the next one, which sounds now
class Schedule {
public:
    static constexpr std::int64_t kForever = std::numeric_limits<std::int64_t>::max() / 4;

    // A voice that joins is primed over this many hops of output before, if it is known so early.
    static constexpr std::int64_t kSpreadHops = 8;

    explicit Schedule(const Rate& fixed) : rate(fixed) {}

    Rate rate;
    std::int64_t input = 0; // frames that came in
    std::int64_t taken = 0; // frames that were handed out

    /// Starts anew: `frames` frames have come in, output frame 0 sounds the next one, and the time
    /// map has one segment.
    template <class Sound>
    void start(std::int64_t frames, Sound&& sound)
    {
        *this = Schedule(rate);
        input = frames;
        now.place(0, double(frames), rate);
        planFrom(sound.times().begin(), 0, sound);
    }

    /// Output frames that can be handed out, counted from the start of the stream.
    std::int64_t ready() const { return join == Join::none ? made() : std::min(made(), held()); }

    // At speed 1.0 input may pass at once: `frames` frames, at most dryFrames(), from dryFrame() on.
    bool isDry() const { return now.isDry() && join == Join::none && now.end == taken; }
    std::int64_t dryFrame() const { return now.fed; }
    std::int64_t dryFrames() const { return input - now.fed; }
    void passDry(std::int64_t frames)
    {
        now.fed += frames;
        now.end += frames;
        taken += frames;
    }

    /// The least input, beyond what there is, that brings output up to frame `until` closer when
    /// `proceed` has done all that it can.
    std::int64_t missingInput(std::int64_t until) const
    {
        const bool isDue = join != Join::none && until > joinOutput;
        const bool isBehind = !isDue && made() < std::min(until, now.end);
        const std::int64_t needed =
            isBehind ? stepFor(now) : missingFor(now, isDue ? joinOutput + fade() : until);
        if (join == Join::none)
            return needed;
        return join == Join::running && (until > joinOutput || held() < until)
                   ? std::min(needed, missingFor(next, faded()))
                   : needed;
    }

    /// The first input frame that may still be wanted.
    std::int64_t oldest(const TimeMap& times) const
    {
        const double media = times.mediaAt(double(taken)) / double(rate.hop);
        const std::int64_t hop = std::int64_t(media) - Voice::mostLeadHops(rate.fastest);
        const std::int64_t first = std::min(now.fed, hop * rate.hop);
        return join == Join::none ? first : std::min(first, next.fed);
    }

    /// Output frame from which `voice` sounds if it is wanted now, `within` frames from now at the
    /// latest where that takes a fade.
    std::int64_t changeFrame(const Voice& voice, std::int64_t within = 0) const
    {
        if (now.turnsInto(voice))
            return std::max(taken, now.turnFrame(rate));
        // A change that is on its way already is no reason to wait longer.
        return std::min(taken + within, joinFrame());
    }

    /// Whether the time map may still change at output frame `output`, to `voice`.
    bool mayTurn(const Voice& voice, double output) const
    {
        const bool behindJoin = join != Join::none && output > double(joinOutput - 1);
        return behindJoin || std::ceil(output) >= double(changeFrame(voice));
    }

    /// The first output frame that doesn't sound by the time map yet.
    std::int64_t openFrame() const { return std::max(taken, now.turnFrame(rate)); }
    /// The output frame from which on the time map is for the next voice to follow.
    std::int64_t joinFrame() const { return join == Join::none ? kForever : joinOutput; }

    /// The time map has changed from its segment `index` on.
    template <class Sound>
    void replan(std::size_t index, Sound&& sound)
    {
        const TimeMap& times = sound.times();
        // What the next voice has given already may follow the map as it was.
        const bool isTooLate =
            join == Join::running &&
            (index >= times.end() || times[index].output < double(next.turnFrame(rate)));
        const std::size_t first = join == Join::none ? index : std::min(index, next.segment);
        if (index <= next.segment || isTooLate)
            join = Join::none;
        now.segment = std::min(now.segment, std::max<std::size_t>(index, 1) - 1);
        if (join == Join::none)
            planFrom(first, taken, sound);
    }

    /// Makes output up to frame `until`, as far as the input reaches.
    template <class Sound>
    void proceed(std::int64_t until, Sound&& sound)
    {
        while (join != Join::none) {
            prime(until, sound);
            const std::int64_t last = joinOutput + fade();
            const bool isDue = until > joinOutput;
            advance(now, isDue ? last : until, sound, false);
            workAhead(std::min(until, joinOutput), sound);
            if (!isDue || now.end < last || next.end < faded())
                return;
            sound.fade(joinOutput, fade());
            now = next;
            tookOver = joinOutput;
            planAhead();
            join = Join::none;
            planFrom(now.segment + 1, joinOutput, sound);
        }
        advance(now, until, sound, false);
        workAhead(until, sound);
    }

private:
    enum class Join { none, awaited, running };

    // To bring a voice's engines to silence takes as long as a few steps.
    static constexpr std::int64_t kStartSteps = 3;

    /// Where the speed is another one from the first frame on, there is nothing to fade from.
    std::int64_t fade() const { return joinOutput == 0 ? 0 : rate.hop / 2; }
    /// Output frame up to which the next voice is made before it takes over: it must be heard then.
    std::int64_t faded() const { return joinOutput + std::max<std::int64_t>(fade(), 1); }

    /// Output that may be handed out with the next voice as far as it is.
    std::int64_t held() const
    {
        if (primedSteps >= primeSteps)
            return joinOutput;
        return primeFrom + (joinOutput - primeFrom) * primedSteps / primeSteps;
    }

    std::int64_t missingFor(const Voice& voice, std::int64_t until) const
    {
        if (voice.end >= until)
            return kForever;
        return voice.isDry() ? voice.fed - input + until - voice.end : stepFor(voice);
    }
    std::int64_t stepFor(const Voice& voice) const
    {
        return voice.fed + voice.inputStep(rate) - input;
    }

    /// Advances the next voice as far as output up to `until` asks for.
    template <class Sound>
    void prime(std::int64_t until, Sound&& sound)
    {
        if (until <= primeFrom && until <= joinOutput)
            return;
        if (join == Join::awaited) {
            sound.join(next, joinOutput);
            join = Join::running;
            primedSteps = kStartSteps;
        }
        if (next.isDry()) {
            if (until > joinOutput)
                advance(next, faded(), sound, true);
            primedSteps = primeSteps;
            return;
        }
        while (next.end < faded() && (until > joinOutput || held() < until) &&
               step(next, sound, true))
            ++primedSteps;
        if (next.end >= faded())
            primedSteps = primeSteps;
    }

    /// One hop of one pair in or out. False if there is no input for it.
    template <class Sound>
    bool step(Voice& voice, Sound&& sound, bool isNext)
    {
        if (voice.wantsInput() && voice.fed + voice.inputStep(rate) > input)
            return false;
        if (voice.path == Path::converter)
            sound.convert(voice, isNext);
        else if (voice.wantsInput())
            sound.take(voice, isNext);
        else {
            if (voice.pairsDone == 0)
                voice.follow(sound.times(), rate);
            sound.give(voice, isNext);
        }
        const std::int64_t before = voice.end;
        if (++voice.pairsDone == rate.pairs)
            voice.move(rate);
        if (!isNext)
            ++aheadSteps;
        if (!isNext && voice.end != before)
            planAhead();
        return true;
    }

    // ---- Work for the hop of output that comes after those that are made ----

    void planAhead()
    {
        aheadSteps = 0;
        aheadTotal = now.stepsToGive() * rate.pairs;
    }

    /// Output that may be handed out with that work as far as it is: no more of the hop before it
    /// than there is done of the work, but all that the voice before could give and the first frame
    /// of this one, which has no way back. There is none for a hop that the next voice makes.
    std::int64_t made() const
    {
        const bool isLast = join != Join::none && now.end >= joinOutput + fade();
        if (!rate.isSmooth || now.isDry() || aheadTotal == 0 || isLast)
            return now.end;
        const std::int64_t share = ((aheadSteps + 1) * rate.hop + aheadTotal - 1) / aheadTotal;
        return std::clamp(now.end - rate.hop + share, tookOver + 1, now.end);
    }

    template <class Sound>
    void advance(Voice& voice, std::int64_t until, Sound&& sound, bool isNext)
    {
        if (!voice.isDry()) {
            while (voice.end < until && step(voice, sound, isNext)) {
            }
            return;
        }
        const std::int64_t frames = std::min(input - voice.fed, until - voice.end);
        if (frames <= 0)
            return;
        sound.copy(voice, frames, isNext);
        voice.fed += frames;
        voice.end += frames;
    }

    template <class Sound>
    void workAhead(std::int64_t until, Sound&& sound)
    {
        while (made() < std::min(until, now.end) && step(now, sound, false)) {
        }
    }

    /// Finds the first change, from segment `index` on, that asks for another voice. Work for it may
    /// begin at output frame `earliest`.
    template <class Sound>
    void planFrom(std::size_t index, std::int64_t earliest, Sound&& sound)
    {
        const TimeMap& times = sound.times();
        while (index < times.end() && now.turnsInto(Voice::at(times[index].speed, rate)))
            ++index;
        if (index < times.end())
            plan(index, earliest, times);
    }

    void plan(std::size_t index, std::int64_t earliest, const TimeMap& times)
    {
        const TimeMap::Segment& s = times[index];
        join = Join::awaited;
        joinOutput = std::int64_t(std::ceil(s.output));
        next = Voice::at(s.speed, rate);
        next.segment = index;
        next.place(joinOutput, s.mediaAt(double(joinOutput)), rate);
        now.segment = std::min(now.segment, std::max<std::size_t>(index, 1) - 1);
        primeFrom = std::max(earliest, joinOutput - kSpreadHops * rate.hop);
        primedSteps = 0;
        primeSteps = next.isDry() ? 0 : kStartSteps;
        if (!next.isDry())
            for (Voice voice = next; voice.end < faded(); primeSteps += rate.pairs)
                voice.step(times, rate);
    }

    Voice now;
    Voice next; // unless join is none
    Join join = Join::none;
    std::int64_t joinOutput = 0;  // the map asks for `next` from this output frame on
    std::int64_t primeFrom = 0;   // output frame at which its priming begins
    std::int64_t primeSteps = 0;  // that this takes
    std::int64_t primedSteps = 0; // of them that are done

    std::int64_t aheadTotal = 0; // steps that the next hop of `now` takes; 0: it has made none yet
    std::int64_t aheadSteps = 0; // of them that are done
    std::int64_t tookOver = 0;   // output frame from which `now` sounds
};

/// A Sound that makes none: runs a copy of a schedule ahead.
struct Rehearsal {
    const TimeMap& map;

    const TimeMap& times() const { return map; }
    void take(const Voice&, bool) const {}
    void give(const Voice&, bool) const {}
    void convert(const Voice&, bool) const {}
    void copy(const Voice&, std::int64_t, bool) const {}
    void join(const Voice&, std::int64_t) const {}
    void fade(std::int64_t, std::int64_t) const {}
};

} // namespace vsp
