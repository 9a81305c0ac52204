// When a Stream's sound comes out: which media time every output frame carries, and what each hop
// of input brings. Counts frames and touches no sample, so the same code that drives the engines
// also answers how much input or room the next calls take.
#ifndef VELORA_DETAIL_STREAM_TIMING_HPP
#define VELORA_DETAIL_STREAM_TIMING_HPP

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <velora/src384.h>

namespace velora {

/// What the speeds 0.5, 0.25 and 0.125 do to the pitch. Every other speed keeps it.
enum class Pitch {
    keep, ///< as at every other speed
    drop  ///< as on a slowed tape: the sample-rate converter instead of the vocoder
};

namespace detail {

/// Media time over output time: a polyline that grows at its end as speeds change.
///
/// Positions are doubles: finer than 1/1000 frame up to 2^42 frames, 265 days at 192 kHz. A
/// position is computed from the last change of speed, not summed up hop by hop, so nothing drifts.
class TimeMap {
public:
    /// One speed from time 0, with room for the first few changes.
    TimeMap() { reset(); }

    void reset()
    {
        segments.assign(1, Segment{0, 0.0, 1.0});
        reserveOneChange();
    }

    /// Makes room for what one more setSpeed may add, so that processing need not.
    void reserveOneChange()
    {
        constexpr std::size_t kMost = 4;
        if (segments.capacity() - segments.size() < kMost)
            segments.reserve(2 * segments.size() + kMost);
    }

    /// From `output` on, at media time `media`, `speed` holds; what was planned after it doesn't.
    void turn(std::int64_t output, double media, double speed)
    {
        while (!segments.empty() && segments.back().output >= output)
            segments.pop_back();
        segments.push_back(Segment{output, media, speed});
    }

    double mediaAt(std::int64_t output) const
    {
        const Segment& s = find([=](const Segment& segment) { return segment.output <= output; });
        return s.media + double(output - s.output) * s.speed;
    }

    /// Where a jump of less than a frame (back to speed 1.0) skips `media`, the frame after it.
    double outputAt(double media) const
    {
        const Segment& s = find([=](const Segment& segment) { return segment.media <= media; });
        const double output = double(s.output) + (media - s.media) / s.speed;
        const bool last = &s == &segments.back();
        return last ? output : std::min(output, double((&s + 1)->output));
    }

private:
    struct Segment {
        std::int64_t output;
        double media;
        double speed;
    };

    /// The last segment for which `reached` holds, else the first.
    template <class Reached>
    const Segment& find(Reached reached) const
    {
        const auto next = std::partition_point(segments.begin() + 1, segments.end(), reached);
        return *(next - 1);
    }

    std::vector<Segment> segments; // by output and by media time
};

/// What the stream's rate fixes.
struct Rate {
    int sampleRate;   // caller's, Hz
    int shift;        // log2 of the caller's rate over the engine's working rate
    std::int64_t hop; // caller frames that the engine takes at a time
    Pitch pitch;
};

/// How the sound gets from input to output.
enum class Path { dry, vocoder, converter };

/// One way through: untouched, or engines at one speed. Knows what each hop of input yields.
struct Voice {
    Path path = Path::dry;
    double speed = 1.0;       // as asked for
    float engineSpeed = 1.0f; // as the engine is told
    float clock = 1.0f;       // the engine's own: synthesis position in hops, single precision
    std::int64_t fed = 0;     // media frame that it takes next
    std::int64_t end = 0;     // output frame that it gives next

    static Voice at(double speed, Pitch pitch)
    {
        Voice voice;
        voice.speed = speed;
        voice.engineSpeed = float(speed);
        const bool pitchDrops =
            voice.engineSpeed == 0.5f || voice.engineSpeed == 0.25f || voice.engineSpeed == 0.125f;
        if (pitchDrops && pitch == Pitch::drop)
            voice.path = Path::converter;
        else if (voice.engineSpeed != 1.0f)
            voice.path = Path::vocoder;
        if (voice.path != Path::vocoder)
            voice.speed = double(voice.engineSpeed);
        else if (pitchDrops)
            voice.engineSpeed = std::nextafter(voice.engineSpeed, 1.0f);
        return voice;
    }

    bool isDry() const { return path == Path::dry; }

