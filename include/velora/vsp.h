/// Velora VSP: plays stereo PCM faster or slower without changing its pitch.
///
///     Velora_VSP_Interface* engine = Velora_VSP_Factory::Create();
///     engine->Init(44100, Velora_BitDepth_16);
///     engine->SetPar(0.75f);
///     int outFrames = engine->Exe(out, in, inFrames);   // once per block of the stream
///     Velora_VSP_Factory::Destroy(engine);
///
/// Threads: one engine is driven by one thread at a time. Different engines share nothing that
/// changes, so any number of them may run on any threads at the same time. (All set the size of the
/// transforms in <velora/fft.h>, to the same value, and don't depend on it themselves.)
///
/// Real time: Exe, Exe_buffered and GetPredictedInputFrameSize neither allocate nor lock. The one
/// exception is the call that puts a SetPar in force, which may create or free a companion object.
#ifndef VELORA_VSP_H
#define VELORA_VSP_H

#include <stdint.h>

#if defined(__GNUC__)
#define VELORA_VSP_API __attribute__((visibility("default")))
#else
#define VELORA_VSP_API
#endif

/// Sample format of the caller's stream. Samples are interleaved: left, right, left, right.
enum Velora_BitDepth_T : int32_t {
    Velora_BitDepth_16 = 0,    ///< int16_t
    Velora_BitDepth_24 = 1,    ///< int32_t holding a sign-extended 24-bit value, -8388608..8388607
    Velora_BitDepth_32 = 2,    ///< int32_t, whole range
    Velora_BitDepth_Float = 3, ///< float, full scale -1.0..1.0
};

/// One stream. Create it with Velora_VSP_Factory; the class is not for deriving.
class VELORA_VSP_API Velora_VSP_Interface {
public:
    /// Starts a stream of the given format from silence, at speed 1.0.
    ///
    /// Takes effect at the next processing call: everything buffered or carried is dropped and the
    /// speed in force is forgotten. A SetPar that is still waiting is applied right after it.
    ///
    /// @param sampleRate  caller's rate in Hz. Rates above 48000 run at a half, rates above 96000
    ///                    at a quarter of it inside, 16 bits wide at every format. Any value is
    ///                    accepted; the engine is made for 8000, 11025, 12000, 16000, 22050, 24000,
    ///                    32000, 44100, 48000, 64000, 88200, 96000, 128000, 176400 and 192000.
    /// @param bitDepth    sample format of in and out; an unknown value is taken as 16-bit.
    ///
    /// At 16000, 22050 and 24000 Hz every speed that goes through the vocoder (all but 1.0, 0.5,
    /// 0.25 and 0.125) returns the low band, below about 0.22 of the rate, with its polarity turned
    /// over, unless the engine is told to go beyond its own sound (Velora_VSP_Sound_T); a fade from
    /// or to 1.0 therefore dips where the two cancel.
    virtual void Init(int sampleRate, Velora_BitDepth_T bitDepth) = 0;

    /// Sets the playback speed: 1.0 is normal, 0.5 half, 2.0 double. Range 0.125 to 8.0.
    ///
    /// Anything else, "not a number" included, means 1.0. Takes effect at the next processing call,
    /// or, while a change from or to 1.0 is still being faded, at the first piece of 2048 caller
    /// frames after that fade; of several calls only the last one counts.
    ///
    /// A change away from 1.0 is heard after about 4096 working-rate frames (up to 9216 more when
    /// the level jumps) and faded in over 2048; a change back to 1.0 is faded over 2048.
    ///
    /// A change away from 1.0 starts the signal path from silence: frames that were carried over,
    /// and those that wait in the decimator, are dropped.
    ///
    /// Speeds up to 0.5 pass a fourth-order low-pass at 2 kHz (at a half or a quarter of that above
    /// 48000 or 96000 Hz) and a gain of -13 dB, from the first hop on: also the input heard before
    /// the fade, which itself starts from the unfiltered input. Exactly 0.5, 0.25 and 0.125 go
    /// through the sample-rate converter instead of the vocoder, at once and without a fade: the
    /// pitch drops with the speed, as on a slowed tape.
    virtual void SetPar(float speed) = 0;

