/// velora::Stream: gapless playback at any speed, with exact lengths and media times. Header-only,
/// C++17, over the C interface <velora/vsp_c.h>; link velora::vsp.
///
///     velora::Stream<float> stream(48000, 2);       // rate, channels
///     stream.setSpeed(0.8);
///     std::vector<float> out;
///     while (read(block))                           // blocks of any size
///         stream.process(block, out);               // appends
///     stream.flush(out);                            // out now holds exactly round(N / 0.8) frames
///
/// A player turns it round: it fills buffers, for which the stream reads what they need.
///
///     stream.pull(out, frames, [&](float* buffer, std::size_t n) { return read(buffer, n); });
///     show(stream.mediaFrameOf(stream.outputFrames()));
///
/// A frame is one sample of every channel. Frames are counted from the start of the stream: the
/// first one that goes in is media frame 0 (see seek), the first one that comes out is output
/// frame 0, and sounds media frame 0.
///
/// Sound: at speed 1.0 samples pass untouched, bit for bit and at once. At other speeds the pitch
/// stays (but see Pitch), and so do loudness, treble and what lies between the channels: equal ones
/// come out equal. Inside sound is 16 bits wide, but near full scale whatever its level (within 2 s
/// behind a loud passage), so quiet passages stay clean; floats pass full scale, integers bend at it,
/// and what isn't finite is silence. Sound::engine is the bare engine instead: 16 bits, cut at full scale; below 0.5, and at
/// 0.5 with Pitch::drop, dull and quieter by a low-pass at 2 kHz (1 kHz at rates above 48000 Hz, 0.5
/// kHz above 96000 Hz) and a gain of -13 dB; equal channels of a pair (1 and 2, 3 and 4, ...) differ
/// by up to 3 steps of 16 bits.
///
/// A change of speed is heard at the very next frame that comes out, or where it was planned: through
/// a fade of a few milliseconds from or to 1.0, and from or to the speeds that Pitch::drop changes
/// (with Sound::engine also between dull speeds and others); else without one. Before a change to 1.0
/// that is planned, the natural sound's phases are brought to the input's over eight hops, so that no
/// tone dips there; what changes at once may dip by any amount for some 10 ms, tone by tone.
///
/// Time: a hop (see hopFrames) is 10 to 16 ms at the usual rates. In the mean sound comes within
/// a millisecond of where the time map puts it; a tone that glides above 2 may be a third of a hop
/// late. A click comes within 1.4 hops, below speed 0.5 within a hop of media time. Above 1.0 single
/// clicks lose level; above 2 they may be skipped.
///
/// Threads: a stream is driven by one thread at a time; different streams are independent. Any
/// thread may meanwhile call clock and requestSpeed.
///
/// Real time: once made with Options, a stream never allocates, frees, locks or calls the system
/// (but for a std::vector that it is to fill), and throws nothing but what a speed out of range or a
/// reader throws. Made without, it does so only when more waits inside than ever before: output for
/// which there was no room, or more than 64 changes. No call does more than the work for the frames
/// that it gives, the rest of a hop, and what a change that takes a fade needs (see setSpeed);
/// without Options, also to take in what the next hop is made of. With Options the work for a hop of
/// output is also spread over the frames of the one before, so that short buffers cost much the
/// same; for that its input is needed up to a hop earlier, and 50 ms more for the natural sound (see
/// Latency).
#ifndef VELORA_STREAM_HPP
#define VELORA_STREAM_HPP

#if __cplusplus < 201703L && (!defined(_MSVC_LANG) || _MSVC_LANG < 201703L)
// An #error would be followed by one for every line that an older language can't read: this ends it.
#include "velora/stream.hpp needs C++17: compile with -std=c++17 or later"
#endif

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>
#if __cplusplus >= 202002L
#include <span>
#endif

#include <velora/vsp_c.h>

