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

#include <velora/detail/floating_point.hpp>
#include <velora/src384.h>

namespace velora {

/// What the speeds 0.5, 0.25 and 0.125 do to the pitch. Every other speed keeps it.
enum class Pitch {
    keep, ///< as at every other speed
    drop  ///< as on a slowed tape: the sample-rate converter instead of the vocoder
};

namespace detail {

/// Media time over output time: a polyline, one segment for each speed, what is planned included.
///
/// Positions are doubles: finer than 1/1000 frame up to 2^42 frames, 265 days at 192 kHz. A
/// position is computed from the last change of speed, not summed up hop by hop, so nothing drifts.
class TimeMap {
public:
    struct Segment {
        double output; // from this output frame on, which sounds ...
        double media;  // ... this media frame ...
        double speed;  // ... media frames pass for each output frame

        double mediaAt(double at) const { return media + (at - output) * speed; }
    };

    /// One speed from time 0, with room for the first few changes.
    TimeMap() { reset(); }

    void reset()
    {
        segments.assign(1, Segment{0.0, 0.0, 1.0});
        reserveOne();
    }

    /// Makes room for one more change.
    void reserveOne()
    {
        if (segments.size() == segments.capacity())
            segments.reserve(2 * segments.size() + 4);
    }

    /// Forgets the changes from output frame `output` on.
    void cut(std::int64_t output)
    {
        while (segments.size() > 1 && segments.back().output > double(output - 1))
            segments.pop_back();
    }

    /// From `output` on `speed` holds, and none of the changes that were planned from there on.
    void turnAtOutput(std::int64_t output, double speed)
    {
        cut(output);
        push(double(output), segments.back().mediaAt(double(output)), speed);
    }

    /// The same from a media frame on.
    void turnAtMedia(double media, double speed)
    {
        const double output = outputAt(media);
        while (segments.size() > 1 && segments.back().media >= media)
            segments.pop_back();
        push(output, media, speed);
    }

    double mediaAt(double output) const
    {
        return find([=](const Segment& segment) { return segment.output <= output; })
            .mediaAt(output);
    }

    double outputAt(double media) const
    {
        const Segment& s = find([=](const Segment& segment) { return segment.media <= media; });
        return s.output + (media - s.media) / s.speed;
    }

    std::size_t size() const { return segments.size(); }
    const Segment& operator[](std::size_t n) const { return segments[n]; }
    const Segment& last() const { return segments.back(); }

private:
    void push(double output, double media, double speed)
    {
        if (output == 0.0)
            segments.clear();
        segments.push_back(Segment{output, media, speed});
    }

    /// The last segment for which `reached` holds, else the first.
    template <class Reached>
    const Segment& find(Reached reached) const
    {
        const auto next = std::partition_point(segments.begin() + 1, segments.end(), reached);
        return *(next - 1);
    }

    std::vector<Segment> segments; // by output and by media time; never empty
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

/// One way through: untouched, or engines at the speeds of the time map.
/// Knows what each hop of input yields.
struct Voice {
    Path path = Path::dry;
    double speed = 1.0;       // as asked for
    float engineSpeed = 1.0f; // as the engine is told
    float clock = 1.0f;       // the engine's own: synthesis position in hops, single precision
    std::int64_t fed = 0;     // media frame that it takes next
    std::int64_t end = 0;     // output frame that it gives next
    std::size_t segment = 0;  // of the time map, which it follows

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
        else
            voice.engineSpeed = vocoderSpeed(voice.engineSpeed);
        return voice;
    }

    bool isDry() const { return path == Path::dry; }

    /// Whether it can play at the other's speed without a fade. The low-pass that comes with slow
    /// speeds sounds too different.
    bool turnsInto(const Voice& other) const
    {
        if (path != other.path)
            return false;
        return path == Path::vocoder ? isFiltered() == other.isFiltered() : speed == other.speed;
    }

    /// Places the voice so that output frame `output` sounds media time `media`, and starts it far
    /// enough before that for its pipeline to have filled.
    void place(std::int64_t output, double media, const Rate& rate)
    {
        if (isDry()) {
            fed = std::llround(media);
            end = output;
            return;
        }
        const std::int64_t mediaHop = std::int64_t(std::floor(media / double(rate.hop)));
        fed = std::max<std::int64_t>(0, mediaHop - leadHops()) * rate.hop;
        end = output - std::llround((media - double(fed)) / speed + delay(rate));
    }