    /// The filters that come with slow speeds start anew whenever they are set: that would click.
    bool glidesTo(const Voice& other) const
    {
        return path == Path::vocoder && other.path == Path::vocoder && !isFiltered() &&
               !other.isFiltered();
    }
    bool isFiltered() const { return engineSpeed <= 0.5f; }

    /// Places the voice so that output frame `output` sounds media time `media`, and starts it far
    /// enough before that for its pipeline to have filled.
    void place(std::int64_t output, double media, const Rate& rate)
    {
        if (isDry()) {
            fed = std::int64_t(std::ceil(media));
            end = output;
            return;
        }
        const std::int64_t mediaHop = std::int64_t(std::floor(media / double(rate.hop)));
        fed = std::max<std::int64_t>(0, mediaHop - leadHops()) * rate.hop;
        end = output - std::llround((media - double(fed)) / speed + delay(rate));
    }

    /// Takes the hop at `fed`; returns the output frames that it yields.
    std::int64_t takeHop(const Rate& rate)
    {
        std::int64_t frames = 0;
        if (path == Path::converter)
            frames = std::int64_t(double(rate.hop) / speed);
        else
            for (clock -= 1.0f; clock < 1.0f; clock += engineSpeed)
                frames += rate.hop;
        fed += rate.hop;
        end += frames;
        return frames;
    }

    /// Output frame from which a vocoder plays at a speed that it is given now: the middle of its
    /// next synthesis frame.
    std::int64_t glideStart(const Rate& rate) const { return end + kSynthesisDelayHops * rate.hop; }

    /// Hops before the first wanted one after which level and phases have settled.
    std::int64_t leadHops() const { return path == Path::vocoder ? 6 + std::int64_t(speed) : 2; }

    /// Most hops of input that must have come in beyond a media time for it to come out.
    std::int64_t lagHops() const { return isDry() ? 0 : 6 + std::int64_t(3.0 * speed); }

private:
    // Synthesis frame m is centred on the input four hops before the clock's position, and its
    // centre comes out two hops after its first frame.
    static constexpr int kAnalysisDelayHops = 4;
    static constexpr int kSynthesisDelayHops = 2;

    /// From a media frame's way in to its way out, in output frames.
    double delay(const Rate& rate) const
    {
        const double frames =
            path == Path::converter
                ? double(Velora_SRC384_DelayFrames << rate.shift) / speed
                : (kAnalysisDelayHops / speed + kSynthesisDelayHops) * double(rate.hop);
        // Two second-order Butterworth sections at 2 kHz, below which they delay evenly.
        const double pi = 3.141592653589793;
        const double filters = std::sqrt(2.0) / std::tan(pi * 2000.0 / rate.sampleRate);
        return frames + (isFiltered() ? filters * double(1 << rate.shift) : 0.0);
    }
};

/// The course of a stream: one voice sounds; at a change another one joins it at a certain output
/// frame, is primed with what went in before, and takes over after a short fade.
///
/// The calls are told a `Sound`, which does to the samples what is decided here:
///     feed(role, voice, frames)      one hop from voice.fed through that voice's engines, `frames`
///                                    frames at output frame voice.end
///     copy(role, voice, frames)      the same for a dry voice
///     mediaAt(output)                from the time map
///     turn(output, media, speed)     into the time map
///     glide(engineSpeed)             the sounding engines change speed
///     join(voice, output)            drops output from there on; the primed engines start to run
///     fade(output, frames)           from the tail to the output; the joined engines now sound
///     cancel(output)                 drops output from there on, and the joined engines
struct Schedule {
    enum class Role { sounding, tail, joining };

    Rate rate;
    std::int64_t input = 0; // frames that came in
    std::int64_t taken = 0; // frames that were handed out
    Voice now;
    Voice next; // while joining
    bool joining = false;
    std::int64_t joinOutput = 0; // where `next` takes over ...
    double joinMedia = 0.0;      // ... at this media time
    std::int64_t fade = 0;       // frames of the fade
    bool tailGiven = false;      // by `now`, in one hop: it is longer than the fade
    bool pending = false;
    Voice wanted; // while pending

    explicit Schedule(const Rate& r) : rate(r) {}