namespace velora {

/// What the speeds 0.5, 0.25 and 0.125 do to the pitch. Every other speed keeps it.
enum class Pitch {
    keep = VELORA_PITCH_KEEP, ///< as at every other speed
    drop = VELORA_PITCH_DROP  ///< as on a slowed tape: the sample-rate converter, not the vocoder
};

/// What is heard at speeds other than 1.0.
enum class Sound {
    natural = VELORA_SOUND_NATURAL, ///< in the middle what is in the middle, as loud, bright and
                                    ///< clean as the input
    engine = VELORA_SOUND_ENGINE    ///< the bare engine, to the bit: up to 0.5 dark and quiet
};

/// What the natural sound is tuned for. At 16000, 22050 and 24000 Hz it makes no difference.
enum class Material {
    music = VELORA_MATERIAL_MUSIC,
    speech = VELORA_MATERIAL_SPEECH ///< and drums: a shorter window
};

/// How much input the natural sound waits for at speeds other than 1.0.
enum class Latency {
    usual = VELORA_LATENCY_USUAL, ///< looks 50 ms ahead, for its level
    least = VELORA_LATENCY_LEAST  ///< no more than the engine itself
};

/// Format of a stream whose samples are std::int32_t holding sign-extended 24-bit values,
/// -8388608..8388607.
struct Int24In32 {};

/// What a stream is made for, so that it can take all its memory at once.
struct Options {
    Pitch pitch = Pitch::keep;
    double slowest = VELORA_SLOWEST; ///< 0.125 to 1: the slowest speed that will be set
    double fastest = VELORA_FASTEST; ///< 1 to 8
    /// Frames of input, 1 to 2^30, that may wait inside because output has no room: as many as the
    /// longest block that is passed to process at once without room for all that comes of it.
    std::int64_t longestBlock = 4096;
    /// Speeds that are planned, and jumps that are not heard yet, 1 to 2^20.
    std::int64_t changes = 64;
    Sound sound = Sound::natural;
    Material material = Material::music;
    Latency latency = Latency::usual;
};

/// Where a stream was after the last call that moved it.
struct Clock {
    std::int64_t mediaFrame;  ///< that the next frame of output sounds
    std::int64_t outputFrame; ///< frames that came out since the start or the last seek
    double speed;             ///< of the next frame of output
    std::int64_t seeks;       ///< and resets, since the stream was made
};

namespace detail {

template <class Format>
struct FormatTraits; // undefined for what no engine speaks

template <>
struct FormatTraits<std::int16_t> {
    using Sample = std::int16_t;
    static constexpr int kFormat = VELORA_INT16;
};
template <>
struct FormatTraits<Int24In32> {
    using Sample = std::int32_t;
    static constexpr int kFormat = VELORA_INT24_IN_32;
};
template <>
struct FormatTraits<std::int32_t> {
    using Sample = std::int32_t;
    static constexpr int kFormat = VELORA_INT32;
};
template <>
struct FormatTraits<float> {
    using Sample = float;
    static constexpr int kFormat = VELORA_FLOAT;
};

} // namespace detail

/// One stream of 1 to 32 channels.
/// @tparam Format  float (full scale -1..1), std::int16_t, std::int32_t, or velora::Int24In32 for
///                 24-bit values in std::int32_t samples
///
/// A Stream can be moved, not copied. A moved-from one takes nothing and gives nothing: its counts
/// are 0.
///
/// Wherever frames go in or come out they may be interleaved (`Sample*`) or planar
/// (`Sample* const*`, one pointer for each channel), from call to call. Input and output must not
/// overlap. What comes out doesn't depend on how input is cut into blocks. A null pointer for more
/// than 0 frames takes nothing and gives nothing.
template <class Format = float>
class Stream {
public:
    using Sample = typename detail::FormatTraits<Format>::Sample;

    static constexpr double kSlowest = VELORA_SLOWEST;
    static constexpr double kFastest = VELORA_FASTEST;
    static constexpr int kLowestRate = VELORA_LOWEST_RATE;   ///< Hz
    static constexpr int kHighestRate = VELORA_HIGHEST_RATE; ///< Hz
    static constexpr int kMostChannels = VELORA_MOST_CHANNELS;
    /// maxOutputFrames is exact up to here, and an upper bound above; inputFramesFor takes more for
    /// this many.
    static constexpr std::size_t kMostFrames = std::size_t(1) << 28;

