// The C interface: checks what C can get wrong, and lets no exception out.

#include <velora/vsp_c.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include <velora/vsp.h>

#include "convert/bridge.h"
#include "stream/stream.h"

struct velora_stream {
    explicit velora_stream(const vsp::StreamSettings& settings)
        : stream(settings), pulled(std::size_t(kPullFrames * settings.channels *
                                               vsp::bytesPerFrame(settings.depth) / 2))
    {
    }

    static constexpr std::int64_t kPullFrames = 1024;
    // Output that is asked for at a time, for which so much may be read: the question takes time.
    static constexpr std::int64_t kAskedFrames = 8 * kPullFrames;

    vsp::Stream stream;
    std::vector<std::byte> pulled; // what was read last
};

namespace {

using vsp::Destination;
using vsp::Source;

bool isBuffer(const void* buffer, std::int64_t frames)
{
    return frames == 0 || (frames > 0 && buffer != nullptr);
}

template <class Plane>
bool arePlanes(Plane* const* planes, std::int64_t frames, int channels)
{
    if (!isBuffer(planes, frames))
        return false;
    return frames == 0 || std::count(planes, planes + channels, nullptr) == 0;
}

/// Runs `call`, which only runs out of memory, if at all.
template <class Call>
std::int64_t guarded(Call call) noexcept
{
    try {
        return std::int64_t(call());
    } catch (...) {
        return VELORA_ERROR_MEMORY;
    }
}

/// The same for a call that returns nothing.
template <class Call>
int done(Call call) noexcept
{
    return int(guarded([&] {
        call();
        return VELORA_OK;
    }));
}

template <class Question>
std::int64_t ask(const velora_stream* stream, Question question)
{
    return stream == nullptr ? std::int64_t(VELORA_ERROR_ARGUMENT) : question(stream->stream);
}

std::int64_t processPlanes(velora_stream* stream, const void* const* in, std::int64_t frames,
                           void* const* out, std::int64_t room)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    const int channels = stream->stream.settings().channels;
    if (!arePlanes(in, frames, channels) || !arePlanes(out, room, channels))
        return VELORA_ERROR_ARGUMENT;
    return guarded([&] {
        return stream->stream.process(Source{nullptr, in, 0}, frames, Destination{nullptr, out, 0},
                                      room);
    });
}

template <class Sample>
std::int64_t processTyped(velora_stream* stream, Sample* const* in, std::int64_t frames,
                          Sample* const* out, std::int64_t room, bool isFormat)
{
    if (stream != nullptr && !isFormat)
        return VELORA_ERROR_FORMAT;
    const void* from[VELORA_MOST_CHANNELS] = {};
    void* to[VELORA_MOST_CHANNELS] = {};
    const int channels = stream == nullptr ? 0 : stream->stream.settings().channels;
    if (in != nullptr)
        std::copy(in, in + channels, from);
    if (out != nullptr)
        std::copy(out, out + channels, to);
    return processPlanes(stream, in == nullptr ? nullptr : from, frames,
                         out == nullptr ? nullptr : to, room);
}

bool hasDepth(const velora_stream* stream, Velora_BitDepth_T depth)
{
    return stream != nullptr && stream->stream.settings().depth == depth;
}

bool isOneOf(int value, int one, int other)
{
    return value == one || value == other;
}

// Velora_VSP_Sound_T values.
std::uint32_t soundOf(const velora_options& options, int sampleRate)
{
    if (options.sound == VELORA_SOUND_ENGINE)
        return Velora_VSP_Sound_Own;
    // Where the engine's window would last 46 to 64 ms.
    const bool isLong = sampleRate == 16000 || sampleRate == 22050 || sampleRate == 24000;
    const bool isShort = isLong || options.material == VELORA_MATERIAL_SPEECH;
    return Velora_VSP_Sound_LockedChannels | Velora_VSP_Sound_FullBand |
           Velora_VSP_Sound_EvenLevel | (isShort ? Velora_VSP_Sound_ShortHop : 0u);
}

