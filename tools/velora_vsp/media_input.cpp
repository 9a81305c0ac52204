#include "media_input.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <new>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "announced_length.h"
#include "clock.h"
#include "error.h"

namespace {

// Playlists and the like: what they hold lies in other files, which no input may open.
constexpr std::string_view kPointers[] = {
    "concat", "hls", "dash", "imf", "sdp", "rtsp", "webm_dash_manifest"};

// What streams: it begins with all that has to be known of the rest.
constexpr char kStreams[] = "aac,ac3,aiff,amr,amrnb,amrwb,aptx,asf,au,avi,dts,dtshd,eac3,flac,flv,"
                            "gsm,loas,matroska,mlp,mp3,"
                            "mpeg,mpegts,nut,ogg,rm,sbc,sox,truehd,w64,wav";

uint32_t bigEndian(const uint8_t* from)
{
    return uint32_t(from[0]) << 24 | uint32_t(from[1]) << 16 | uint32_t(from[2]) << 8 | from[3];
}

// Whether in an MP4 file, or one of its family, what lies where is told before that comes.
bool beginsWithIndex(const std::vector<uint8_t>& start)
{
    for (size_t at = 0; at + 8 <= start.size();) {
        const std::string_view kind(reinterpret_cast<const char*>(&start[at]) + 4, 4);
        if (kind == "moov" || kind == "moof")
            return true;
        const uint32_t bytes = bigEndian(&start[at]);
        if (kind == "mdat" || bytes < 8)
            return false;
        at += bytes;
    }
    return false;
}

bool startsWith(const std::vector<uint8_t>& start, std::string_view word)
{
    return start.size() >= word.size() && std::equal(word.begin(), word.end(), start.begin());
}

// Whether it is an MP4 file, or one of its family.
bool isMp4(const std::vector<uint8_t>& start)
{
    constexpr std::string_view kKind = "ftyp";
    return start.size() >= 8 && std::equal(kKind.begin(), kKind.end(), start.begin() + 4);
}

// Whether what starts like this has to be gone back in, which a pipe can't be.
bool needsFile(const std::vector<uint8_t>& start)
{
    std::vector<uint8_t> padded = start;
    padded.resize(start.size() + AVPROBE_PADDING_SIZE);
    const AVProbeData data{"", padded.data(), int(start.size()), nullptr};
    int score = AVPROBE_SCORE_RETRY;
    const AVInputFormat* const kind = av_probe_input_format2(&data, 1, &score);
    if (kind == nullptr || av_match_list(kind->name, kStreams, ',') != 0)
        return false;
    return av_match_name("mp4", kind->name) == 0 || !beginsWithIndex(start);
}

constexpr double kNever = std::numeric_limits<double>::infinity();

// FFmpeg takes the samples of a big-endian WAV file for little-endian ones.
void turnBytesOfRifx(AVCodecParameters& codec)
{
    constexpr AVCodecID kPairs[][2] = {{AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_PCM_S16BE},
                                       {AV_CODEC_ID_PCM_S24LE, AV_CODEC_ID_PCM_S24BE},
                                       {AV_CODEC_ID_PCM_S32LE, AV_CODEC_ID_PCM_S32BE},
                                       {AV_CODEC_ID_PCM_F32LE, AV_CODEC_ID_PCM_F32BE},
                                       {AV_CODEC_ID_PCM_F64LE, AV_CODEC_ID_PCM_F64BE}};
    for (const auto& [little, big] : kPairs)
        if (codec.codec_id == little) {
            codec.codec_id = big;
            return;
        }
}

} // namespace

