// A stream: input cut into hops, output as it is wanted, and the questions about both.

#include "stream/stream.h"

#include <algorithm>
#include <cmath>

#include "convert/bridge.h"
#include "engine/filter_delays.h"

namespace vsp {

namespace {

// Positions stay within these bounds, so that sums and doubles do, too.
constexpr std::int64_t kFarthest = std::int64_t(1) << 56;
constexpr std::int64_t kMostFrames = std::int64_t(1) << 40;

// Counts up to here are answered hop by hop, to the frame.
constexpr std::int64_t kMostExact = std::int64_t(1) << 28;

// What a stream has room for if it isn't told, and may outgrow.
constexpr std::int64_t kUsualChanges = 64;

std::int64_t toFrame(double position)
{
    return std::llround(std::clamp(position, -double(kFarthest), double(kFarthest)));
}

std::int64_t withinReach(std::int64_t frame)
{
    return std::clamp(frame, -kFarthest, kFarthest);
}

// The caller's memory is his again at the end of a call, however it ends.
struct Settling {
    PairQueue& queue;
    ~Settling() { queue.settle(); }
};

std::int64_t hopOf(const StreamSettings& settings)
{
    StreamSettings mono = settings;
    mono.channels = 1;
    return EngineBank(mono, nullptr).hopFrames();
}

Rate rateOf(const StreamSettings& settings, const Sound& sound)
{
    const std::int64_t hop = sound.hopFrames();
    const int shift = rateShiftOf(settings.sampleRate);
    const FilterDelays delays = filterDelays(hop, shift);
    return {settings.sampleRate,
            shift,
            hop,
            delays.in,
            delays.out,
            settings.pitchDrops,
            settings.sound != Velora_VSP_Sound_Own,
            settings.fastest,
            sound.lookAheadOfHop(),
            sound.lookAhead(),
            (settings.channels + 1) / 2,
            settings.longestBlock > 0};
}

// Frames of input that wait for what comes after them, or that a voice may still want.
std::int64_t waitingFrames(const StreamSettings& settings, std::int64_t hop)
{
    const double fastest = settings.fastest;
    const auto primed = std::int64_t(std::ceil(double(Schedule::kSpreadHops) * fastest));
    const std::int64_t hops = Voice::kMostLeadHops + Voice::mostLagHops(fastest) + primed + 4;
    return hops * hop + settings.lookAhead;
}

} // namespace

Stream::Stream(const StreamSettings& settings)
    : fixed(settings), sound(fixed, waitingFrames(fixed, hopOf(fixed)) + fixed.longestBlock,
                             std::size_t(fixed.changes > 0 ? fixed.changes : kUsualChanges)),
      schedule(rateOf(fixed, sound)),
      places(std::size_t(fixed.changes > 0 ? fixed.changes : kUsualChanges)),
      before(fixed.channels, fixed.depth, blendFrames()),
      silence(fixed.channels, fixed.depth, blendFrames())
{
    silence.appendSilence(blendFrames());
    begin(0, 1.0, 0);
}

// Over so many frames a stretch of input is blended in, 3 to 4 ms.
std::int64_t Stream::blendFrames() const
{
    return schedule.rate.hop / 4;
}

// ---- Speeds ----

bool Stream::makeRoomForChange()
{
    if (sound.map.makeRoom(schedule.taken - 1))
        return true;
    if (isBounded())
        return false;
    sound.map.grow();
    return true;
}

void Stream::setSpeed(double wanted, std::int64_t withinFrames)
{
    const Voice voice = voiceAt(wanted);
    const std::int64_t output = changeFrame(wanted, withinFrames);
    if (voice.speed == speed() && map().last().output <= double(output))
        return;
    makeRoomForChange(); // if there is none, turnAtOutput makes do
    const std::size_t cut = withinFrames > 0 ? map().end() : sound.map.cut(schedule.joinFrame());
    schedule.replan(std::min(cut, sound.map.turnAtOutput(output, voice.speed)), sound);
    setFrame = output;
    publish();
}

std::int64_t Stream::setSpeedAt(std::int64_t mediaFrame, double wanted)
{
    const Voice voice = voiceAt(wanted);
    const double input = double(places.inputAt(withinReach(mediaFrame)));
    const bool isInTime = schedule.mayTurn(voice, map().outputAt(input));
    const std::int64_t soonest = schedule.changeFrame(voice);
    if (!map().turnsAt(isInTime ? map().outputAt(input) : double(soonest)) && !makeRoomForChange())
        return -1;
    const std::size_t index = isInTime ? sound.map.turnAtMedia(input, voice.speed)
                                       : sound.map.turnFrom(soonest, voice.speed);
    schedule.replan(index, sound);
    publish();
    return std::int64_t(std::ceil(map()[index].output));
}

// From an output frame on, but for a speed that was set.
void Stream::forgetPlans(std::int64_t from)
{
    const std::size_t end = map().end();
    if (const std::size_t cut = sound.map.cut(std::max(from, setFrame + 1)); cut < end)
        schedule.replan(cut, sound);
}

void Stream::clearPlans()
{
    forgetPlans(std::min(schedule.openFrame(), schedule.joinFrame()));
    publish();
}

void Stream::takeRequest()
{
    if (const double wanted = requested.exchange(0.0, std::memory_order_acquire); wanted != 0.0)
        setSpeed(wanted, 0);
}

// ---- Places ----

void Stream::reset()
{
    begin(0, 1.0, 0);
    requested.store(0.0, std::memory_order_relaxed);
    ++seeks;
    publish();
}

// Output begins behind `preRoll` frames of input that stand in the queue already.
void Stream::begin(std::int64_t mediaFrame, double atSpeed, std::int64_t preRoll)
{
    if (preRoll == 0)
        sound.input.restart(0);
    sound.restart();
    sound.map.reset(double(preRoll), atSpeed);
    places.reset(preRoll, withinReach(mediaFrame));
    preRolled = preRoll;
    blendTo = 0;
    fadeInTo = 0;
    setFrame = 0;
    ended = false;
    schedule.start(preRoll, sound);
}

void Stream::seek(std::int64_t mediaFrame, const Source& preRoll, std::int64_t frames)
{
    const double kept = speedAt(schedule.taken);
    const std::int64_t most = (Voice::kMostLeadHops + 1) * schedule.rate.hop;
    const std::int64_t used = std::clamp<std::int64_t>(frames, 0, most);
    sound.input.restart(0);
    if (used > 0) {
        Source last = preRoll;
        last.from += frames - used;
        sound.input.append(last, used);
    }
    begin(mediaFrame, kept, used);
    // Before the beginning there is silence; anywhere else it would be a step.
    if (mediaFrame != used) {
        before.restart(0);
        before.appendSilence(blendFrames());
        blend(0, blendFrames());
        blendIn(0);
        fadeInTo = used > 0 ? 0 : blendFrames();
    }
    ++seeks;
    publish();
}

bool Stream::jump(std::int64_t mediaFrame)
{
    if (ended)
        return true;
    const std::int64_t input = schedule.input;
    if (!isBounded())
        places.reserveOne();
    if (!places.add(input, withinReach(mediaFrame), toFrame(map().mediaAt(double(schedule.taken)))))
        return false;
    const auto end = std::int64_t(std::ceil(map().outputAt(double(input))));
    forgetPlans(std::max(end, schedule.openFrame()) + 1);
    const std::int64_t frames = std::min(blendFrames(), input - sound.input.begin());
    if (frames > 0) {
        before.restart(input);
        before.appendReversed(sound.input, input, frames);
        blend(input, frames);
    }
    publish();
    return true;
}

// The input from frame `from` on is to be blended with what stands in `before`.
void Stream::blend(std::int64_t from, std::int64_t frames)
{
    blendFrom = from;
    blendTo = from + frames;
}

// Does so with the input that came in from frame `from` on.
void Stream::blendIn(std::int64_t from)
{
    const std::int64_t frames = std::min(sound.input.end(), blendTo) - from;
    if (frames > 0)
        sound.input.fadeFrom(before, from, frames, blendFrom, blendTo - blendFrom);
}

// ---- Processing ----

std::int64_t Stream::process(const Source& in, std::int64_t frames, const Destination& out,
                             std::int64_t room)
{
    if (ended)
        return flush(out, room);
    takeRequest();
    expect(in, 0, frames);
    std::int64_t given = give(out, 0, room);
    for (std::int64_t done = 0; done < frames;) {
        const std::int64_t part = roomForInput(std::min(frames - done, schedule.rate.hop));
        if (part == 0)
            break;
        const Settling atEnd{sound.input};
        sound.input.appendLater(Source{in.interleaved, in.planes, in.from + done}, part);
        accept(part);
        expect(in, done + part, frames);
        given += give(out, given, room);
        done += part;
    }
    publish();
    return given;
}

// The level is known from what came in last, so nothing is done while that comes from memory unless
// it is asked for earlier: the hop from `done` of `frames` frames on.
void Stream::expect(const Source& in, std::int64_t done, std::int64_t frames) const
{
    if (fixed.ridesLevel && done < frames)
        sound.input.expect({in.interleaved, in.planes, in.from + done},
                           std::min(frames - done, schedule.rate.hop));
}

std::int64_t Stream::flush(const Destination& out, std::int64_t room)
{
    takeRequest();
    const std::int64_t given = finish(out, room);
    publish();
    return given;
}

std::int64_t Stream::finish(const Destination& out, std::int64_t room)
{
    if (!ended) {
        inputAtEnd = schedule.input;
        ended = true;
    }
    std::int64_t given = give(out, 0, room);
    while (given < room && schedule.taken < total()) {
        const std::int64_t padding = roomForInput(schedule.rate.hop);
        if (padding == 0)
            break;
        sound.input.appendSilence(padding);
        accept(padding);
        given += give(out, given, room);
    }
    return given;
}

std::int64_t Stream::roomForInput(std::int64_t wanted)
{
    if (!isBounded())
        sound.reserveInput(wanted);
    return std::min(wanted, sound.input.room());
}

void Stream::accept(std::int64_t frames)
{
    blendIn(schedule.input);
    schedule.input += frames;
}

// Hands out what can be had, up to `room` frames in all, behind the `given` that stand in `out`.
std::int64_t Stream::give(const Destination& out, std::int64_t given, std::int64_t room)
{
    std::int64_t total = 0;
    for (std::int64_t part = 1; part > 0 && given + total < room; total += part) {
        const Destination to{out.interleaved, out.planes, out.from + given + total};
        part = givePart(to, std::min(room - given - total, schedule.rate.hop));
    }
    schedule.takeAhead(sound);
    sound.input.dropBefore(schedule.oldest(map()));
    return total;
}

std::int64_t Stream::givePart(const Destination& out, std::int64_t most)
{
    if (ended)
        most = std::min(most, total() - schedule.taken);
    if (schedule.isDry()) {
        const std::int64_t frames = std::min(most, schedule.dryFrames());
        if (frames <= 0)
            return 0;
        sound.input.copyTo(out, schedule.dryFrame(), frames);
        schedule.passDry(frames);
        fadeInTo = 0; // the input was faded in
        sound.output().restart(schedule.taken);
        return frames;
    }
    // No more than can be handed out: where a change can still be may not depend on what was asked.
    const std::int64_t frames = schedule.reach(schedule.taken + most, map()) - schedule.taken;
    if (frames <= 0)
        return 0;
    if (schedule.isAlone() && fadeInTo <= schedule.taken)
        sound.offer(out, schedule.taken, frames);
    schedule.proceed(schedule.taken + frames, sound);
    // The engines' overlap-add begins before the first frame that is wanted.
    const std::int64_t fadedIn = std::min(fadeInTo - schedule.taken, frames);
    if (fadedIn > 0)
        sound.output().fadeFrom(silence, schedule.taken, fadedIn, 0, fadeInTo);
    sound.handOut(out, schedule.taken, frames);
    schedule.taken += frames;
    return frames;
}

// ---- Queries ----

// Length of the whole output of a stream that has ended.
std::int64_t Stream::total() const
{
    return toFrame(map().outputAt(double(inputAtEnd)));
}

std::int64_t Stream::maxOutputFrames(std::int64_t frames) const
{
    if (ended)
        return std::max<std::int64_t>(total() - schedule.taken, 0);
    Schedule course = schedule;
    course.input += std::min(frames, kMostExact);
    const Rehearsal silent{map()};
    const std::int64_t hop = schedule.rate.hop;
    for (std::int64_t given = 1; given > 0; course.taken += given) { // as it is handed out
        course.proceed(course.taken + hop, silent);
        given = std::clamp<std::int64_t>(course.ready() - course.taken, 0, hop);
    }
    if (frames <= kMostExact)
        return course.taken - schedule.taken;
    // No voice is more than a few hops ahead of the time map.
    const double input = double(schedule.input) + double(std::min(frames, kMostFrames));
    return toFrame(map().outputAt(input)) - schedule.taken + 16 * schedule.rate.hop;
}

std::int64_t Stream::inputFramesFor(std::int64_t frames) const
{
    if (ended)
        return 0;
    const Rehearsal silent{map()};
    Schedule course = schedule;
    const std::int64_t until = course.taken + std::min(frames, kMostExact);
    course.proceed(until, silent);
    while (course.ready() < until) {
        course.input += course.missingInput(until);
        course.proceed(until, silent);
    }
    return course.input - schedule.input;
}

std::int64_t Stream::mostInputFrames(std::int64_t frames) const
{
    const double steady = std::ceil(double(std::min(frames, kMostFrames)) * fixed.fastest);
    return std::int64_t(steady) + waitingFrames(fixed, schedule.rate.hop);
}

std::int64_t Stream::latencyFrames() const
{
    const std::int64_t end = ended ? inputAtEnd : schedule.input;
    // The last frame of all may sound a place behind the end, to which its length is rounded.
    return std::max<std::int64_t>(end - toFrame(map().mediaAt(double(schedule.taken))), 0);
}

std::int64_t Stream::changeFrame(double wanted, std::int64_t withinFrames) const
{
    return schedule.changeFrame(voiceAt(wanted),
                                std::clamp<std::int64_t>(withinFrames, 0, kMostFrames));
}

std::int64_t Stream::mediaFrameOf(std::int64_t outputFrame) const
{
    return places.mediaAt(toFrame(map().mediaAt(double(withinReach(outputFrame)))));
}

std::int64_t Stream::outputFrameOf(std::int64_t mediaFrame) const
{
    return toFrame(map().outputAt(double(places.inputAt(withinReach(mediaFrame)))));
}

void Stream::publish()
{
    published.write(
        Clock{mediaFrameOf(schedule.taken), schedule.taken, speedAt(schedule.taken), seeks});
}

} // namespace vsp