    /// Chooses the engine's speed for the next hop so that what it yields keeps to the time map.
    void follow(const TimeMap& times, const Rate& rate)
    {
        if (path != Path::vocoder)
            return;
        const double here = double(fed) / double(rate.hop);
        const double position = here + double(clock) - 1.0; // of the next synthesis frame, in hops
        if (position >= here + 1.0)
            return; // this hop yields none
        segment = segmentAt(times, end, rate);
        int frames = 1;
        while (frames < kMostHopsPerHop &&
               positionAt(times, end + frames * rate.hop, rate) < here + 1.0)
            ++frames;
        const double aim = positionAt(times, end + frames * rate.hop, rate);
        speed = times[segment].speed;
        const double drift = aim - (position + frames * speed); // hops of media
        engineSpeed = std::abs(drift) < kDriftHops * speed ? vocoderSpeed(float(speed))
                                                           : nearSpeed((aim - position) / frames);
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

    /// Output frame from which it can play at another speed:
    /// the middle of its next synthesis frame.
    std::int64_t turnFrame(const Rate& rate) const
    {
        return path == Path::vocoder ? std::int64_t(std::ceil(centre(end, rate))) : end;
    }

    /// Hops before the first wanted one after which level and phases have settled.
    std::int64_t leadHops() const { return path == Path::vocoder ? 6 + std::int64_t(speed) : 2; }

    /// Most hops of input that must have come in beyond a media time for it to come out.
    std::int64_t lagHops() const { return isDry() ? 0 : 6 + std::int64_t(3.0 * speed); }

    static constexpr int kMostHopsPerHop = 8; // at the slowest speed

private:
    // Synthesis frame m is centred on the input four hops before the clock's position, and its
    // centre comes out two hops after its first frame.
    static constexpr int kAnalysisDelayHops = 4;
    static constexpr int kSynthesisDelayHops = 2;
    // Output hops that the sound may be away from the time map: far more than rounding makes.
    static constexpr double kDriftHops = 1.0 / 64.0;

    bool isFiltered() const { return engineSpeed <= 0.5f; }

    /// The vocoder's speed closest to one that the engine takes for something else.
    static float vocoderSpeed(float speed)
    {
        if (speed == 0.5f || speed == 0.25f || speed == 0.125f)
            return std::nextafter(speed, 1.0f);
        return speed == 1.0f ? std::nextafter(speed, 2.0f) : speed;
    }

    /// The closest speed that sounds through the same filters.
    float nearSpeed(double wanted) const
    {
        const float slowest = isFiltered() ? 0.125f : 0.5f;
        const float fastest = isFiltered() ? std::nextafter(0.5f, 0.0f) : 8.0f;
        return vocoderSpeed(std::min(std::max(float(wanted), slowest), fastest));
    }

    /// Output frame at which the synthesis frame that is first heard at `output` has its centre.
    double centre(std::int64_t output, const Rate& rate) const
    {
        return double(output + kSynthesisDelayHops * rate.hop) + filterDelay(rate);
    }

    /// Segment of the time map that the synthesis frame at `output` is to follow: the voice goes on
    /// in its last one where another voice takes over, and starts in its first one.
    std::size_t segmentAt(const TimeMap& times, std::int64_t output, const Rate& rate) const
    {
        const double sounds = centre(output, rate);
        std::size_t n = segment;
        while (n + 1 < times.size() && times[n + 1].output <= sounds &&
               turnsInto(Voice::at(times[n + 1].speed, rate.pitch)))
            ++n;
        return n;
    }

    /// Clock position, in hops from media frame 0, that the time map gives the
    /// synthesis frame which is first heard at `output`.
    double positionAt(const TimeMap& times, std::int64_t output, const Rate& rate) const
    {
        const TimeMap::Segment& s = times[segmentAt(times, output, rate)];
        return s.mediaAt(centre(output, rate)) / double(rate.hop) + kAnalysisDelayHops;
    }

    /// From a media frame's way in to its way out, in output frames.
    double delay(const Rate& rate) const
    {
        const double frames =
            path == Path::converter
                ? double(Velora_SRC384_DelayFrames << rate.shift) / speed
                : (kAnalysisDelayHops / speed + kSynthesisDelayHops) * double(rate.hop);
        return frames + filterDelay(rate);
    }

    /// tan(x) for x of 0 to pi / 4, as a continued fraction: libraries differ in the last bit of
    /// std::tan, these operations don't.
    static double tangent(double x)
    {
        double fraction = 17.0;
        for (double odd = 15.0; odd >= 3.0; odd -= 2.0)
            fraction = odd - x * x / fraction;
        return x + x * x * x / (fraction - x * x);
    }

    double filterDelay(const Rate& rate) const
    {
        if (!isFiltered())
            return 0.0;
        // Two second-order Butterworth sections at 2 kHz, below which they delay evenly.
        const double pi = 3.141592653589793;
        return std::sqrt(2.0) / tangent(pi * 2000.0 / rate.sampleRate) * double(1 << rate.shift);
    }
};

/// The course of a stream: one voice sounds and follows the time map; where
/// the map asks for another one, that joins it, is primed with what went in
/// before, and takes over after a short fade.
///
/// The calls are told a `Sound`, which does to the samples what is decided here:
///     times()                        the time map
///     feed(voice, frames, joins)     one hop from voice.fed through that voice's engines at its
///                                    speed: `frames` frames at output frame voice.end
///     copy(voice, frames)            the same for a dry voice
///     split(output)                  what lies from there on goes to the tail
///     join(voice)                    engines start in silence for a voice that joins
///     leave(output)                  drops output from there on, and those engines
///     fade(output, frames)           from the tail to the output; the joined engines now sound
struct Schedule {
    Rate rate;
    std::int64_t input = 0; // frames that came in
    std::int64_t taken = 0; // frames that were handed out
    Voice now;
    Voice next;                  // while joining
    bool joining = false;        // the map asks for `next` ...
    std::int64_t joinOutput = 0; // ... at this output frame
    bool joined = false;         // its engines run

