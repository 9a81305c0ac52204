/* Variable-speed playback for programs in C and every language that calls C: velora::Stream
 * (see velora/stream.hpp) behind an opaque handle. Link velora::vsp_c.
 *
 *     velora_stream *stream;
 *     int error = velora_stream_create(&stream, 48000, 2, VELORA_FLOAT, VELORA_PITCH_KEEP);
 *     if (error) puts(velora_error_text(error));
 *     velora_stream_set_speed(stream, 0.8);
 *     int64_t got = velora_stream_process(stream, in, frames, out, room);
 *
 * A frame is one sample of every channel. Frames are counted from the start of the
 * stream: the first one that goes in is media frame 0 (see velora_stream_seek), the
 * first one that comes out is output frame 0, and sounds media frame 0. What comes out
 * doesn't depend on how input is cut into blocks.
 *
 * Errors: a negative result is a velora_error (but a position, in the last two calls); nothing then
 * has happened, unless velora_stream_process says otherwise. No C++ exception leaves a call. A null
 * handle is VELORA_ERROR_ARGUMENT (or does nothing, where there is no error to return).
 *
 * Threads: a stream is driven by one thread at a time; different streams are independent.
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

typedef struct velora_stream velora_stream;

enum velora_error {
    VELORA_OK = 0,
    VELORA_ERROR_ARGUMENT = -1, /* a null pointer, a negative count, an unknown pitch */
    VELORA_ERROR_RATE = -2,
    VELORA_ERROR_CHANNELS = -3,
    VELORA_ERROR_FORMAT = -4,
    VELORA_ERROR_SPEED = -5,
    VELORA_ERROR_MEMORY = -6
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

/* A static text that says what is wrong and what would be right; not to be freed. */
VELORA_C_API const char* velora_error_text(int error);

/* Such as "3.16.0": the version of the library. */
VELORA_C_API const char* velora_vsp_version(void);

/* Makes a stream at speed 1.0. On an error *stream is set to null.
 * sample_rate: 8000 to 192000 Hz; channels: 1 to 32; format, pitch: see above. */
VELORA_C_API int velora_stream_create(velora_stream** stream, int sample_rate, int channels,
                                      int format, int pitch);
/* Null does nothing. */
VELORA_C_API void velora_stream_destroy(velora_stream* stream);

/* Sets the speed, 0.125 to 8; 2.0 is twice as fast. Takes effect with the next frame that comes
 * out, or two hops later between speeds that need no fade. Ends what was planned. May allocate. */
VELORA_C_API int velora_stream_set_speed(velora_stream* stream, double speed);
/* Plans a change of speed from a media frame on, to the frame of output. Plan in order of time, as
 * far ahead as is known: what was planned from there on is dropped. A plan that comes too late is
 * velora_stream_set_speed: never, as long as `media_frame` is five hops ahead of the input. May
 * allocate. Returns the first output frame at which the speed holds. */
VELORA_C_API int64_t velora_stream_set_speed_at(velora_stream* stream, int64_t media_frame,
                                                double speed);
/* The speed last set or planned; 0 for a null handle. */
VELORA_C_API double velora_stream_speed(const velora_stream* stream);

/* Takes all of the input and writes what has come out, up to `room` frames; the rest stays inside
 * and comes first in the next call. Returns the frames written. With room for
 * velora_stream_max_output_frames(stream, frames) nothing stays. Input and output must not overlap.
 * Allocates only if output piles up for which there was no room. If memory then runs out, a part of
 * the call has been done: velora_stream_input_frames and velora_stream_output_frames tell how much,
 * and the next call goes on from there. The same holds for velora_stream_flush. */
VELORA_C_API int64_t velora_stream_process(velora_stream* stream, const void* in, int64_t frames,
                                           void* out, int64_t room); /* interleaved */
VELORA_C_API int64_t velora_stream_process_planar(velora_stream* stream, const void* const* in,
                                                  int64_t frames, void* const* out,
                                                  int64_t room); /* one pointer for each channel */

/* Ends the stream and writes what is still inside, up to `room` frames; call it again while it
 * returns `room`. The whole output then has exactly round(N / speed) frames for N frames of
 * input if the speed was set before the first; in any case,
 * velora_stream_output_frame_of(stream, the media frame behind the last one). From here on
 * process ignores its input and goes on with the rest, until reset or seek. */
VELORA_C_API int64_t velora_stream_flush(velora_stream* stream, void* out, int64_t room);
VELORA_C_API int64_t velora_stream_flush_planar(velora_stream* stream, void* const* out,
                                                int64_t room);

/* Makes the stream as new, at speed 1.0. */
VELORA_C_API int velora_stream_reset(velora_stream* stream);
/* Starts anew at the speed that was set: the next frame that goes in is media frame `media_frame`,
 * the next one that comes out is output frame 0 and sounds it. */
VELORA_C_API int velora_stream_seek(velora_stream* stream, int64_t media_frame);

/* Queries. All allow for what is inside and for a speed just set. */

/* Frames that the next process writes for `frames` frames of input if it has the room. */
VELORA_C_API int64_t velora_stream_max_output_frames(const velora_stream* stream, int64_t frames);
/* The least input after which `frames` frames of output are there. */
VELORA_C_API int64_t velora_stream_input_frames_for(const velora_stream* stream, int64_t frames);
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
 * speed. A negative result is a position before the start, no error; a null handle gives 0. */
VELORA_C_API int64_t velora_stream_media_frame_of(const velora_stream* stream,
                                                  int64_t output_frame);
VELORA_C_API int64_t velora_stream_output_frame_of(const velora_stream* stream,
                                                   int64_t media_frame);

#ifdef __cplusplus
}
#endif

#endif
