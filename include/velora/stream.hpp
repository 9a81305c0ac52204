/// velora::Stream: gapless playback at any speed, with exact lengths and media times.
/// Header-only, C++17; link velora::vsp.
///
///     velora::Stream<float> stream(48000, 2);       // rate, channels
///     stream.setSpeed(0.8);
///     std::vector<float> out;
///     while (read(block))                           // blocks of any size
///         stream.process(block, out);               // appends
///     stream.flush(out);                            // out now holds exactly round(N / 0.8) frames
///
/// A player turns it round and asks how much to read for each buffer that it must fill:
///
///     stream.process(in, read(in, stream.inputFramesFor(frames)), out, frames); // gives `frames`
///     show(stream.mediaFrameOf(stream.outputFrames()));
///
/// A frame is one sample of every channel. Frames are counted from the start of the
/// stream: the first one that goes in is media frame 0 (see seek), the first one that
/// comes out is output frame 0, and sounds media frame 0.
///
/// Sound: at speed 1.0 samples pass untouched, bit for bit and at once. At other speeds the pitch
/// stays (but see Pitch); sound is 16 bits wide, limited to full scale, and "not a number" is
/// silence. Speeds below 0.5, and 0.5 with Pitch::drop, are dull and quieter: a low-pass at 2 kHz
/// (1 kHz at rates above 48000 Hz, 0.5 kHz above 96000 Hz) and a gain of -13 dB. A change of speed
/// is heard at the very next frame that comes out, or where it was planned: through a fade of a few
/// milliseconds from or to 1.0, between dull speeds and others, and from or to the speeds that
/// Pitch::drop changes; else without one. In a fade a tone may dip by 6 dB and more.
///
/// Time: a hop (see hopFrames) is 10 to 16 ms at the usual rates. A click sounds within 1.4 hops of
/// where the time map puts it, below speed 0.5 within a hop of media time, mostly late. Above 1.0
/// single clicks lose level, up to 20 dB at 2.0; above 2 they may be skipped.
///
/// Threads: a stream is driven by one thread at a time; different streams are independent.
///
/// Real time: process and flush into given room neither allocate nor lock, as long as room is given
/// for all that comes out, or input as inputFramesFor asks. setSpeed may allocate. A change of
/// speed processes 0.1 to 0.4 seconds of media in the call in which it is heard: on a desktop core,
/// for each pair of channels, under 1 ms from speed 0.3 up, 4 ms at 0.125.
#ifndef VELORA_STREAM_HPP
#define VELORA_STREAM_HPP

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>
#if __cplusplus >= 202002L
#include <span>
#endif

#include <velora/detail/stream_sound.hpp>
#include <velora/detail/stream_timing.hpp>

namespace velora {

/// One stream of 1 to 32 channels.
/// @tparam Format  float (full scale -1..1), std::int16_t, std::int32_t, or velora::Int24In32 for
///                 24-bit values in std::int32_t samples
///
/// A Stream can be moved, not copied; a moved-from one can only be assigned to or destroyed.
///
/// Wherever frames go in or come out they may be interleaved (`Sample*`) or planar
/// (`Sample* const*`, one pointer for each channel), from call to call. Input and output must not
/// overlap. What comes out doesn't depend on how input is cut into blocks.
template <class Format = float>
class Stream {
public:
    using Sample = typename detail::FormatTraits<Format>::Sample;

    static constexpr double kSlowest = 0.125;
    static constexpr double kFastest = 8.0;
    static constexpr int kLowestRate = 8000;    ///< Hz
    static constexpr int kHighestRate = 192000; ///< Hz
    static constexpr int kMostChannels = 32;

    /// A stream at speed 1.0.
    /// @param sampleRate  8000 to 192000 Hz. The engine is made for 8000, 11025, 12000,
    ///                    16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000,
    ///                    128000, 176400 and 192000.
    /// @param channels    1 to 32. All stay in step whatever they carry: an onset found in one pair
    ///                    (1 and 2, 3 and 4, ...) counts for all. Only where an onset in one pair
    ///                    comes up to 75 ms before one that all share may the latter be up to
    ///                    2.5 hops apart.
    /// @param pitch       what speeds 0.5, 0.25 and 0.125 do to it
    /// @throws std::invalid_argument for a rate or channels out of range; std::bad_alloc
    Stream(int sampleRate, int channels, Pitch pitch = Pitch::keep)
    {
        require(sampleRate >= kLowestRate && sampleRate <= kHighestRate, "sample rate",
                std::to_string(sampleRate) + " Hz", "8000 to 192000 Hz");
        require(channels >= 1 && channels <= kMostChannels, "channel count",
                std::to_string(channels), "1 to 32");
        self = std::make_unique<Self>(channels, sampleRate, pitch);
    }