    const Voice& newest() const { return joining ? next : now; }
    /// Output frames that can be handed out, counted from the start of the stream.
    std::int64_t ready() const { return joining ? joinOutput : now.end; }
    std::int64_t untilBoundary() const { return rate.hop - input % rate.hop; }
    bool passesAtOnce() const { return now.isDry() && !joining; }

    /// Output frame from which `voice` sounds if it is wanted now, at a hop boundary.
    std::int64_t changeFrame(const Voice& voice) const
    {
        if (joining)
            return joinOutput;
        return now.glidesTo(voice) ? now.glideStart(rate) : now.end;
    }

    void want(const Voice& voice)
    {
        wanted = voice;
        pending = true;
    }

    /// A change that was asked for at a hop boundary need not wait for the next one.
    template <class Sound>
    void settle(Sound&& sound)
    {
        if (pending && input % rate.hop == 0)
            change(sound);
    }

    /// `frames` more have come in, up to the next hop boundary at most.
    template <class Sound>
    void accept(std::int64_t frames, Sound&& sound)
    {
        input += frames;
        if (passesAtOnce())
            advance(now, Role::sounding, sound);
        if (input % rate.hop != 0)
            return;
        if (joining) {
            if (!tailGiven)
                advance(now, Role::tail, sound);
            advance(next, Role::joining, sound);
            takeOver(sound);
        } else {
            advance(now, Role::sounding, sound);
        }
        settle(sound);
    }

private:
    template <class Sound>
    void advance(Voice& voice, Role role, Sound&& sound)
    {
        const std::int64_t before = voice.end;
        if (voice.isDry()) {
            const std::int64_t frames = std::max<std::int64_t>(0, input - voice.fed);
            sound.copy(role, voice, frames);
            voice.fed += frames;
            voice.end += frames;
        }
        while (!voice.isDry() && voice.fed + rate.hop <= input) {
            const Voice start = voice;
            const std::int64_t frames = voice.takeHop(rate);
            sound.feed(role, start, frames);
        }
        if (role == Role::tail)
            tailGiven = voice.end > before;
    }

    template <class Sound>
    void change(Sound&& sound)
    {
        pending = false;
        if (wanted.speed == newest().speed)
            return;
        if (!joining && now.glidesTo(wanted)) {
            now.speed = wanted.speed;
            now.engineSpeed = wanted.engineSpeed;
            sound.glide(now.engineSpeed);
            const std::int64_t output = now.glideStart(rate);
            sound.turn(output, sound.mediaAt(output), now.speed);
        } else if (joining && now.isDry() && wanted.isDry()) {
            joining = false;
            sound.cancel(joinOutput);
            sound.turn(joinOutput, joinMedia, 1.0);
            now.fed = std::int64_t(joinMedia);
            now.end = joinOutput;
            advance(now, Role::sounding, sound);
        } else {
            join(sound);
        }
    }

    template <class Sound>
    void join(Sound&& sound)
    {
        if (!joining) {
            joining = true;
            joinOutput = now.end;
            joinMedia = sound.mediaAt(now.end);
            fade = joinOutput == 0 ? 0 : rate.hop / 2;
            tailGiven = fade == 0;
        }
        next = wanted;
        next.place(joinOutput, joinMedia, rate);
        sound.join(next, joinOutput);
        if (next.isDry())
            joinMedia = double(next.fed);
        sound.turn(joinOutput, joinMedia, next.speed);
        advance(next, Role::joining, sound);
        takeOver(sound);
    }

    template <class Sound>
    void takeOver(Sound&& sound)
    {
        if (!tailGiven || next.end < joinOutput + fade)
            return;
        joining = false;
        now = next;
        sound.fade(joinOutput, fade);
    }
};

/// A Sound that makes none: runs a copy of a schedule ahead.
struct Rehearsal {
    const TimeMap& times;

    double mediaAt(std::int64_t output) const { return times.mediaAt(output); }
    void feed(Schedule::Role, const Voice&, std::int64_t) const {}
    void copy(Schedule::Role, const Voice&, std::int64_t) const {}
    void turn(std::int64_t, double, double) const {}
    void glide(float) const {}
    void join(const Voice&, std::int64_t) const {}
    void fade(std::int64_t, std::int64_t) const {}
    void cancel(std::int64_t) const {}
};

} // namespace detail
} // namespace velora

#endif