    /// A stream at speed 1.0, for every speed, any block and any number of changes.
    /// @param sampleRate  8000 to 192000 Hz. The engine is made for 8000, 11025, 12000, 16000,
    ///                    22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000, 128000, 176400
    ///                    and 192000.
    /// @param channels    1 to 32. All stay in step whatever they carry: an onset found in one pair
    ///                    (1 and 2, 3 and 4, ...) counts for all. Only where an onset in one pair
    ///                    comes up to 75 ms before one that all share may the latter be up to 2.5
    ///                    hops apart.
    /// @param pitch       what speeds 0.5, 0.25 and 0.125 do to it
    /// @param sound       what is heard at speeds other than 1.0
    /// @param material    what the natural sound is tuned for
    /// @throws std::invalid_argument for a rate or channels out of range; std::bad_alloc
    Stream(int sampleRate, int channels, Pitch pitch = Pitch::keep, Sound sound = Sound::natural,
           Material material = Material::music)
    {
        velora_options any = VELORA_OPTIONS;
        any.pitch = int(pitch);
        any.sound = int(sound);
        any.material = int(material);
        any.longest_block = 0;
        any.changes = 0;
        open(sampleRate, channels, any);
    }

    /// A stream at speed 1.0 that takes all its memory now.
    /// @throws std::invalid_argument for what is out of range; std::bad_alloc
    Stream(int sampleRate, int channels, const Options& options)
    {
        require(options.longestBlock > 0, "longestBlock", std::to_string(options.longestBlock),
                "1 to 2^30 frames");
        require(options.changes > 0, "changes", std::to_string(options.changes), "1 to 2^20");
        velora_options all = VELORA_OPTIONS;
        all.pitch = int(options.pitch);
        all.sound = int(options.sound);
        all.material = int(options.material);
        all.latency = int(options.latency);
        all.slowest = options.slowest;
        all.fastest = options.fastest;
        all.longest_block = options.longestBlock;
        all.changes = options.changes;
        open(sampleRate, channels, all);
    }

    int sampleRate() const { return velora_stream_sample_rate(self.get()); } ///< Hz
    int channels() const { return velora_stream_channels(self.get()); }

    // ---- Speeds; 2.0 is twice as fast. ----
    // @throws std::invalid_argument out of range (0.125 to 8, or as Options say) or for "not a
    //         number"; the stream then goes on as it was.

    /// Sets the speed. Takes effect with the next frame that comes out; between speeds that need no
    /// fade (see above), some two hops later. Ends what was planned. Of several calls without a
    /// process between them the last one counts. After flush it still changes the speed of the rest.
    /// @param speed         see above
    /// @param withinFrames  where it takes a fade, that comes so many frames of output from now, and
    ///                      the work for it is spread over the calls up to there (over at most 8
    ///                      hops); what was set or planned before comes first if it comes until
    ///                      then. With 0 or less it is done in the call that comes next: that of some ten
    ///                      hops of output.
    void setSpeed(double speed, std::int64_t withinFrames = 0)
    {
        const std::int64_t within = positive(withinFrames);
        check(velora_stream_set_speed_within(self.get(), speed, within), speed);
    }

    /// Plans a change of speed from media frame `mediaFrame` on, exact to the frame of output, in
    /// any order: it holds up to the next planned one. A plan for a frame that has one replaces
    /// that; one that would not sound for a single frame of output is left out. A ramp is many small
    /// steps. A plan that comes too late takes effect as soon as setSpeed would; it is never late as
    /// long as `mediaFrame` is five hops ahead of the input. The work for a fade is spread over the
    /// eight hops of output before it. Plans are for the media that goes in now: seek forgets all of
    /// them, jump those for frames that it leaves out.
    /// @returns the first output frame at which the speed holds, as things stand; -1, with nothing
    ///          planned, if as many changes are in force as Options say
    std::int64_t setSpeedAt(std::int64_t mediaFrame, double speed)
    {
        const std::int64_t output = velora_stream_set_speed_at(self.get(), mediaFrame, speed);
        if (output == VELORA_ERROR_CHANGES)
            return -1;
        return check(output, speed);
    }

    /// Forgets what is planned. A speed that was set stays.
    void clearPlans() { velora_stream_clear_plans(self.get()); }

    /// The speed last set or planned.
    double speed() const { return velora_stream_speed(self.get()); }
    /// The speed of an output frame, planned ones included.
    double speedAt(std::int64_t outputFrame) const
    {
        return velora_stream_speed_at(self.get(), outputFrame);
    }