    /// Processes one block and returns the number of frames written to `out`.
    ///
    /// @param out     room for the result: ceil((frames + 3) / v) frames, plus one hop, plus what
    ///                was carried over. v is the slowest of 1.0, the speed in force and the speed
    ///                set last: during a fade the engine returns a frame for a frame, or still the
    ///                old speed's output. At most 16384 working-rate frames are carried over, and
    ///                only after GetPredictedInputFrameSize. Safe at any speed: 8 * (frames + 3)
    ///                plus the hop, plus what was carried over. Must not overlap `in`. Nothing is
    ///                written behind the returned count.
    /// @param in      `frames` frames in the format and at the rate given to Init
    /// @param frames  0 or less: returns 0, after applying pending settings
    ///
    /// The engine works in hops of 128 (8000, 11025, 12000 Hz), 256 (16000, 22050, 24000 Hz) or
    /// else 512 frames at the working rate; that is 2 or 4 times as many of the caller's above
    /// 48000 or 96000 Hz. A block is cut into pieces of 2048 caller frames, these into hops. A
    /// count that is no multiple of the hop is processed as a shorter last hop, which is heard as a
    /// flaw at speeds other than 1.0: pass whole hops, or use Exe_buffered. Of a last hop that is
    /// no multiple of the low band's decimation (2 at 256-frame hops, 4 at 512), the frames that
    /// the interpolator does not reach (1 to 3) are silence. Above 48000 Hz a frame without its
    /// partners for one working-rate frame waits in the decimator for the next call.
    ///
    /// Before the first Init the engine is as after Init(44100, Velora_BitDepth_16).
    virtual int Exe(void* out, const void* in, int frames) = 0;

    /// As Exe, for blocks of any size: collects input and processes it in chunks of 512 frames at
    /// the working rate (512, 1024 or 2048 of the caller's). Input that doesn't fill a chunk waits
    /// for a later call.
    ///
    /// @param out     room as for Exe, for the frames of every chunk that this call completes
    /// @param in      as for Exe
    /// @param frames  as for Exe
    virtual int Exe_buffered(void* out, const void* in, int frames) = 0;

    /// Returns how many input frames the next Exe needs to return `outFrames` frames,
    /// and limits what the vocoder adds to that Exe's output to `outFrames` frames in
    /// all; hops beyond them are carried over and returned ahead of what follows.
    /// Pass-through and the converter are not limited.
    ///
    /// Both counts are at the working rate: multiply by 2 above 48000 Hz, by 4 above 96000 Hz. The
    /// result is a whole number of hops, at most the largest one that fits an int; 0 when what was
    /// carried over is enough. Frames that wait in Exe_buffered are not counted. Takes up to 10 ns
    /// for each hop of output that is asked for: nothing for a buffer, milliseconds for hours.
    ///
    /// The limit holds for the first 2048 caller frames of the next block: pass the predicted count
    /// in blocks of at most that. More input than predicted loses nothing (but see SetPar and
    /// Init). Don't limit at speeds up to 0.5: carried frames miss the low-pass and the -13 dB.
    virtual int GetPredictedInputFrameSize(int outFrames) = 0;

    /// Static text that names the version; not to be freed.
    virtual const char* Get_Version() = 0;

    virtual ~Velora_VSP_Interface() {}
};

/// Creates and destroys engines. Any thread.
class VELORA_VSP_API Velora_VSP_Factory {
public:
    /// A new engine, about 240 KiB; its calls need up to 32 KiB of stack. Throws std::bad_alloc if
    /// there is no memory.
    static Velora_VSP_Interface* Create();
    /// Destroys an engine made by Create; null does nothing.
    static void Destroy(Velora_VSP_Interface* engine);
};