    int sampleRate() const { return self->sound.rate.sampleRate; } ///< Hz
    int channels() const { return self->sound.channels; }

    /// Sets the speed: 2.0 is twice as fast. Takes effect with the next frame that comes out,
    /// behind those that wait inside for room; between speeds that need no fade (see above), some
    /// two hops later. Ends what was planned. Of several calls without a process between them the
    /// last one counts. After flush it still changes the speed of the rest.
    /// @throws std::invalid_argument outside 0.125 to 8 or for "not a number"; std::bad_alloc. The
    ///         stream then goes on as it was.
    void setSpeed(double speed)
    {
        const auto voice = voiceAt(speed);
        detail::TimeMap& map = self->sound.map;
        detail::Schedule& schedule = self->schedule;
        const std::int64_t output = schedule.changeFrame(voice);
        if (voice.speed == map.last().speed && map.last().output <= double(output))
            return;
        self->sound.prepare(voice, schedule);
        if (schedule.joining)
            map.cut(schedule.joinOutput);
        map.turnAtOutput(output, voice.speed);
        schedule.replan(map.size() - 1, self->sound);
    }

    /// Plans a change of speed from media frame `mediaFrame` on, exact to the frame of output. Plan
    /// in order of time, as many as are known: what was planned from there on is dropped. A ramp is
    /// many small steps. A plan that comes too late is setSpeed: never, as long as `mediaFrame` is
    /// five hops ahead of the input.
    /// @returns the first output frame at which the speed holds
    /// @throws  as setSpeed
    std::int64_t setSpeedAt(std::int64_t mediaFrame, double speed)
    {
        const auto voice = voiceAt(speed);
        detail::TimeMap& map = self->sound.map;
        detail::Schedule& schedule = self->schedule;
        const double media = fromStart(mediaFrame);
        const double output = map.outputAt(media);
        if (std::ceil(output) < double(schedule.firstTurn(voice, output))) {
            const std::int64_t now = schedule.changeFrame(voice);
            setSpeed(speed);
            return now;
        }
        self->sound.prepare(voice, schedule);
        map.turnAtMedia(media, voice.speed);
        schedule.replan(map.size() - 1, self->sound);
        return std::int64_t(std::ceil(output));
    }

    /// The speed last set or planned.
    double speed() const { return self->sound.map.last().speed; }

    // ---- Processing ----
    // Takes all of the input, and gives what has come out, up to `room` frames; the rest stays
    // inside and comes first in the next call. Returns the frames given. With `room` of at least
    // maxOutputFrames(frames) nothing stays. Once flush was called, process ignores its input and
    // goes on with the rest, until reset or seek.
    //
    // Errors: none, but std::bad_alloc from a vector, or from a stream in which output piles up
    // because it isn't given the room. inputFrames and outputFrames then tell how far it came; it
    // goes on from there. Nothing is written behind the frames returned.

    std::size_t process(const Sample* in, std::size_t frames, Sample* out, std::size_t room)
    {
        return run(interleaved(in), frames, interleaved(out), room);
    }
    std::size_t process(const Sample* const* in, std::size_t frames, Sample* const* out,
                        std::size_t room)
    {
        return run(planar(in), frames, planar(out), room);
    }

    /// These append to `out` all that comes out, and return how many frames that is. A last frame
    /// that `in` doesn't hold whole is left out.
    std::size_t process(const Sample* in, std::size_t frames, std::vector<Sample>& out)
    {
        const std::size_t before = out.size();
        const std::size_t room = maxOutputFrames(frames);
        out.resize(before + room * width());
        return process(in, frames, out.data() + before, room);
    }
    std::size_t process(const std::vector<Sample>& in, std::vector<Sample>& out)
    {
        return process(in.data(), in.size() / width(), out);
    }
#if __cplusplus >= 202002L
    std::size_t process(std::span<const Sample> in, std::span<Sample> out)
    {
        return process(in.data(), in.size() / width(), out.data(), out.size() / width());
    }
#endif

    /// Ends the stream and gives what is still inside, up to `room` frames; call it again while it
    /// returns `room`. All that process and flush have given is then round(N / speed) frames for N
    /// frames of input if the speed was set before the first; in any case, outputFrameOf(the media
    /// frame behind the last one).
    std::size_t flush(Sample* out, std::size_t room)
    {
        return finish(interleaved(out), room);
    }
    std::size_t flush(Sample* const* out, std::size_t room)
    {
        return finish(planar(out), room);
    }

    /// Appends the whole rest to `out` and returns how many frames that is.
    std::size_t flush(std::vector<Sample>& out)
    {
        constexpr std::size_t kRoom = 4096;
        std::size_t total = 0;
        std::size_t given = kRoom;
        while (given == kRoom) {
            const std::size_t before = out.size();
            out.resize(before + kRoom * width());
            given = flush(out.data() + before, kRoom);
            out.resize(before + given * width());
            total += given;
        }
        return total;
    }