    /// From any thread: the next call that processes sets this speed, as setSpeed would. Of several
    /// the last one counts. Queries don't know of it before that call (which may be for 0 frames);
    /// seek leaves it as it is, reset forgets it.
    void requestSpeed(double speed)
    {
        check(velora_stream_request_speed(self.get(), speed), speed);
    }

    // ---- Processing ----
    // Takes the input, and gives what comes out, up to `room` frames; the rest waits inside. Returns
    // the frames given. With `room` of at least maxOutputFrames(frames) nothing waits. Of more input
    // than may wait (see Options) the last frames are not taken: inputFrames tells how many were.
    // Once flush was called, process ignores its input and goes on with the rest, until reset or
    // seek. Nothing is written behind the frames returned.
    //
    // @throws std::bad_alloc, without Options: a part of the call has been done; inputFrames and
    //         outputFrames tell how much, and the next call goes on from there

    std::size_t process(const Sample* in, std::size_t frames, Sample* out, std::size_t room)
    {
        return count(velora_stream_process(self.get(), in, signedOf(frames), out, signedOf(room)));
    }
    std::size_t process(const Sample* const* in, std::size_t frames, Sample* const* out,
                        std::size_t room)
    {
        const Planes<const void> from(in, channels());
        const Planes<void> to(out, channels());
        return count(velora_stream_process_planar(self.get(), from.pointers(), signedOf(frames),
                                                  to.pointers(), signedOf(room)));
    }

    /// These append to `out` all that comes out, and return how many frames that is. A last frame
    /// that `in` doesn't hold whole is left out.
    std::size_t process(const Sample* in, std::size_t frames, std::vector<Sample>& out)
    {
        std::size_t total = 0;
        bool goesOn = true; // a speed that is requested meanwhile may take more room
        for (std::size_t done = 0; goesOn;) {
            const std::int64_t at = inputFrames();
            const std::size_t room = maxOutputFrames(frames - done);
            const std::size_t before = out.size();
            out.resize(before + room * width());
            const std::size_t given =
                process(in + done * width(), frames - done, out.data() + before, room);
            out.resize(before + given * width());
            total += given;
            const auto taken = std::size_t(inputFrames() - at);
            done += taken;
            goesOn = done < frames && taken > 0;
        }
        return total;
    }
    std::size_t process(const std::vector<Sample>& in, std::vector<Sample>& out)
    {
        return process(in.data(), framesIn(in.size()), out);
    }
#if __cplusplus >= 202002L
    std::size_t process(std::span<const Sample> in, std::span<Sample> out)
    {
        return process(in.data(), framesIn(in.size()), out.data(), framesIn(out.size()));
    }
#endif

    /// Ends the stream and gives what is still inside, up to `room` frames; call it again while it
    /// returns `room`. All that process and flush have given is then outputFrameOf(the media frame
    /// behind the last one): round(N / speed) frames for N frames of input if the speed was set
    /// before the first.
    std::size_t flush(Sample* out, std::size_t room)
    {
        return count(velora_stream_flush(self.get(), out, signedOf(room)));
    }
    std::size_t flush(Sample* const* out, std::size_t room)
    {
        const Planes<void> to(out, channels());
        return count(velora_stream_flush_planar(self.get(), to.pointers(), signedOf(room)));
    }
#if __cplusplus >= 202002L
    std::size_t flush(std::span<Sample> out)
    {
        return flush(out.data(), framesIn(out.size()));
    }
#endif

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

    /// Fills `out` with `frames` frames, interleaved, for which it calls
    /// `std::size_t read(Sample* buffer, std::size_t n)` as often as it takes, n at most 1024: read
    /// writes up to n frames and returns how many. Where it gives less than n, the stream ends, as
    /// by flush; a negative number is taken for 0, a larger one for n. Returns the frames given:
    /// fewer than `frames` only at the end. What read throws comes through: nothing of that piece is
    /// taken, and what `out` holds of this call is lost. `read` must not move the stream itself: to
    /// loop or to go on with another piece, give it what inputFramesFor asks for by process, with
    /// jump between two calls.
    template <class Read>
    std::size_t pull(Sample* out, std::size_t frames, Read&& read)
    {
        std::size_t given = 0;
        for (bool atEnd = out == nullptr; given < frames && !atEnd;) {
            process(pulled.data(), 0, out, 0); // a speed that was requested counts from here on
            const std::size_t part = least(frames - given, kAskedFrames);
            const std::size_t wanted = least(inputFramesFor(part), kPullFrames);
            const std::size_t got =
                wanted == 0 ? 0 : least(framesOf(read(pulled.data(), wanted)), wanted);
            const std::size_t more =
                process(pulled.data(), got, out + given * width(), frames - given);
            given += more;
            atEnd = got < wanted || (wanted == 0 && more == 0);
            if (got < wanted)
                given += flush(out + given * width(), frames - given);
        }
        return given;
    }