int make(velora_stream** stream, const vsp::StreamSettings& settings)
{
    return done([&] { *stream = new velora_stream(settings); });
}

} // namespace

const char* velora_error_text(int error)
{
    switch (error) {
    case VELORA_OK:
        return "no error";
    case VELORA_ERROR_ARGUMENT:
        return "an argument is a null pointer, a negative count or an option out of range";
    case VELORA_ERROR_RATE:
        return "the sample rate is out of range; it must be 8000 to 192000 Hz";
    case VELORA_ERROR_CHANNELS:
        return "the channel count is out of range; it must be 1 to 32";
    case VELORA_ERROR_FORMAT:
        return "the sample format is unknown, or not the stream's; it must be one of enum "
               "velora_format";
    case VELORA_ERROR_SPEED:
        return "the speed is out of range; it must be 0.125 to 8, or as the stream's options say";
    case VELORA_ERROR_MEMORY:
        return "there is not enough memory";
    case VELORA_ERROR_CHANGES:
        return "as many changes of speed or jumps are in force as the stream was made for";
    default:
        return "unknown error";
    }
}

const char* velora_vsp_version(void)
{
    return VELORA_VSP_VERSION;
}

int velora_stream_open(velora_stream** stream, int sample_rate, int channels, int format,
                       const velora_options* options)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    *stream = nullptr;
    if (options == nullptr)
        return VELORA_ERROR_ARGUMENT;
    if (sample_rate < VELORA_LOWEST_RATE || sample_rate > VELORA_HIGHEST_RATE)
        return VELORA_ERROR_RATE;
    if (channels < 1 || channels > VELORA_MOST_CHANNELS)
        return VELORA_ERROR_CHANNELS;
    if (format < VELORA_INT16 || format > VELORA_FLOAT)
        return VELORA_ERROR_FORMAT;
    const bool speedsAreKnown = options->slowest >= VELORA_SLOWEST && options->slowest <= 1.0 &&
                                options->fastest >= 1.0 && options->fastest <= VELORA_FASTEST;
    if (!speedsAreKnown)
        return VELORA_ERROR_SPEED;
    constexpr std::int64_t kLongestBlock = std::int64_t(1) << 30;
    constexpr std::int64_t kMostChanges = std::int64_t(1) << 20;
    if (options->longest_block < 0 || options->longest_block > kLongestBlock ||
        options->changes < 0 || options->changes > kMostChanges)
        return VELORA_ERROR_ARGUMENT;
    if (!isOneOf(options->pitch, VELORA_PITCH_KEEP, VELORA_PITCH_DROP) ||
        !isOneOf(options->sound, VELORA_SOUND_NATURAL, VELORA_SOUND_ENGINE) ||
        !isOneOf(options->material, VELORA_MATERIAL_MUSIC, VELORA_MATERIAL_SPEECH))
        return VELORA_ERROR_ARGUMENT;
    return make(stream, vsp::StreamSettings{sample_rate, channels, Velora_BitDepth_T(format),
                                            options->pitch == VELORA_PITCH_DROP,
                                            soundOf(*options, sample_rate), options->slowest,
                                            options->fastest, options->longest_block,
                                            options->changes});
}

int velora_stream_create(velora_stream** stream, int sample_rate, int channels, int format,
                         int pitch)
{
    velora_options options = VELORA_OPTIONS;
    options.pitch = pitch;
    options.longest_block = 0;
    options.changes = 0;
    return velora_stream_open(stream, sample_rate, channels, format, &options);
}

void velora_stream_destroy(velora_stream* stream)
{
    delete stream;
}

int velora_stream_sample_rate(const velora_stream* stream)
{
    return stream == nullptr ? 0 : stream->stream.settings().sampleRate;
}

int velora_stream_channels(const velora_stream* stream)
{
    return stream == nullptr ? 0 : stream->stream.settings().channels;
}

int velora_stream_set_speed(velora_stream* stream, double speed)
{
    return velora_stream_set_speed_within(stream, speed, 0);
}