MediaInput::MediaInput(const std::string& path, const std::optional<RawFormat>& raw, int stored)
    : bytes(Bytes::input(path, stored))
{
    av_log_set_level(AV_LOG_QUIET);
    if (bytes.start().empty() && !raw)
        throw NoMedia(name(), "is empty: a sound file is needed");
    if (!bytes.isFile() && !raw && needsFile(bytes.start()))
        bytes.store();
    if (!raw && startsWith(bytes.start(), "OggS"))
        bytes.watch([this](const uint8_t* from, size_t count) { pages.take(from, count); });
    open(raw);
    const int result = avformat_find_stream_info(context.get(), nullptr);
    bytes.rethrow();
    if (result < 0)
        failUnreadable(result);
    if (context->nb_streams == 0)
        throw NoMedia(name(), "has no sound");
    beginning = findStart();
    announced = announcedDuration();
}

// Opus in Matroska has the time of what comes before the first sample.
double MediaInput::findStart() const
{
    const bool isKnown = context->start_time != AV_NOPTS_VALUE;
    const double first = isKnown ? double(context->start_time) / AV_TIME_BASE : 0.0;
    if (av_match_name("matroska", context->iformat->name) == 0)
        return first;
    double sounding = kNever;
    for (unsigned n = 0; n < context->nb_streams; ++n) {
        const AVStream& stream = *context->streams[n];
        const AVCodecParameters& codec = *stream.codecpar;
        if (stream.start_time == AV_NOPTS_VALUE || isPicture(stream))
            continue;
        const bool hasDelay = codec.codec_id == AV_CODEC_ID_OPUS && codec.sample_rate > 0;
        const double delay = hasDelay ? double(codec.initial_padding) / codec.sample_rate : 0.0;
        sounding = std::min(sounding, double(stream.start_time) * av_q2d(stream.time_base) + delay);
    }
    return sounding < kNever ? std::max(first, sounding) : first;
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
    // Bytes in a packet of WAV, of which 32 are read before any comes out.
    options.set("max_size", opened->pb->seekable != 0 ? "16384" : "1024");
    const AVInputFormat* kind = nullptr;
    if (raw) {
        kind = av_find_input_format(raw->encoding->format);
        options.set("sample_rate", std::to_string(raw->rate));
        options.set("ch_layout", std::to_string(raw->channels) + "C");
    } else if (announcedWavBytes(bytes.start()) == kOpenEnd) {
        opened->pb->seekable = 0; // the same through a pipe as by name
        options.set("ignore_length", "1");
    }
    int result = 0;
    if (kind == nullptr)
        result = av_probe_input_buffer2(opened->pb, &kind, "", nullptr, 0, 0);
    if (result >= 0 &&
        std::find(std::begin(kPointers), std::end(kPointers), kind->name) != std::end(kPointers)) {
        avformat_free_context(opened);
        throw NoMedia(name(),
                      "only names other files (" + std::string(kind->name) + "): give these");
    }
    if (result >= 0)
        result = avformat_open_input(&opened, "", kind, options.get()); // frees it if it fails
    else
        avformat_free_context(opened);
    if (result >= 0)
        context.reset(opened);
    bytes.rethrow();
    if (result < 0)
        failUnreadable(result);
    if (startsWith(bytes.start(), "RIFX") && context->nb_streams > 0)
        turnBytesOfRifx(*context->streams[0]->codecpar);
}

void MediaInput::failUnreadable(int error)
{
    // What comes of the bytes, as what keeps them from being read has been thrown before.
    if (error != AVERROR_INVALIDDATA && error != AVERROR(EINVAL) && error != AVERROR_EOF)
        throw FileError(name(), "can't be read: " + avReason(error));
    if (isMp4(bytes.start()))
        throw NoMedia(name(),
                      "has no index, as MP4 files have it at their end: it is incomplete or "
                      "damaged");
    if (startsWith(bytes.start(), "caff"))
        throw NoMedia(name(),
                      "has no table of packets, as CAF files may have it at their end: it is "
                      "incomplete or damaged");
    throw UnknownMedia(name(),
                       "is no kind of sound file that is known here, or its start is damaged");
}

