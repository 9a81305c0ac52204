// The C interface: picks the Stream for a format known only at run time, and turns exceptions into
// error codes.

#include <velora/vsp_c.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>

#include <velora/stream.hpp>

namespace {

using AnyStream =
    std::variant<velora::Stream<std::int16_t>, velora::Stream<velora::Int24In32>,
                 velora::Stream<std::int32_t>, velora::Stream<float>>; // in order of velora_format

template <class Stream>
using SampleOf = typename std::decay_t<Stream>::Sample;

// The caller's planes, as pointers to samples.
template <class Sample, class Plane>
std::array<Sample*, velora::Stream<>::kMostChannels> typed(Plane* const* planes, int channels)
{
    std::array<Sample*, velora::Stream<>::kMostChannels> pointers{};
    for (int channel = 0; channel < channels; ++channel)
        pointers[std::size_t(channel)] = static_cast<Sample*>(planes[channel]);
    return pointers;
}

template <std::size_t index = 0>
AnyStream makeStream(std::size_t format, int sampleRate, int channels, velora::Pitch pitch)
{
    if constexpr (index + 1 < std::variant_size_v<AnyStream>)
        if (format != index)
            return makeStream<index + 1>(format, sampleRate, channels, pitch);
    return AnyStream(std::in_place_index<index>, sampleRate, channels, pitch);
}

} // namespace

struct velora_stream {
    AnyStream any;
};

namespace {

/// Runs `call` on the stream of whichever format.
/// @returns what it returns, 0 if that is nothing; or an error
template <class Handle, class Call>
std::int64_t with(Handle* stream, Call call) noexcept
{
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    try {
        return std::visit(
            [&](auto& typedStream) -> std::int64_t {
                if constexpr (std::is_void_v<decltype(call(typedStream))>) {
                    call(typedStream);
                    return VELORA_OK;
                } else {
                    return std::int64_t(call(typedStream));
                }
            },
            stream->any);
    } catch (const std::invalid_argument&) {
        return VELORA_ERROR_SPEED; // all that a stream once made can object to
    } catch (...) {
        return VELORA_ERROR_MEMORY;
    }
}

bool isBuffer(const void* buffer, std::int64_t frames)
{
    return frames == 0 || (frames > 0 && buffer != nullptr);
}

template <class Pointers>
bool anyNull(const Pointers& planes, std::int64_t frames, int channels)
{
    return frames > 0 && std::count(planes.begin(), planes.begin() + channels, nullptr) > 0;
}

} // namespace

const char* velora_error_text(int error)
{
    switch (error) {
    case VELORA_OK:
        return "no error";
    case VELORA_ERROR_ARGUMENT:
        return "an argument is a null pointer, a negative count or an unknown pitch";
    case VELORA_ERROR_RATE:
        return "the sample rate is out of range; it must be 8000 to 192000 Hz";
    case VELORA_ERROR_CHANNELS:
        return "the channel count is out of range; it must be 1 to 32";
    case VELORA_ERROR_FORMAT:
        return "the sample format is unknown; it must be one of enum velora_format";
    case VELORA_ERROR_SPEED:
        return "the speed is out of range; it must be 0.125 to 8";
    case VELORA_ERROR_MEMORY:
        return "there is not enough memory";
    default:
        return "unknown error";
    }
}

const char* velora_vsp_version(void)
{
    return VELORA_VSP_VERSION;
}

int velora_stream_create(velora_stream** stream, int sample_rate, int channels, int format,
                         int pitch)
{
    using Any = velora::Stream<>; // limits are the same for every format
    if (stream == nullptr)
        return VELORA_ERROR_ARGUMENT;
    *stream = nullptr;
    if (sample_rate < Any::kLowestRate || sample_rate > Any::kHighestRate)
        return VELORA_ERROR_RATE;
    if (channels < 1 || channels > Any::kMostChannels)
        return VELORA_ERROR_CHANNELS;
    if (format < VELORA_INT16 || format > VELORA_FLOAT)
        return VELORA_ERROR_FORMAT;
    if (pitch != VELORA_PITCH_KEEP && pitch != VELORA_PITCH_DROP)
        return VELORA_ERROR_ARGUMENT;
    try {
        const auto kind = pitch == VELORA_PITCH_DROP ? velora::Pitch::drop : velora::Pitch::keep;
        *stream = new velora_stream{makeStream(std::size_t(format), sample_rate, channels, kind)};
        return VELORA_OK;
    } catch (...) {
        return VELORA_ERROR_MEMORY;
    }
}

void velora_stream_destroy(velora_stream* stream)
{
    delete stream;
}

int velora_stream_set_speed(velora_stream* stream, double speed)
{
    return int(with(stream, [=](auto& s) { s.setSpeed(speed); }));
}