    // ---- Places ----

    /// Makes the stream as new, at speed 1.0. Costs next to nothing.
    void reset()
    {
        velora_stream_reset(self.get());
    }

    /// Starts anew from another place, at the speed that sounds; what was planned is dropped, and a
    /// speed that was set but isn't heard yet. The next frame that goes in is media frame
    /// `mediaFrame`, which may be negative, the next one that comes out is output frame 0 and sounds
    /// it. The first few milliseconds are faded in, unless mediaFrame is 0.
    void seek(std::int64_t mediaFrame)
    {
        velora_stream_seek(self.get(), mediaFrame);
    }
    /// The same, with what lies before that place: `frames` frames, interleaved, of which the last
    /// 6 hops at most are used. Output then begins as if it had been playing before.
    void seek(std::int64_t mediaFrame, const Sample* before, std::size_t frames)
    {
        velora_stream_seek_with(self.get(), mediaFrame, before, signedOf(frames));
    }

    /// The next frame that goes in is media frame `mediaFrame`; all that went in before still comes
    /// out, and output frames go on: for loops, for silence that is left out, for the next piece.
    /// The two are blended over a few milliseconds. Media frames in other calls are those of the
    /// stretch that goes in from here on. What was planned for frames behind the last one that went
    /// in is forgotten. After flush it does nothing.
    /// @returns false, with nothing done, if as many jumps are in force as Options say
    bool jump(std::int64_t mediaFrame)
    {
        return velora_stream_jump(self.get(), mediaFrame) == VELORA_OK;
    }

    // ---- Queries ----
    // None changes anything or allocates; all allow for what is inside and for a speed just set.
    // Positions stay within 2^56.

    /// Frames that the next process gives for `frames` frames of input if it has the room. Takes
    /// some 50 ns a hop and more with many channels.
    std::size_t maxOutputFrames(std::size_t frames) const
    {
        return sizeOf(velora_stream_max_output_frames(self.get(), signedOf(frames)));
    }

    /// The least input after which `frames` frames of output are there: 0 if they are already, or
    /// if the stream was flushed.
    std::size_t inputFramesFor(std::size_t frames) const
    {
        return sizeOf(velora_stream_input_frames_for(self.get(), signedOf(frames)));
    }
    /// The most that that can ever be.
    std::size_t mostInputFrames(std::size_t frames) const
    {
        return sizeOf(velora_stream_most_input_frames(self.get(), signedOf(frames)));
    }

    /// Media inside the stream, in frames: from the next frame that will come out to the end of
    /// what has gone in. 0 at speed 1.0.
    std::int64_t latencyFrames() const
    {
        return positive(velora_stream_latency_frames(self.get()));
    }

    /// Frames that went in, and frames that came out, since the start or the last seek.
    std::int64_t inputFrames() const
    {
        return positive(velora_stream_input_frames(self.get()));
    }
    std::int64_t outputFrames() const
    {
        return positive(velora_stream_output_frames(self.get()));
    }

    /// Frames of input that the engine takes at a time: 128 at 8000, 11025 and 12000 Hz, 256 at
    /// 16000, 22050 and 24000, else 512 up to 48000, 1024 up to 96000, 2048 above.
    std::int64_t hopFrames() const
    {
        return positive(velora_stream_hop_frames(self.get()));
    }

    /// Output frame from which `speed` holds if it is set now.
    /// @throws std::invalid_argument as setSpeed
    std::int64_t changeFrame(double speed) const
    {
        return check(velora_stream_change_frame(self.get(), speed), speed);
    }

    /// Media frame that an output frame sounds, to the nearest; right across changes of speed and
    /// jumps that may still be heard. For frames that have not come out yet, as if no further change
    /// were set.
    std::int64_t mediaFrameOf(std::int64_t outputFrame) const
    {
        return velora_stream_media_frame_of(self.get(), outputFrame);
    }