bool MediaInput::hasFilm() const
{
    return std::any_of(
        context->streams, context->streams + context->nb_streams, [](const AVStream* stream) {
            return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && !isPicture(*stream);
        });
}

// FFmpeg's own choice may be a commentary, if more packets of it have been seen.
int MediaInput::bestSound() const
{
    constexpr int kAside =
        AV_DISPOSITION_COMMENT | AV_DISPOSITION_HEARING_IMPAIRED | AV_DISPOSITION_VISUAL_IMPAIRED;
    int best = -1;
    int highest = -1;
    for (const AVStream* stream : std::span(context->streams, context->nb_streams)) {
        const AVCodecParameters& codec = *stream->codecpar;
        if (codec.codec_type != AVMEDIA_TYPE_AUDIO || codec.sample_rate <= 0 ||
            codec.ch_layout.nb_channels <= 0)
            continue;
        const int rank = ((stream->disposition & kAside) == 0 ? 2 : 0) +
                         ((stream->disposition & AV_DISPOSITION_DEFAULT) != 0 ? 1 : 0);
        if (rank > highest) {
            highest = rank;
            best = stream->index;
        }
    }
    return best;
}

bool MediaInput::read(AVPacket& packet)
{
    av_packet_unref(&packet);
    if (ahead != nullptr)
        av_packet_move_ref(&packet, std::exchange(ahead, nullptr).get());
    else if (!readNext(packet))
        return false;
    if (uint8_t* const skip = endSkip(packet)) {
        ahead.reset(av_packet_alloc());
        if (ahead == nullptr)
            throw std::bad_alloc();
        if (readNext(*ahead))
            std::fill_n(skip, sizeof(uint32_t), uint8_t(0));
        else
            ahead.reset();
    }
    const AVStream& stream = *context->streams[packet.stream_index];
    if (packet.pts != AV_NOPTS_VALUE && !isPicture(stream))
        end = std::max(end, double(packet.pts + packet.duration) * av_q2d(stream.time_base));
    endsInPacket = (packet.flags & AV_PKT_FLAG_CORRUPT) != 0;
    return true;
}

bool MediaInput::readNext(AVPacket& packet)
{
    const int result = av_read_frame(context.get(), &packet);
    bytes.rethrow();
    if (result < 0 && result != AVERROR_EOF)
        problem = avReason(result);
    if (result >= 0)
        makeContinuous(packet);
    return result >= 0;
}

bool MediaInput::seek(const AVStream& stream, int64_t time)
{
    clocks.clear(); // what comes earlier now is no new beginning
    shifts.resize(1);
    return av_seek_frame(context.get(), stream.index, time, AVSEEK_FLAG_BACKWARD) >= 0;
}

// Where files were joined, times may begin anew. Streams don't come there at once, but then go on by as
// much as the first that did.
void MediaInput::makeContinuous(AVPacket& packet)
{
    constexpr double kBack = 1.0; // seconds: less is disorder
    clocks.resize(std::max<size_t>(clocks.size(), context->nb_streams));
    Clock& stream = clocks[size_t(packet.stream_index)];
    const AVRational base = context->streams[packet.stream_index]->time_base;
    if (packet.dts != AV_NOPTS_VALUE) {
        const double time = double(packet.dts) * av_q2d(base);
        if (time + shifts[stream.restarts] < stream.next - kBack) {
            if (++stream.restarts == shifts.size()) {
                shifts.push_back(stream.next - time);
                turn = turn > 0.0 ? turn : stream.next - startTime();
            }
        }
        stream.next = time + shifts[stream.restarts] + double(packet.duration) * av_q2d(base);
    }
    const int64_t shift = std::llround(shifts[stream.restarts] / av_q2d(base));
    for (int64_t* time : {&packet.pts, &packet.dts})
        if (*time != AV_NOPTS_VALUE)
            *time += shift;
}