    /// Makes the stream as new, at speed 1.0. Costs next to nothing.
    void reset()
    {
        self->schedule = detail::Schedule(self->sound.rate);
        self->sound.reset();
        self->origin = 0;
        self->ended = false;
    }

    /// Starts anew from another place, at the speed last set; what was planned is dropped. The next
    /// frame that goes in is media frame `mediaFrame`, which may be negative, the next one that
    /// comes out is output frame 0 and sounds it.
    void seek(std::int64_t mediaFrame)
    {
        const double kept = speed();
        reset();
        self->origin = std::min(std::max(mediaFrame, -kFarthest), kFarthest);
        setSpeed(kept);
    }

    // ---- Queries ----
    // None changes anything or allocates; all allow for what is inside and for a speed just set.
    // Counts of frames beyond kMostFrames are taken as that; positions stay within 2^56.

    static constexpr std::size_t kMostFrames = std::size_t(1) << 28;

    /// Frames that the next process gives for `frames` frames of input if it has the room. Takes
    /// some 50 ns a hop.
    std::size_t maxOutputFrames(std::size_t frames) const
    {
        if (self->ended)
            return std::size_t(std::max<std::int64_t>(total() - self->schedule.taken, 0));
        auto schedule = rehearse();
        const detail::Rehearsal silent{self->sound.map};
        for (std::int64_t left = bounded(frames); left > 0;) {
            const std::int64_t part = std::min(left, schedule.untilBoundary());
            schedule.accept(part, silent);
            left -= part;
        }
        return std::size_t(available(schedule));
    }

    /// The least input after which `frames` frames of output are there: 0 if they are already, or
    /// if the stream was flushed. After a change of speed to `speed` that is speed * frames and up
    /// to 8 + 3 * speed hops.
    std::size_t inputFramesFor(std::size_t frames) const
    {
        auto schedule = rehearse();
        const detail::Rehearsal silent{self->sound.map};
        const std::int64_t before = schedule.input;
        while (!self->ended && available(schedule) < bounded(frames)) {
            const std::int64_t missing = bounded(frames) - available(schedule);
            const std::int64_t part = schedule.untilBoundary();
            schedule.accept(schedule.passesAtOnce() ? std::min(missing, part) : part, silent);
        }
        return std::size_t(schedule.input - before);
    }

    /// Media inside the stream, in frames: from the next frame that will come out to the end of
    /// what has gone in. 0 at speed 1.0.
    std::int64_t latencyFrames() const
    {
        return origin() + inputFrames() - mediaFrameOf(outputFrames());
    }

    /// Frames that went in, and frames that came out, since the start or the last seek.
    std::int64_t inputFrames() const
    {
        return self->ended ? self->inputAtEnd : self->schedule.input;
    }
    std::int64_t outputFrames() const
    {
        return self->schedule.taken;
    }

    /// Frames of input that the engine takes at a time: 128 at 8000, 11025 and 12000 Hz, 256 at
    /// 16000, 22050 and 24000, else 512 up to 48000, 1024 up to 96000, 2048 above.
    std::int64_t hopFrames() const
    {
        return self->sound.rate.hop;
    }

    /// Output frame from which `speed` holds if it is set now.
    /// @throws std::invalid_argument as setSpeed
    std::int64_t changeFrame(double speed) const
    {
        return self->schedule.changeFrame(voiceAt(speed));
    }

    /// Media frame that an output frame sounds, to the nearest; right across changes of speed. For
    /// frames that have not come out yet, as if no further change were set.
    std::int64_t mediaFrameOf(std::int64_t outputFrame) const
    {
        return origin() + toFrame(self->sound.map.mediaAt(double(outputFrame)));
    }

    /// Output frame at which a media frame sounds, to the nearest.
    std::int64_t outputFrameOf(std::int64_t mediaFrame) const
    {
        return toFrame(self->sound.map.outputAt(fromStart(mediaFrame)));
    }

private:
    struct Self {
        Self(int channelCount, int sampleRate, Pitch pitch)
            : sound(channelCount, sampleRate, pitch), schedule(sound.rate)
        {
        }
        detail::Sounding<Format> sound;
        detail::Schedule schedule;
        std::int64_t origin = 0; // media frame of the first frame that went in
        bool ended = false;
        std::int64_t inputAtEnd = 0; // without the silence that flush adds
    };

    static constexpr std::int64_t kFarthest = std::int64_t(1) << 56;

    static std::int64_t toFrame(double position)
    {
        return std::llround(std::min(std::max(position, -double(kFarthest)), double(kFarthest)));
    }

    static std::int64_t bounded(std::size_t frames)
    {
        return std::int64_t(std::min(frames, kMostFrames));
    }