int64_t velora_stream_set_speed_at(velora_stream* stream, int64_t media_frame, double speed)
{
    return with(stream, [=](auto& s) { return s.setSpeedAt(media_frame, speed); });
}

double velora_stream_speed(const velora_stream* stream)
{
    return stream == nullptr ? 0.0
                             : std::visit([](const auto& s) { return s.speed(); }, stream->any);
}

int64_t velora_stream_process(velora_stream* stream, const void* in, int64_t frames, void* out,
                              int64_t room)
{
    if (!isBuffer(in, frames) || !isBuffer(out, room))
        return VELORA_ERROR_ARGUMENT;
    return with(stream, [=](auto& s) {
        using Sample = SampleOf<decltype(s)>;
        return s.process(static_cast<const Sample*>(in), std::size_t(frames),
                         static_cast<Sample*>(out), std::size_t(room));
    });
}

int64_t velora_stream_process_planar(velora_stream* stream, const void* const* in, int64_t frames,
                                     void* const* out, int64_t room)
{
    if (!isBuffer(in, frames) || !isBuffer(out, room))
        return VELORA_ERROR_ARGUMENT;
    return with(stream, [=](auto& s) -> std::int64_t {
        using Sample = SampleOf<decltype(s)>;
        const auto from = typed<const Sample>(in, frames > 0 ? s.channels() : 0);
        const auto to = typed<Sample>(out, room > 0 ? s.channels() : 0);
        if (anyNull(from, frames, s.channels()) || anyNull(to, room, s.channels()))
            return VELORA_ERROR_ARGUMENT;
        return std::int64_t(
            s.process(from.data(), std::size_t(frames), to.data(), std::size_t(room)));
    });
}

int64_t velora_stream_flush(velora_stream* stream, void* out, int64_t room)
{
    if (!isBuffer(out, room))
        return VELORA_ERROR_ARGUMENT;
    return with(stream, [=](auto& s) {
        return s.flush(static_cast<SampleOf<decltype(s)>*>(out), std::size_t(room));
    });
}

int64_t velora_stream_flush_planar(velora_stream* stream, void* const* out, int64_t room)
{
    if (!isBuffer(out, room))
        return VELORA_ERROR_ARGUMENT;
    return with(stream, [=](auto& s) -> std::int64_t {
        const auto to = typed<SampleOf<decltype(s)>>(out, room > 0 ? s.channels() : 0);
        if (anyNull(to, room, s.channels()))
            return VELORA_ERROR_ARGUMENT;
        return std::int64_t(s.flush(to.data(), std::size_t(room)));
    });
}

int velora_stream_reset(velora_stream* stream)
{
    return int(with(stream, [](auto& s) { s.reset(); }));
}

int velora_stream_seek(velora_stream* stream, int64_t media_frame)
{
    return int(with(stream, [=](auto& s) { s.seek(media_frame); }));
}

int64_t velora_stream_max_output_frames(const velora_stream* stream, int64_t frames)
{
    if (frames < 0)
        return VELORA_ERROR_ARGUMENT;
    return with(stream, [=](const auto& s) { return s.maxOutputFrames(std::size_t(frames)); });
}

int64_t velora_stream_input_frames_for(const velora_stream* stream, int64_t frames)
{
    if (frames < 0)
        return VELORA_ERROR_ARGUMENT;
    return with(stream, [=](const auto& s) { return s.inputFramesFor(std::size_t(frames)); });
}

int64_t velora_stream_latency_frames(const velora_stream* stream)
{
    return with(stream, [](const auto& s) { return s.latencyFrames(); });
}

int64_t velora_stream_input_frames(const velora_stream* stream)
{
    return with(stream, [](const auto& s) { return s.inputFrames(); });
}

int64_t velora_stream_output_frames(const velora_stream* stream)
{
    return with(stream, [](const auto& s) { return s.outputFrames(); });
}

int64_t velora_stream_hop_frames(const velora_stream* stream)
{
    return with(stream, [](const auto& s) { return s.hopFrames(); });
}

int64_t velora_stream_change_frame(const velora_stream* stream, double speed)
{
    return with(stream, [=](const auto& s) { return s.changeFrame(speed); });
}

int64_t velora_stream_media_frame_of(const velora_stream* stream, int64_t output_frame)
{
    return stream == nullptr
               ? 0
               : with(stream, [=](const auto& s) { return s.mediaFrameOf(output_frame); });
}

int64_t velora_stream_output_frame_of(const velora_stream* stream, int64_t media_frame)
{
    return stream == nullptr
               ? 0
               : with(stream, [=](const auto& s) { return s.outputFrameOf(media_frame); });
}