int velora_stream_set_speed_within(velora_stream* stream, double speed, int64_t within_frames)
{
    if (stream == nullptr || within_frames < 0)
        return VELORA_ERROR_ARGUMENT;
    if (!stream->stream.takesSpeed(speed))
        return VELORA_ERROR_SPEED;
    return done([&] { stream->stream.setSpeed(speed, within_frames); });
}

int64_t velora_stream_set_speed_at(velora_stream* stream, int64_t media_frame, double speed)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    if (!stream->stream.takesSpeed(speed))
        return VELORA_ERROR_SPEED;
    const std::int64_t output =
        guarded([&] { return stream->stream.setSpeedAt(media_frame, speed); });
    return output == -1 ? std::int64_t(VELORA_ERROR_CHANGES) : output;
}

int velora_stream_clear_plans(velora_stream* stream)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    return done([&] { stream->stream.clearPlans(); });
}

double velora_stream_speed(const velora_stream* stream)
{
    return stream == nullptr ? 0.0 : stream->stream.speed();
}

double velora_stream_speed_at(const velora_stream* stream, int64_t output_frame)
{
    return stream == nullptr ? 0.0 : stream->stream.speedAt(output_frame);
}

int velora_stream_request_speed(velora_stream* stream, double speed)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    if (!stream->stream.takesSpeed(speed))
        return VELORA_ERROR_SPEED;
    stream->stream.requestSpeed(speed);
    return VELORA_OK;
}

int64_t velora_stream_process(velora_stream* stream, const void* in, int64_t frames, void* out,
                              int64_t room)
{
    if (stream == nullptr || !isBuffer(in, frames) || !isBuffer(out, room))
        return VELORA_ERROR_ARGUMENT;
    return guarded([&] {
        return stream->stream.process(Source{in, nullptr, 0}, frames, Destination{out, nullptr, 0},
                                      room);
    });
}

int64_t velora_stream_process_planar(velora_stream* stream, const void* const* in, int64_t frames,
                                     void* const* out, int64_t room)
{
    return processPlanes(stream, in, frames, out, room);
}

int64_t velora_stream_process_int16(velora_stream* stream, int16_t* const* in, int64_t frames,
                                    int16_t* const* out, int64_t room)
{
    return processTyped(stream, in, frames, out, room, hasDepth(stream, Velora_BitDepth_16));
}

int64_t velora_stream_process_int32(velora_stream* stream, int32_t* const* in, int64_t frames,
                                    int32_t* const* out, int64_t room)
{
    return processTyped(stream, in, frames, out, room,
                        hasDepth(stream, Velora_BitDepth_24) ||
                            hasDepth(stream, Velora_BitDepth_32));
}

int64_t velora_stream_process_float(velora_stream* stream, float* const* in, int64_t frames,
                                    float* const* out, int64_t room)
{
    return processTyped(stream, in, frames, out, room, hasDepth(stream, Velora_BitDepth_Float));
}

int64_t velora_stream_flush(velora_stream* stream, void* out, int64_t room)
{
    if (stream == nullptr || !isBuffer(out, room))
        return VELORA_ERROR_ARGUMENT;
    return guarded([&] { return stream->stream.flush(Destination{out, nullptr, 0}, room); });
}

int64_t velora_stream_flush_planar(velora_stream* stream, void* const* out, int64_t room)
{
    if (stream == nullptr || !arePlanes(out, room, stream->stream.settings().channels))
        return VELORA_ERROR_ARGUMENT;
    return guarded([&] { return stream->stream.flush(Destination{nullptr, out, 0}, room); });
}