    double fromStart(std::int64_t mediaFrame) const
    {
        return double(std::min(std::max(mediaFrame, -kFarthest), kFarthest) - origin());
    }

    static void require(bool holds, const char* what, const std::string& value, const char* range)
    {
        if (!holds)
            throw std::invalid_argument(std::string("velora::Stream: ") + what + " is " + value +
                                        "; it must be " + range);
    }

    detail::Voice voiceAt(double speed) const
    {
        if (!(speed >= kSlowest && speed <= kFastest)) { // "not a number" too
            char value[32];
            std::snprintf(value, sizeof value, "%.15g", speed);
            require(false, "speed", value, "0.125 to 8");
        }
        return detail::Voice::at(speed, self->sound.rate.pitch);
    }

    std::size_t width() const
    {
        return std::size_t(channels());
    }
    std::int64_t origin() const
    {
        return self->origin;
    }

    // A view of the caller's samples: view(channel) points to the channel's
    // first sample, and frames are view.stride apart.
    template <class Pointer>
    struct Interleaved {
        Pointer first;
        int stride;
        Pointer operator()(int channel) const { return first + channel; }
    };
    template <class Pointers>
    struct Planar {
        Pointers first;
        int stride;
        auto operator()(int channel) const { return first[channel]; }
    };
    template <class Pointer>
    Interleaved<Pointer> interleaved(Pointer first) const
    {
        return {first, channels()};
    }
    template <class Pointers>
    Planar<Pointers> planar(Pointers first) const
    {
        return {first, 1};
    }

    template <class In, class Out>
    std::size_t run(In in, std::size_t frames, Out out, std::size_t room)
    {
        if (self->ended)
            return finish(out, room);
        self->schedule.proceed(self->sound);
        std::int64_t given = give(out, 0, room);
        const std::int64_t all = std::int64_t(frames);
        for (std::int64_t done = 0; done < all;) {
            const std::int64_t part = std::min(all - done, self->schedule.untilBoundary());
            take(in, done, part);
            given += give(out, given, room);
            done += part;
        }
        return std::size_t(given);
    }

    template <class Out>
    std::size_t finish(Out out, std::size_t room)
    {
        if (!self->ended) {
            self->inputAtEnd = self->schedule.input;
            self->ended = true;
        }
        self->schedule.proceed(self->sound);
        std::int64_t given = give(out, 0, room);
        while (given < std::int64_t(room) && self->schedule.taken < total()) {
            pad();
            given += give(out, given, room);
        }
        return std::size_t(given);
    }

    /// Silence up to the next hop boundary.
    void pad()
    {
        const std::int64_t frames = self->schedule.untilBoundary();
        std::fill_n(self->sound.input.append(frames), frames * channels(), Sample(0));
        accept(frames);
    }

    template <class In>
    void take(In in, std::int64_t from, std::int64_t frames)
    {
        Sample* const to = self->sound.input.append(frames);
        for (int channel = 0; channel < channels(); ++channel) {
            const Sample* const source = in(channel) + from * in.stride;
            for (std::int64_t n = 0; n < frames; ++n)
                to[n * channels() + channel] = source[n * in.stride];
        }
        accept(frames);
    }

    void accept(std::int64_t frames)
    {
        self->schedule.accept(frames, self->sound);
        self->sound.dropHistory(self->schedule);
    }

    /// Hands out what is ready, behind the `given` frames that stand in `out` already.
    template <class Out>
    std::int64_t give(Out out, std::int64_t given, std::size_t room)
    {
        std::int64_t& taken = self->schedule.taken;
        const std::int64_t frames = std::min(std::int64_t(room) - given, available(self->schedule));
        if (frames <= 0)
            return 0;
        const Sample* const from = self->sound.output.at(taken);
        for (int channel = 0; channel < channels(); ++channel) {
            Sample* const to = out(channel) + given * out.stride;
            for (std::int64_t n = 0; n < frames; ++n)
                to[n * out.stride] = from[n * channels() + channel];
        }
        taken += frames;
        self->sound.output.dropBefore(taken);
        return frames;
    }

    std::int64_t available(const detail::Schedule& schedule) const
    {
        const std::int64_t end =
            self->ended ? std::min(schedule.ready(), total()) : schedule.ready();
        return std::max<std::int64_t>(end - schedule.taken, 0);
    }

    /// Length of the whole output of a stream that has ended.
    std::int64_t total() const
    {
        return toFrame(self->sound.map.outputAt(double(self->inputAtEnd)));
    }

    detail::Schedule rehearse() const
    {
        detail::Schedule schedule = self->schedule;
        schedule.proceed(detail::Rehearsal{self->sound.map});
        return schedule;
    }

    std::unique_ptr<Self> self;
};

} // namespace velora

#endif