// Where a packet of MP3 says how much of its end is no sound. That holds for the last one, which it
// isn't where files were joined.
uint8_t* MediaInput::endSkip(const AVPacket& packet) const
{
    constexpr size_t kEnd = sizeof(uint32_t); // comes after what is skipped at its start
    size_t size = 0;
    uint8_t* const skip = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
    const bool isMp3 = av_match_name("mp3", context->iformat->name) != 0;
    return isMp3 && size >= 2 * kEnd && std::any_of(skip + kEnd, skip + 2 * kEnd, std::identity())
               ? skip + kEnd
               : nullptr;
}

double MediaInput::duration() const
{
    const bool isKnown = context->duration != AV_NOPTS_VALUE;
    const double all = isKnown ? double(context->duration) / AV_TIME_BASE : 0.0;
    const double played = playedDuration();
    return played > 0.0 ? std::min(all, played) : all;
}

// Of the streams beside a list of chapters, which may go on when they have ended; 0 if there is none.
double MediaInput::playedDuration() const
{
    bool hasList = false;
    double last = 0.0;
    for (const AVStream* stream : std::span(context->streams, context->nb_streams)) {
        const int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_DATA)
            hasList = true;
        else if (stream->duration != AV_NOPTS_VALUE)
            last = std::max(last, double(start + stream->duration) * av_q2d(stream->time_base));
    }
    return hasList && last > 0.0 ? last - startTime() : 0.0;
}

// Only what a header counts, not what is guessed from the size of a file.
double MediaInput::announcedDuration() const
{
    const AVCodecParameters& first = *context->streams[0]->codecpar;
    const int64_t wavBytes = announcedWavBytes(bytes.start());
    if (wavBytes >= 0 && isCountedInFrames()) {
        const int64_t frames = wavBytes / first.block_align;
        return double(frames) / double(first.sample_rate);
    }
    if (av_match_name(context->iformat->name, "asf") != 0)
        return announcedAsfSeconds(bytes.start());
    if (av_match_name(context->iformat->name, "avi,caf") != 0)
        return countedDuration();
    return context->duration_estimation_method == AVFMT_DURATION_FROM_STREAM ? duration() : 0.0;
}

// Where headers count what is in a stream, in its time base, but FFmpeg makes the duration fit the
// size of the file. What AVI has no packets for, such as before a stream begins, may be counted, too,
// so the shortest one has to do.
double MediaInput::countedDuration() const
{
    constexpr int64_t kBoundless = 0x40000000; // is what FFmpeg announces in a pipe
    double shortest = kNever;
    for (const AVStream* stream : std::span(context->streams, context->nb_streams))
        if (stream->nb_frames > 0 && stream->nb_frames != kBoundless)
            shortest = std::min(shortest, double(stream->nb_frames) * av_q2d(stream->time_base));
    return shortest < kNever ? shortest : 0.0;
}

bool MediaInput::isCountedInFrames() const
{
    const AVCodecParameters& first = *context->streams[0]->codecpar;
    return context->nb_streams == 1 && av_get_exact_bits_per_sample(first.codec_id) > 0 &&
           first.block_align > 0 && first.sample_rate > 0;
}

std::string MediaInput::whatIsMissing(bool lastIsDamaged) const
{
    const double slack = isCountedInFrames() ? 0.00002 : 0.25; // seconds
    const std::string ends = "is incomplete: it ends after " + clock(position());
    if (!problem.empty() && avio_feof(context->pb) == 0)
        return "can't be read beyond " + clock(position()) + ": " + problem;
    // Some writers count from the start of the clock, some from that of the first stream.
    if (std::max(position(), end) < announced - slack)
        return ends + " of " + clock(announced);
    if (!problem.empty() || lastIsDamaged || (endsInPacket && !isCountedInFrames()))
        return ends + ", in the middle of a packet";
    if (!pages.areComplete())
        return ends + ", without the mark of an end (recordings of broadcasts may have none)";
    return {};
}