/// What an engine may do beyond its own sound, one bit each, for Velora_VSP_Conductor::SetSound.
enum Velora_VSP_Sound_T : uint32_t {
    Velora_VSP_Sound_Own = 0,
    /// Phases are locked between the channels, not within each by itself: what is in the middle
    /// stays there.
    Velora_VSP_Sound_LockedChannels = 1,
    /// Speeds up to 0.5 keep their treble and their level: no low-pass, no -13 dB, the whole high
    /// band.
    Velora_VSP_Sound_FullBand = 2,
    /// As loud as the input at every speed: what the synthesis loses is measured as the stream goes
    /// and made good, slowly, by -0.9 to 4 dB; fades of the high band keep its level, too.
    Velora_VSP_Sound_EvenLevel = 4,
    /// A hop of half as many frames, where there is one: better for speech and drums.
    Velora_VSP_Sound_ShortHop = 8,
};

/// For players that lead several engines as one, such as velora::Stream: more than two channels, or
/// speeds that follow a course. For engines made by Velora_VSP_Factory; on their thread.
class VELORA_VSP_API Velora_VSP_Conductor {
public:
    /// Puts a speed in force from the next hop on, without the transition from or to 1.0 that
    /// SetPar makes: from 1.0 the vocoder starts as it stands, which is in silence after Init.
    /// Filters and converter go on with their state if they run already, so slow speeds may glide.
    /// What SetPar takes for 1.0 is 1.0 here. Never allocates, unless a SetPar has dropped the
    /// converter that is needed now.
    static void SetSpeedNow(Velora_VSP_Interface* engine, float speed);

    /// Chooses what the engine does beyond its own sound, Velora_VSP_Sound_T values combined, from
    /// the next Init on. After Create it does nothing beyond.
    static void SetSound(Velora_VSP_Interface* engine, uint32_t sound);

    /// Caller frames of a hop, in the format that the last Init set.
    static int HopFrames(Velora_VSP_Interface* engine);
    /// Processes one hop as Exe does, but in steps, so that no call takes longer than the work for
    /// one hop of output. TakeHop takes in [HopFrames]; then GiveHop is to be called until it
    /// returns 0. Each time it returns HopFrames it has written as many to out. Not at speed 1.0,
    /// not at the speeds of the converter, and not while a transition runs.
    static void TakeHop(Velora_VSP_Interface* engine, const void* in);
    static int GiveHop(Velora_VSP_Interface* engine, void* out);

    /// Each of these in stages of about equal work, for who spreads it over several calls: the
    /// stages one after another, from 0 on, are one TakeHop or, where one is due, one GiveHop. `in`
    /// is read in the first two, `out` written in the last two.
    static constexpr int kTakeStages = 5;
    static constexpr int kGiveStages = 6;
    static void TakeStage(Velora_VSP_Interface* engine, int stage, const void* in);
    static void GiveStage(Velora_VSP_Interface* engine, int stage, void* out);

    /// Right after SetSpeedNow on a new Init, for an engine that is to join a stream which has been
    /// playing: the first GiveHop is due after `hops` hops, 1 or more, not after the first, and is in
    /// phase with the input. A fraction lets it lie so far behind an analysis frame. From seven hops
    /// on it knows all of its input. Of the first kUnheardHops TakeHops only kUnheardStages stages do
    /// anything.
    static constexpr int kUnheardHops = 3;
    static constexpr int kUnheardStages = 3;
    static void Prime(Velora_VSP_Interface* engine, float hops);

    /// Before a GiveHop, with LockedChannels: steers the phases of the frame that it makes towards those
    /// of the input `lead` hops ahead of where the frame lies, behind if below 0, by `share` of what
    /// they differ by, 0 to 1. For who goes on with the input itself some frames later: steered there
    /// little by little, the two are in phase. Holds until it is called again, or the next Init.
    static void Steer(Velora_VSP_Interface* engine, float lead, float share);

    /// To be called when all of `engines` have processed the same hop: the onset that any of them
    /// found in it counts for all. Onsets then fall on the same frames in all of them.
    static void ShareOnsets(Velora_VSP_Interface* const* engines, int count);

    /// To be called when all of `engines`, at most 16 and with LockedChannels, have done the first
    /// stage of the same GiveHop: phases are then locked between the channels of all of them.
    static void ShareTurns(Velora_VSP_Interface* const* engines, int count);
};

#endif