    /// Output frame at which a media frame sounds, to the nearest.
    std::int64_t outputFrameOf(std::int64_t mediaFrame) const
    {
        return velora_stream_output_frame_of(self.get(), mediaFrame);
    }

    /// Where the stream is. From any thread, without waiting.
    Clock clock() const
    {
        velora_clock now = {0, 0, 0.0, 0};
        velora_stream_clock(self.get(), &now);
        return {now.media_frame, now.output_frame, now.speed, now.seeks};
    }

private:
    static constexpr std::size_t kPullFrames = 1024;
    // Output that is asked for at a time, for which so much may be read: the question takes time.
    static constexpr std::size_t kAskedFrames = 8 * kPullFrames;

    struct Destroy {
        void operator()(velora_stream* stream) const { velora_stream_destroy(stream); }
    };

    // A caller's typed planes as the C interface takes them.
    template <class Void>
    class Planes {
    public:
        template <class Pointers>
        Planes(Pointers planes, int channels) : given(planes != nullptr)
        {
            for (int channel = 0; given && channel < channels; ++channel)
                copies[channel] = planes[channel];
        }
        Void* const* pointers() const { return given ? copies : nullptr; }

    private:
        bool given;
        Void* copies[kMostChannels] = {};
    };

    void open(int sampleRate, int channels, const velora_options& options)
    {
        velora_stream* made = nullptr;
        const int error = velora_stream_open(&made, sampleRate, channels,
                                             detail::FormatTraits<Format>::kFormat, &options);
        self.reset(made);
        if (error == VELORA_ERROR_MEMORY)
            throw std::bad_alloc();
        require(error != VELORA_ERROR_RATE, "sample rate", std::to_string(sampleRate) + " Hz",
                "8000 to 192000 Hz");
        require(error != VELORA_ERROR_CHANNELS, "channel count", std::to_string(channels),
                "1 to 32");
        if (error != VELORA_OK)
            throw std::invalid_argument(std::string("velora::Stream: in its options ") +
                                        velora_error_text(error));
        pulled.resize(kPullFrames * width());
        slowest = options.slowest;
        fastest = options.fastest;
    }

    static void require(bool holds, const char* what, const std::string& value, const char* range)
    {
        if (!holds)
            throw std::invalid_argument(std::string("velora::Stream: ") + what + " is " + value +
                                        "; it must be " + range);
    }

    std::int64_t check(std::int64_t result, double speed) const
    {
        if (result == VELORA_ERROR_SPEED)
            require(false, "speed", text(speed), (text(slowest) + " to " + text(fastest)).c_str());
        if (result == VELORA_ERROR_MEMORY)
            throw std::bad_alloc();
        return result;
    }

    static std::string text(double number)
    {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%.15g", number);
        return digits;
    }

    // An error that a wrong argument causes is "nothing was given".
    static std::size_t count(std::int64_t result)
    {
        if (result == VELORA_ERROR_MEMORY)
            throw std::bad_alloc();
        return sizeOf(result);
    }
    static std::int64_t positive(std::int64_t result)
    {
        return result < 0 ? 0 : result;
    }
    static std::size_t sizeOf(std::int64_t result)
    {
        constexpr std::uint64_t kMost = std::size_t(-1); // less than a count where it has 32 bits
        const auto size = std::uint64_t(positive(result));
        return std::size_t(size < kMost ? size : kMost);
    }
    static std::int64_t signedOf(std::size_t frames)
    {
        return std::int64_t(least(frames, std::size_t(-1) >> 1));
    }
    // What a reader returns: many give a negative number for an error.
    template <class Count>
    static std::size_t framesOf(Count read)
    {
        if constexpr (std::is_signed_v<Count>)
            return std::size_t(read < 0 ? 0 : read);
        else
            return std::size_t(read);
    }
    static std::size_t least(std::size_t a, std::size_t b)
    {
        return a < b ? a : b;
    }

    std::size_t width() const
    {
        return std::size_t(channels());
    }
    std::size_t framesIn(std::size_t samples) const
    {
        return self ? samples / width() : 0;
    }

    std::unique_ptr<velora_stream, Destroy> self;
    std::vector<Sample> pulled; // what pull has read last
    double slowest = kSlowest;
    double fastest = kFastest;
};

} // namespace velora

#endif
