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

/// A Sound that makes none: runs a copy of a schedule ahead.
struct Rehearsal {
    const TimeMap& map;

    const TimeMap& times() const { return map; }
    void run(const Voice&, int, bool) const {}
    void copy(const Voice&, std::int64_t, bool) const {}
    void join(std::int64_t, const Voice&, const Voice&) const {}
    void fade(std::int64_t, std::int64_t) const {}
};

/// The course of a stream: one voice sounds and follows the time map; where the map asks for another
/// one, that is primed with what went in before, and takes over after a short fade. Nothing is made
/// before it is wanted, but for the rest of a hop.
///
/// The calls are told a `Sound`, which does to the samples what is decided here:
///     times()                   the time map
///     run(voice, n, isNext)     n stages of the voice's next step, from voice.done on
///     copy(voice, n, isNext)    n frames of a dry voice
///     join(output, now, next)   what the next voice gives before output frame `output` is not wanted
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
    std::int64_t ready() const
    {
        return join == Join::none ? made() : std::min(servedBy(made()), held());
    }

    /// Whether the voice that sounds goes on alone.
    bool isAlone() const { return join == Join::none; }

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
        const std::int64_t target = targetOfNow(until);
        const std::int64_t needed =
            made() < std::min(target, now.end) ? stepFor(now) : missingFor(now, target);
        return wantsPriming(until) ? std::min(needed, missingForNext()) : needed;
    }

    /// The first input frame that may still be wanted.
    std::int64_t oldest(const TimeMap& times) const
    {
        const double media = times.mediaAt(double(taken)) / double(rate.hop);
        const std::int64_t hop = std::int64_t(media) - Voice::kMostLeadHops;
        const std::int64_t first = std::min(now.fed, hop * rate.hop);
        return join == Join::none ? first : std::min(first, next.fed);
    }

    /// Output frame from which `voice` sounds if it is wanted now, or where that takes a fade,
    /// `within` frames from now. What is on its way comes first if it comes until then, unless
    /// `within` is 0.
    std::int64_t changeFrame(const Voice& voice, std::int64_t within = 0) const
    {
        const std::int64_t latest = taken + within;
        if (within > 0 && joinFrame() <= latest)
            return std::max(latest, next.turnsInto(voice) ? next.turnFrame(rate) : joinOutput + 1);
        if (now.turnsInto(voice))
            return std::max(taken, now.turnFrame(rate));
        return std::min(latest, joinFrame());
    }

    /// Whether the time map may still change at output frame `output`, to `voice`.
    bool mayTurn(const Voice& voice, double output) const
    {
        if (output < double(taken)) // what the next frame sounds is known already
            return false;
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
            (index >= times.end() || (times[index].output < double(next.turnFrame(rate)) &&
                                      next.turnsInto(Voice::at(times[index].speed, rate))));
        const std::size_t first = join == Join::none ? index : std::min(index, next.firstSegment);
        if (index <= next.segment || isTooLate)
            join = Join::none;
        now.segment = std::min(now.segment, std::max<std::size_t>(index, 1) - 1);
        if (join == Join::none)
            planFrom(first, taken, sound);
    }

    /// The output frame up to which the input brings output, `until` at most.
    std::int64_t reach(std::int64_t until, const TimeMap& times) const
    {
        const std::int64_t known = ready();
        if (join == Join::none && (known >= until || now.inputWanted(rate) > input))
            return std::min(until, known);
        if (join == Join::none && !now.isDry())
            return reachOfNow(until, times);
        Schedule course = *this;
        course.proceed(until, Rehearsal{times});
        return std::min(until, course.ready());
    }

    /// Makes output up to frame `until`, as far as the input reaches. Where it doesn't reach so far,
    /// one voice may get further than the other.
    template <class Sound>
    void proceed(std::int64_t until, Sound&& sound)
    {
        while (join != Join::none) {
            prime(until, sound);
            advance(now, targetOfNow(until), sound, false);
            if (until <= joinOutput || now.end < joinOutput + fade() || !isPrimed())
                return;
            sound.fade(joinOutput, fade());
            now = next;
            join = Join::none;
            // Its first frame has no way back.
            planFrom(now.segment + 1, joinOutput + 1, sound);
        }
        advance(now, until, sound, false);
    }

    /// Takes in what the hop of output that comes next is made of, as far as the input reaches, while
    /// that input is in the cache. No frame comes earlier or later for it. Where work is spread, that
    /// is done by itself.
    template <class Sound>
    void takeAhead(Sound&& sound)
    {
        if (rate.isSmooth || join != Join::none || now.isDry())
            return;
        while (now.nextStep() == Voice::Step::take && step(now, kForever, sound, false) > 0) {
        }
    }