int64_t velora_stream_pull(velora_stream* stream, void* out, int64_t frames, velora_read read,
                           void* user)
{
    if (stream == nullptr || read == nullptr || !isBuffer(out, frames))
        return VELORA_ERROR_ARGUMENT;
    return guarded([&] {
        vsp::Stream& s = stream->stream;
        const Source source{stream->pulled.data(), nullptr, 0};
        std::int64_t given = 0;
        for (bool atEnd = false; given < frames && !atEnd;) {
            // A speed that was requested counts from here on.
            s.process(source, 0, Destination{out, nullptr, 0}, 0);
            const std::int64_t part = std::min(frames - given, velora_stream::kAskedFrames);
            const std::int64_t wanted =
                std::min(s.inputFramesFor(part), velora_stream::kPullFrames);
            const std::int64_t got =
                wanted == 0 ? 0
                            : std::clamp<std::int64_t>(read(user, stream->pulled.data(), wanted), 0,
                                                       wanted);
            given += s.process(source, got, Destination{out, nullptr, given}, frames - given);
            atEnd = got < wanted || s.hasEnded();
            if (atEnd)
                given += s.flush(Destination{out, nullptr, given}, frames - given);
        }
        return given;
    });
}

int velora_stream_reset(velora_stream* stream)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    return done([&] { stream->stream.reset(); });
}

int velora_stream_seek(velora_stream* stream, int64_t media_frame)
{
    return velora_stream_seek_with(stream, media_frame, nullptr, 0);
}

int velora_stream_seek_with(velora_stream* stream, int64_t media_frame, const void* before,
                            int64_t frames)
{
    if (stream == nullptr || !isBuffer(before, frames))
        return VELORA_ERROR_ARGUMENT;
    const Source source{before, nullptr, 0};
    return done([&] { stream->stream.seek(media_frame, source, frames); });
}

int velora_stream_jump(velora_stream* stream, int64_t media_frame)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    return stream->stream.jump(media_frame) ? VELORA_OK : VELORA_ERROR_CHANGES;
}

int64_t velora_stream_max_output_frames(const velora_stream* stream, int64_t frames)
{
    if (stream == nullptr || frames < 0)
        return VELORA_ERROR_ARGUMENT;
    return stream->stream.maxOutputFrames(frames);
}

int64_t velora_stream_input_frames_for(const velora_stream* stream, int64_t frames)
{
    if (stream == nullptr || frames < 0)
        return VELORA_ERROR_ARGUMENT;
    return stream->stream.inputFramesFor(frames);
}

int64_t velora_stream_most_input_frames(const velora_stream* stream, int64_t frames)
{
    if (stream == nullptr || frames < 0)
        return VELORA_ERROR_ARGUMENT;
    return stream->stream.mostInputFrames(frames);
}

int64_t velora_stream_latency_frames(const velora_stream* stream)
{
    return ask(stream, [](const vsp::Stream& s) { return s.latencyFrames(); });
}

int64_t velora_stream_input_frames(const velora_stream* stream)
{
    return ask(stream, [](const vsp::Stream& s) { return s.inputFrames(); });
}

int64_t velora_stream_output_frames(const velora_stream* stream)
{
    return ask(stream, [](const vsp::Stream& s) { return s.outputFrames(); });
}

int64_t velora_stream_hop_frames(const velora_stream* stream)
{
    return ask(stream, [](const vsp::Stream& s) { return s.hopFrames(); });
}

int64_t velora_stream_change_frame(const velora_stream* stream, double speed)
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    if (!stream->stream.takesSpeed(speed))
        return VELORA_ERROR_SPEED;
    return stream->stream.changeFrame(speed, 0);
}

int64_t velora_stream_media_frame_of(const velora_stream* stream, int64_t output_frame)
{
    return stream == nullptr ? 0 : stream->stream.mediaFrameOf(output_frame);
}

int64_t velora_stream_output_frame_of(const velora_stream* stream, int64_t media_frame)
{
    return stream == nullptr ? 0 : stream->stream.outputFrameOf(media_frame);
}

int velora_stream_clock(const velora_stream* stream, velora_clock* clock)
{
    if (stream == nullptr || clock == nullptr)
        return VELORA_ERROR_ARGUMENT;
    const vsp::Clock now = stream->stream.clock();
    *clock = velora_clock{now.mediaFrame, now.outputFrame, now.speed, now.seeks};
    return VELORA_OK;
}
