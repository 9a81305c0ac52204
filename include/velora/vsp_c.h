/* Variable-speed playback for programs in C and every language that calls C. Link velora::vsp_c.
 * (In C++, velora/stream.hpp is the same with types.)
 *
 *     velora_stream* stream;
 *     int error = velora_stream_create(&stream, 48000, 2, VELORA_FLOAT, VELORA_PITCH_KEEP);
 *     if (error) puts(velora_error_text(error));
 *     velora_stream_set_speed(stream, 0.8);
 *     int64_t got = velora_stream_pull(stream, out, 512, read_some, file);
 *
 * A frame is one sample of every channel. Frames are counted from the start of the stream: the
 * first one that goes in is media frame 0 (see velora_stream_seek), the first one that comes out is
 * output frame 0, and sounds media frame 0. What comes out doesn't depend on how input is cut into
 * blocks.
 *
 * Errors: a negative result is a velora_error (but a position, where it says so); nothing then has
 * happened, unless velora_stream_process says otherwise. No C++ exception leaves a call. A null
 * handle is VELORA_ERROR_ARGUMENT (or does nothing, where there is no error to return).
 *
 * Real time: only making and destroying a stream allocates, frees, locks or calls the system. A
 * stream that is made without a longest block may do so, too, where it says so below. With one,
 * the work for a hop of output is spread over the frames of the one before, and its input needed
 * up to a hop earlier.
 *
 * Threads: a stream is driven by one thread at a time; different streams are independent. Any
 * thread may meanwhile call velora_stream_clock and velora_stream_request_speed.
 * velora_error_text and velora_vsp_version may be called anywhere.
 */
#ifndef VELORA_VSP_C_H
#define VELORA_VSP_C_H

#include <stdint.h>

#if defined(__GNUC__)
#define VELORA_C_API __attribute__((visibility("default")))
#else
#define VELORA_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this header; velora_vsp_version() tells that of the library. */
#define VELORA_VSP_VERSION_MAJOR 3
#define VELORA_VSP_VERSION_MINOR 17
#define VELORA_VSP_VERSION_PATCH 0

#define VELORA_LOWEST_RATE 8000 /* Hz */
#define VELORA_HIGHEST_RATE 192000
#define VELORA_MOST_CHANNELS 32
#define VELORA_SLOWEST 0.125
#define VELORA_FASTEST 8.0

typedef struct velora_stream velora_stream;

enum velora_error {
    VELORA_OK = 0,
    VELORA_ERROR_ARGUMENT = -1, /* a null pointer, a negative count, an unknown pitch, sound, ... */
    VELORA_ERROR_RATE = -2,
    VELORA_ERROR_CHANNELS = -3,
    VELORA_ERROR_FORMAT = -4,
    VELORA_ERROR_SPEED = -5,
    VELORA_ERROR_MEMORY = -6,
    VELORA_ERROR_CHANGES = -7 /* as many changes are in force as the stream was made for */
};

/* Samples in native byte order. */
enum velora_format {
    VELORA_INT16 = 0,       /* int16_t */
    VELORA_INT24_IN_32 = 1, /* int32_t holding a sign-extended 24-bit value */
    VELORA_INT32 = 2,       /* int32_t, whole range */
    VELORA_FLOAT = 3        /* float, full scale -1.0 to 1.0 */
};

/* What the speeds 0.5, 0.25 and 0.125 do to the pitch. Every other speed keeps it. */
enum velora_pitch {
    VELORA_PITCH_KEEP = 0, /* as at every other speed */
    VELORA_PITCH_DROP = 1  /* as on a slowed tape */
};

/* What is heard at speeds other than 1.0. */
enum velora_sound {
    VELORA_SOUND_NATURAL = 0, /* in the middle what is in the middle, as loud, bright and clean as
                               * the input */
    VELORA_SOUND_ENGINE = 1   /* the bare engine, to the bit: up to 0.5 dark and quiet */
};
/* What the natural sound is tuned for. At 16000, 22050 and 24000 Hz it makes no difference. */
enum velora_material {
    VELORA_MATERIAL_MUSIC = 0,
    VELORA_MATERIAL_SPEECH = 1 /* and drums: a shorter window */
};

/* A static text that says what is wrong and what would be right; not to be freed. */
VELORA_C_API const char* velora_error_text(int error);

/* Such as "3.17.0": the version of the library. */
VELORA_C_API const char* velora_vsp_version(void);

/* ---- Making one ---- */

/* What a stream is made for. Fill in with VELORA_OPTIONS first, then change what you want. */
typedef struct velora_options {
    int pitch;             /* a velora_pitch */
    double slowest;        /* 0.125 to 1: the slowest speed that will be set */
    double fastest;        /* 1 to 8 */
    int64_t longest_block; /* frames of input that may wait inside because output has no room:
                            * 1 to 2^30. All memory is then taken at once. 0: as much as comes,
                            * memory is taken when more waits than ever before. */
    int64_t changes;       /* speeds that are planned, and jumps that are not heard yet: 1 to 2^20;
                            * 0: as longest_block, but 64 at the start */
    int sound;             /* a velora_sound */
    int material;          /* a velora_material */
} velora_options;