private:
    enum class Join { none, awaited, running };

    /// Where the speed is another one from the first frame on, there is nothing to fade from.
    std::int64_t fade() const { return joinOutput == 0 ? 0 : rate.hop / 2; }
    /// Output frame up to which the next voice is made before it takes over: it must be heard then.
    std::int64_t faded() const { return joinOutput + std::max<std::int64_t>(fade(), 1); }

    /// Output that may be handed out with the next voice as far as it is.
    std::int64_t held() const
    {
        if (next.isDry() || isPrimed())
            return joinOutput;
        const std::int64_t frames = joinOutput - primeFrom;
        return primeFrom + std::min(frames, frames * primed / primeStages);
    }
    /// Stages of priming after which that is at least `until`, unless it is done earlier.
    std::int64_t stagesToHold(std::int64_t until) const
    {
        if (until > joinOutput)
            return kForever;
        const std::int64_t frames = joinOutput - primeFrom;
        return frames == 0 ? 0 : ((until - primeFrom) * primeStages + frames - 1) / frames;
    }
    /// Whether the next voice has given what the fade takes and can go on smoothly.
    bool isPrimed() const { return next.end >= faded() && made(next) > joinOutput; }
    bool wantsPriming(std::int64_t until) const
    {
        return join == Join::running && !isPrimed() && primed < stagesToHold(until);
    }

    std::int64_t missingForNext() const
    {
        return next.isDry() ? missingFor(next, faded()) : stepFor(next);
    }
    std::int64_t missingFor(const Voice& voice, std::int64_t until) const
    {
        if (voice.end >= until)
            return kForever;
        return voice.isDry() ? voice.fed - input + until - voice.end : stepFor(voice);
    }
    std::int64_t stepFor(const Voice& voice) const { return voice.inputWanted(rate) - input; }

    /// Output up to which the voice that sounds is to be made for output up to `until`: to the end of
    /// the fade once the next voice is there, too; where work is spread, little by little before.
    std::int64_t targetOfNow(std::int64_t until) const
    {
        if (join == Join::none)
            return until;
        if (!rate.isSmooth)
            return until <= joinOutput ? until : joinOutput + (isPrimed() ? fade() : 0);
        if (until <= primeFrom)
            return until;
        if (until >= joinOutput)
            return joinOutput + fade();
        const std::int64_t frames = joinOutput - primeFrom;
        const std::int64_t share = (until - primeFrom) * (frames + fade());
        return primeFrom + (share + frames - 1) / frames;
    }
    /// The other way round: the latest output for which it is enough that `end` frames are made.
    std::int64_t servedBy(std::int64_t end) const
    {
        if (!rate.isSmooth || end <= primeFrom)
            return end;
        if (end >= joinOutput + fade())
            return joinOutput;
        const std::int64_t frames = joinOutput - primeFrom;
        return primeFrom + (end - primeFrom) * frames / (frames + fade());
    }

    /// Advances the next voice as far as output up to `until` asks for.
    template <class Sound>
    void prime(std::int64_t until, Sound&& sound)
    {
        if (until <= primeFrom && until <= joinOutput)
            return;
        if (join == Join::awaited) {
            sound.join(joinOutput, now, next);
            join = Join::running;
        }
        if (next.isDry()) {
            if (until > joinOutput)
                advance(next, faded(), sound, true);
            return;
        }
        while (wantsPriming(until)) {
            const std::int64_t done = step(next, stagesToPrime(until), sound, true);
            if (done == 0)
                return;
            primed += done;
        }
    }
    std::int64_t stagesToPrime(std::int64_t until) const
    {
        const std::int64_t left = stagesToHold(until) - primed;
        return next.end < faded() ? left
                                  : std::min(left, stagesToMake(next, joinOutput + 1) - next.ahead);
    }

    /// Up to `most` stages, but at least one, of the voice's next step. Returns how many: 0 if there
    /// is no input for it.
    template <class Sound>
    std::int64_t step(Voice& voice, std::int64_t most, Sound&& sound, bool isNext)
    {
        if (voice.inputWanted(rate) > input)
            return 0;
        if (voice.nextStep() == Voice::Step::give && voice.done == 0) {
            voice.follow(sound.times(), rate);
            if (!isNext && join != Join::none && next.isDry())
                voice.approachInput(joinOutput, next.fed - (next.end - joinOutput), rate);
        }
        const int left = voice.stages(rate) - voice.done;
        const int count = int(std::clamp<std::int64_t>(most, 1, left));
        sound.run(voice, count, isNext);
        voice.done += count;
        voice.ahead += count;
        if (count == left)
            voice.move(rate);
        return count;
    }

    /// Output of a voice that may be handed out with the work for the hop that comes after those that
    /// are made as far as it is: no more of the last one than there is done of the work.
    std::int64_t made(const Voice& voice) const
    {
        if (!rate.isSmooth || voice.isDry())
            return voice.end;
        const std::int64_t total = voice.stagesToGive(rate);
        const std::int64_t share = ((voice.ahead + 1) * rate.hop + total - 1) / total;
        return std::min(voice.end, voice.end - rate.hop + share);
    }
    /// Of the voice that sounds. There is no work for a hop that the next voice makes.
    std::int64_t made() const
    {
        const bool isLast = join != Join::none && now.end >= joinOutput + fade();
        return isLast ? now.end : made(now);
    }
    /// Up to `until` at most, what can be handed out if the voice that sounds, which isn't dry, goes on
    /// as far as the input reaches. Of its steps whole ones count: one that can begin can be done.
    std::int64_t reachOfNow(std::int64_t until, const TimeMap& times) const
    {
        // With what the hop that comes next takes in, it can be given; with nothing else, all work for
        // it can be done up to that.
        const std::int64_t withinHop = rate.isSmooth ? now.end : now.end + rate.hop;
        if (until <= withinHop && now.givesNext(input, rate))
            return until;
        Voice course = now;
        while (made(course) < until && course.inputWanted(rate) <= input) {
            if (course.nextStep() == Voice::Step::give && course.done == 0)
                course.follow(times, rate);
            course.ahead += course.stages(rate) - course.done;
            course.move(rate);
        }
        return std::min(until, made(course));
    }

    /// Stages of that work after which that is at least `until`, which is at most voice.end.
    std::int64_t stagesToMake(const Voice& voice, std::int64_t until) const
    {
        return (until - (voice.end - rate.hop) - 1) * voice.stagesToGive(rate) / rate.hop;
    }

    template <class Sound>
    void advance(Voice& voice, std::int64_t until, Sound&& sound, bool isNext)
    {
        if (!voice.isDry()) {
            while (voice.end < until)
                if (step(voice, kForever, sound, isNext) == 0)
                    return;
            if (!isNext)
                workAhead(until, sound);
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
        while (made() < until)
            if (step(now, stagesToMake(now, until) - now.ahead, sound, false) == 0)
                return;
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
        next.firstSegment = next.segment = index;
        next.place(joinOutput, s.mediaAt(double(joinOutput)), rate);
        now.segment = std::min(now.segment, std::max<std::size_t>(index, 1) - 1);
        primeFrom = std::min(joinOutput, std::max(earliest, joinOutput - kSpreadHops * rate.hop));
        primed = 0;
        primeStages = next.isDry() ? 0 : allStagesToPrime(times);
    }

    std::int64_t allStagesToPrime(const TimeMap& times) const
    {
        std::int64_t stages = 0;
        Voice voice = next;
        while (voice.end < faded()) {
            if (voice.nextStep() == Voice::Step::give)
                voice.follow(times, rate);
            stages += voice.stages(rate);
            voice.move(rate);
        }
        return made(voice) > joinOutput ? stages : stages + stagesToMake(voice, joinOutput + 1);
    }

    Voice now;
    Voice next; // unless join is none
    Join join = Join::none;
    std::int64_t joinOutput = 0;  // the map asks for `next` from this output frame on
    std::int64_t primeFrom = 0;   // output frame at which its priming begins
    std::int64_t primeStages = 0; // that this takes
    std::int64_t primed = 0;      // of them that are done
};

} // namespace vsp