    explicit Schedule(const Rate& r) : rate(r) {}

    /// Output frames that can be handed out, counted from the start of the stream.
    std::int64_t ready() const { return joining ? std::min(now.end, joinOutput) : now.end; }
    std::int64_t untilBoundary() const { return rate.hop - input % rate.hop; }
    bool passesAtOnce() const { return now.isDry() && !waits(); }

    /// Output frame from which `voice` sounds if it is wanted now.
    std::int64_t changeFrame(const Voice& voice) const
    {
        if (waits())
            return joinOutput;
        return now.turnsInto(voice) ? now.turnFrame(rate) : now.end;
    }

    /// The first output frame, of those where the time map may still change, that it can change at
    /// for a `voice` planned at `output`.
    std::int64_t firstTurn(const Voice& voice, double output) const
    {
        if (!joining || output <= double(joinOutput - 1))
            return changeFrame(voice);
        return joined && next.turnsInto(voice) ? next.turnFrame(rate) : joinOutput;
    }

    /// The time map has changed from its segment `index` on.
    template <class Sound>
    void replan(std::size_t index, Sound&& sound)
    {
        const bool late = waits() && index <= next.segment; // the sound can't go on as it was
        if (joining && index <= next.segment) {
            joining = false;
            if (joined)
                sound.leave(joinOutput);
            joined = false;
        }
        now.segment = std::min(now.segment, index); // its own may be among the dropped ones
        if (late)
            plan(index, sound);
        else if (!joining)
            planFrom(index, sound);
    }

    /// `frames` more have come in, up to the next hop boundary at most.
    template <class Sound>
    void accept(std::int64_t frames, Sound&& sound)
    {
        input += frames;
        proceed(sound);
    }

    /// Does all that can be done with the input there is: voices join where a hop of it ends.
    template <class Sound>
    void proceed(Sound&& sound)
    {
        for (;;) {
            if (!tailIsComplete())
                advance(now, sound);
            if (joining && !joined)
                sound.split(joinOutput);
            if (!tailIsComplete() || input % rate.hop != 0)
                return;
            if (!joined)
                sound.join(next);
            joined = true;
            advance(next, sound);
            if (next.end < joinOutput + fade())
                return;
            sound.fade(joinOutput, fade());
            joining = joined = false;
            now = next;
            planFrom(now.segment + 1, sound);
        }
    }

private:
    std::int64_t fade() const { return joinOutput == 0 ? 0 : rate.hop / 2; }
    /// Whether what is there reaches up to where `next` joins.
    bool waits() const { return joining && joinOutput <= now.end; }
    bool tailIsComplete() const { return joining && now.end >= joinOutput + fade(); }

    template <class Sound>
    void advance(Voice& voice, Sound&& sound)
    {
        if (voice.isDry()) {
            const std::int64_t frames = std::max<std::int64_t>(0, input - voice.fed);
            sound.copy(voice, frames);
            voice.fed += frames;
            voice.end += frames;
        }
        while (!voice.isDry() && voice.fed + rate.hop <= input) {
            voice.follow(sound.times(), rate);
            Voice after = voice;
            const std::int64_t frames = after.takeHop(rate);
            sound.feed(voice, frames, joined); // if memory runs out, the hop is still to come
            voice = after;
        }
    }

    /// Finds the first change, from segment `index` on, that asks for another voice.
    template <class Sound>
    void planFrom(std::size_t index, Sound&& sound)
    {
        const TimeMap& times = sound.times();
        while (index < times.size() && now.turnsInto(Voice::at(times[index].speed, rate.pitch)))
            ++index;
        if (index < times.size())
            plan(index, sound);
    }

    template <class Sound>
    void plan(std::size_t index, Sound&& sound)
    {
        const TimeMap::Segment& s = sound.times()[index];
        joining = true;
        joinOutput = std::int64_t(std::ceil(s.output));
        next = Voice::at(s.speed, rate.pitch);
        next.segment = index;
        next.place(joinOutput, s.mediaAt(double(joinOutput)), rate);
        now.segment = std::min(now.segment, std::max<std::size_t>(index, 1) - 1);
    }
};

/// A Sound that makes none: runs a copy of a schedule ahead.
struct Rehearsal {
    const TimeMap& map;

    const TimeMap& times() const { return map; }
    void feed(const Voice&, std::int64_t, bool) const {}
    void copy(const Voice&, std::int64_t) const {}
    void split(std::int64_t) const {}
    void join(const Voice&) const {}
    void leave(std::int64_t) const {}
    void fade(std::int64_t, std::int64_t) const {}
};

} // namespace detail
} // namespace velora

#endif