#define VELORA_OPTIONS                                                                             \
    {                                                                                              \
        VELORA_PITCH_KEEP, VELORA_SLOWEST, VELORA_FASTEST, 4096, 64, VELORA_SOUND_NATURAL,         \
            VELORA_MATERIAL_MUSIC                                                                  \
    }

/* Makes a stream at speed 1.0. On an error *stream is set to null.
 * sample_rate: 8000 to 192000 Hz; channels: 1 to 32; format: see above. Options out of range are
 * VELORA_ERROR_ARGUMENT, or VELORA_ERROR_SPEED. */
VELORA_C_API int velora_stream_open(velora_stream** stream, int sample_rate, int channels,
                                    int format, const velora_options* options);
/* The same for every speed, any block and any number of changes, with the natural sound for music:
 * longest_block and changes are 0. */
VELORA_C_API int velora_stream_create(velora_stream** stream, int sample_rate, int channels,
                                      int format, int pitch);
/* Null does nothing. */
VELORA_C_API void velora_stream_destroy(velora_stream* stream);

/* What it was made for; 0 for a null handle. */
VELORA_C_API int velora_stream_sample_rate(const velora_stream* stream);
VELORA_C_API int velora_stream_channels(const velora_stream* stream);

/* ---- Speeds ---- */

/* Sets the speed; 2.0 is twice as fast. Takes effect with the next frame that comes out; between
 * speeds that need no fade, some two hops later. Ends what was planned. */
VELORA_C_API int velora_stream_set_speed(velora_stream* stream, double speed);
/* The same, but where it takes a fade, that comes `within_frames` frames of output from now. The
 * work for it is then spread over the calls up to there, at most eight hops. What was set or
 * planned before still comes first if it comes until then. */
VELORA_C_API int velora_stream_set_speed_within(velora_stream* stream, double speed,
                                                int64_t within_frames);
/* Plans a change of speed from a media frame on, to the frame of output, in any order: it holds up
 * to the next planned one. A plan for a frame that has one replaces that; one that would not sound
 * for a single frame of output is left out. A plan that comes too late takes effect as soon as
 * velora_stream_set_speed would; it is never late as long as `media_frame` is five hops ahead of
 * the input. Plans are for the media that goes in now: seek forgets all of them, jump those for
 * frames that it leaves out. Returns the first output frame at which the speed holds, as things
 * stand; or VELORA_ERROR_CHANGES. */
VELORA_C_API int64_t velora_stream_set_speed_at(velora_stream* stream, int64_t media_frame,
                                                double speed);
/* Forgets what is planned. A speed that was set stays. */
VELORA_C_API int velora_stream_clear_plans(velora_stream* stream);
/* The speed last set or planned; 0 for a null handle. */
VELORA_C_API double velora_stream_speed(const velora_stream* stream);
/* The speed of an output frame, planned ones included; 0 for a null handle. */
VELORA_C_API double velora_stream_speed_at(const velora_stream* stream, int64_t output_frame);
/* From any thread: the next call that processes sets this speed, as velora_stream_set_speed would.
 * Of several the last one counts. Queries don't know of it before that call (which may be for 0
 * frames); seek leaves it as it is, reset forgets it. */
VELORA_C_API int velora_stream_request_speed(velora_stream* stream, double speed);

/* ---- Processing ---- */

/* Takes the input and writes what comes out, up to `room` frames; the rest waits inside. Returns
 * the frames written. With room for velora_stream_max_output_frames(stream, frames) nothing waits.
 * Input and output must not overlap. Of more input than may wait (see velora_options) the last
 * frames are not taken: velora_stream_input_frames tells how many were. If a stream without a
 * longest block finds no memory, a part of the call has been done: it and
 * velora_stream_output_frames tell how much, and the next call goes on from there. */
VELORA_C_API int64_t velora_stream_process(velora_stream* stream, const void* in, int64_t frames,
                                           void* out, int64_t room); /* interleaved */
/* The same for one pointer to samples for each channel. In C, arrays of typed pointers need a cast
 * to these types; velora_stream_process_int16 and its like need none. */
VELORA_C_API int64_t velora_stream_process_planar(velora_stream* stream, const void* const* in,
                                                  int64_t frames, void* const* out, int64_t room);

/* Ends the stream and writes what is still inside, up to `room` frames; call it again while it
 * returns `room`. The whole output then has exactly round(N / speed) frames for N frames of input
 * if the speed was set before the first; in any case, velora_stream_output_frame_of(stream, the
 * media frame behind the last one). From here on process ignores its input and goes on with the
 * rest, until reset or seek. */
VELORA_C_API int64_t velora_stream_flush(velora_stream* stream, void* out, int64_t room);
VELORA_C_API int64_t velora_stream_flush_planar(velora_stream* stream, void* const* out,
                                                int64_t room);

/* Reads up to `frames` frames, interleaved, into `buffer` and returns how many; fewer only at the
 * end of the sound. */
