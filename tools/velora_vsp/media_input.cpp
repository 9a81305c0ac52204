#include "media_input.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "error.h"
#include "wav_length.h"

namespace {

// Playlists and the like: what they hold lies in other files, which no input may open.
constexpr std::string_view kPointers[] = {"concat", "hls", "dash", "imf", "sdp", "rtsp", "webm_dash_manifest"};

int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**)
{
    return AVERROR(EPERM);
}

std::string clock(double seconds)
{
    char text[64];
    const auto whole = int64_t(std::max(seconds, 0.0));
    std::snprintf(text, sizeof text, "%lld:%02lld:%06.3f", (long long)(whole / 3600),
                  (long long)(whole / 60 % 60), seconds - double(whole / 60 * 60));
    return text;
}

} // namespace

MediaInput::MediaInput(const std::string& path, const std::optional<RawFormat>& raw)
    : bytes(Bytes::input(path))
{
    av_log_set_level(AV_LOG_QUIET);
    if (bytes.start().empty() && !raw)
        throw FileError(name(), "is empty: a sound file is needed");
    open(raw);
    const int result = avformat_find_stream_info(context.get(), nullptr);
    bytes.rethrow();
    if (result < 0)
        failUnreadable(result);
}

void MediaInput::open(const std::optional<RawFormat>& raw)
{
    AVFormatContext* opened = avformat_alloc_context();
    if (opened == nullptr)
        throw std::bad_alloc();
    opened->pb = bytes.context();
    opened->io_open = refuseToOpen;
    opened->protocol_whitelist = av_strdup("none"); // for what an input opens by other ways

    AvOptions options;
    const AVInputFormat* kind = nullptr;
    if (raw) {
        kind = av_find_input_format(raw->encoding->format);
        options.set("sample_rate", std::to_string(raw->rate));
        options.set("ch_layout", std::to_string(raw->channels) + "C");
    } else if (isWavOfUnknownLength(bytes.start())) {
        opened->pb->seekable = 0; // the same through a pipe as by name
        options.set("ignore_length", "1");
    }
    int result = 0;
    if (kind == nullptr)
        result = av_probe_input_buffer2(opened->pb, &kind, "", nullptr, 0, 0);
    if (result >= 0 && std::find(std::begin(kPointers), std::end(kPointers), kind->name) != std::end(kPointers)) {
        avformat_free_context(opened);
        throw FileError(name(), "only names other files (" + std::string(kind->name) + "): give these");
    }
    if (result >= 0)
        result = avformat_open_input(&opened, "", kind, options.get()); // frees it if it fails
    else
        avformat_free_context(opened);
    bytes.rethrow();
    if (result < 0)
        failUnreadable(result);
    context.reset(opened);
}

void MediaInput::failUnreadable(int error)
{
    throw FileError(name(), error == AVERROR_INVALIDDATA
                                ? "is no kind of sound file that is known here, or its start is "
                                  "damaged (samples without a header go in through -, with --raw)"
                                : "can't be read: " + avReason(error));
}

bool MediaInput::read(AVPacket& packet)
{
    av_packet_unref(&packet);
    const int result = av_read_frame(context.get(), &packet);
    bytes.rethrow();
    if (result < 0) {
        if (result != AVERROR_EOF)
            problem = avReason(result);
        return false;
    }
    const AVStream& stream = *context->streams[packet.stream_index];
    if (packet.pts != AV_NOPTS_VALUE && !isPicture(stream))
        end = std::max(end, double(packet.pts + packet.duration) * av_q2d(stream.time_base));
    return true;
}

double MediaInput::startTime() const
{
    const bool isKnown = context->start_time != AV_NOPTS_VALUE;
    return isKnown ? double(context->start_time) / AV_TIME_BASE : 0.0;
}

double MediaInput::duration() const
{
    const bool isKnown = context->duration != AV_NOPTS_VALUE;
    return isKnown ? double(context->duration) / AV_TIME_BASE : 0.0;
}

std::string MediaInput::whatIsMissing() const
{
    constexpr double kSlack = 0.25; // seconds by which a header may be wrong
    if (!problem.empty())
        return "can't be read beyond " + clock(position()) + ": " + problem;
    const bool isAnnounced = context->duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
    if (isAnnounced && position() < duration() - kSlack)
        return "is incomplete: it ends after " + clock(position()) + " of " + clock(duration());
    return {};
}