typedef int64_t (*velora_read)(void* user, void* buffer, int64_t frames);
/* Fills `out` with `frames` frames, for which it reads as much as they need, in pieces of at most
 * 1024 frames. Where `read` gives less than it was asked for, the stream ends, as by flush; a
 * negative number is taken for 0, a larger one for what was asked for. `read` must not call for the
 * stream itself: to loop or to go on with another piece, give it what
 * velora_stream_input_frames_for asks for by velora_stream_process, with velora_stream_jump between
 * two calls. Returns the frames written: fewer than `frames` only at the end. */
VELORA_C_API int64_t velora_stream_pull(velora_stream* stream, void* out, int64_t frames,
                                        velora_read read, void* user);

/* ---- Places ---- */

/* Makes the stream as new, at speed 1.0. */
VELORA_C_API int velora_stream_reset(velora_stream* stream);
/* Starts anew at the speed that sounds: the next frame that goes in is media frame `media_frame`,
 * the next one that comes out is output frame 0 and sounds it. The first few milliseconds are faded
 * in, unless media_frame is 0. What was planned is dropped, and a speed that was set but isn't heard
 * yet. */
VELORA_C_API int velora_stream_seek(velora_stream* stream, int64_t media_frame);
/* The same, with what lies before that place: `frames` frames, of which the last 6 hops at most
 * are used. Output then begins as if it had been playing before. */
VELORA_C_API int velora_stream_seek_with(velora_stream* stream, int64_t media_frame,
                                         const void* before, int64_t frames); /* interleaved */
/* The next frame that goes in is media frame `media_frame`; all that went in before still comes
 * out, and output frames go on: for loops, for silence that is left out, for the next piece. The
 * two are blended over a few milliseconds. Media frames in other calls are those of the stretch
 * that goes in from here on. What was planned for frames behind the last one that went in is
 * forgotten. After flush it does nothing. */
VELORA_C_API int velora_stream_jump(velora_stream* stream, int64_t media_frame);

/* ---- Queries. All allow for what is inside and for a speed just set. ---- */

/* Frames that the next process writes for `frames` frames of input if it has the room. */
VELORA_C_API int64_t velora_stream_max_output_frames(const velora_stream* stream, int64_t frames);
/* The least input after which `frames` frames of output are there. */
VELORA_C_API int64_t velora_stream_input_frames_for(const velora_stream* stream, int64_t frames);
/* The most that that can ever be. */
VELORA_C_API int64_t velora_stream_most_input_frames(const velora_stream* stream, int64_t frames);
/* Media inside the stream: from the next frame that will come out to the end of what went in. */
VELORA_C_API int64_t velora_stream_latency_frames(const velora_stream* stream);
/* Frames that went in, and frames that came out, since the start or the last seek. */
VELORA_C_API int64_t velora_stream_input_frames(const velora_stream* stream);
VELORA_C_API int64_t velora_stream_output_frames(const velora_stream* stream);
/* Frames of input that the engine takes at a time: 128 to 2048, by the rate. */
VELORA_C_API int64_t velora_stream_hop_frames(const velora_stream* stream);
/* The output frame from which `speed` holds if it is set now; VELORA_ERROR_SPEED out of range. */
VELORA_C_API int64_t velora_stream_change_frame(const velora_stream* stream, double speed);
/* The media frame that an output frame sounds, and back, to the nearest; right across changes of
 * speed and jumps that may still be heard. A negative result is a position before the start, no
 * error; a null handle gives 0. */
VELORA_C_API int64_t velora_stream_media_frame_of(const velora_stream* stream,
                                                  int64_t output_frame);
VELORA_C_API int64_t velora_stream_output_frame_of(const velora_stream* stream,
                                                   int64_t media_frame);

typedef struct velora_clock {
    int64_t media_frame;  /* that the next frame of output sounds */
    int64_t output_frame; /* frames that came out since the start or the last seek */
    double speed;         /* of the next frame of output */
    int64_t seeks;        /* and resets, since the stream was made */
} velora_clock;
/* Where the stream was after the last call that moved it. From any thread, without waiting. */
VELORA_C_API int velora_stream_clock(const velora_stream* stream, velora_clock* clock);

/* ---- Planar processing, typed: one pointer for each channel. For a stream of another format they
 *      return VELORA_ERROR_FORMAT. After velora_stream_flush(stream, NULL, 0) they give the rest.
 *      ---- */
VELORA_C_API int64_t velora_stream_process_int16(velora_stream* stream, int16_t* const* in,
                                                 int64_t frames, int16_t* const* out, int64_t room);
VELORA_C_API int64_t velora_stream_process_int32(velora_stream* stream, int32_t* const* in,
                                                 int64_t frames, int32_t* const* out,
                                                 int64_t room); /* 24-bit ones, too */
VELORA_C_API int64_t velora_stream_process_float(velora_stream* stream, float* const* in,
                                                 int64_t frames, float* const* out, int64_t room);

#ifdef __cplusplus
}
#endif

#endif
