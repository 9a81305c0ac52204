#include "media_output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

extern "C" {
#include <libavutil/base64.h>
#include <libavutil/intreadwrite.h>
}

#include "error.h"
#include "output_choice.h"

namespace {

// Whether a tag describes the file that was read, its length, size or writer, rather than what is in it.
bool describesTheFile(const char* key)
{
    constexpr const char* kStarts[] = {
        "duration",   "number_of_frames", "number_of_bytes", "bps",           "itunsmpb",
        "tlen",       "encoder",          "major_brand",     "minor_version", "compatible_brands",
        "_statistics"};
    return std::any_of(std::begin(kStarts), std::end(kStarts),
                       [=](const char* start) { return av_stristart(key, start, nullptr) != 0; });
}

bool isMatroska(const AVOutputFormat& container)
{
    return av_match_name(container.name, "matroska,webm") != 0;
}

bool isW64(const AVOutputFormat& container)
{
    return std::string_view(container.name) == "w64";
}

constexpr int64_t kW64FileSizeAt = 16;
constexpr int64_t kW64SizeBytes = 8; // in which a chunk has its size, before its content

// As FLAC and Ogg have a picture.
std::string pictureBlock(const std::string& mime, const AVStream& picture)
{
    constexpr uint32_t kFrontCover = 3;
    std::string block;
    const auto number = [&](uint32_t value) {
        for (const int shift : {24, 16, 8, 0})
            block += char(value >> shift & 0xFF);
    };
    number(kFrontCover);
    number(uint32_t(mime.size()));
    block += mime;
    for (const int value : {0, picture.codecpar->width, picture.codecpar->height, 24, 0})
        number(uint32_t(value)); // no description, no palette
    number(uint32_t(picture.attached_pic.size));
    block.append(reinterpret_cast<const char*>(picture.attached_pic.data),
                 size_t(picture.attached_pic.size));
    return block;
}

// Whether what an encoder gives before the first sample is told beside the packets, whose times are
// those of what the decoder gives, this included.
bool tellsDelay(const AVStream& stream, const AVOutputFormat& container)
{
    return isMatroska(container) && stream.codecpar->codec_id == AV_CODEC_ID_OPUS;
}

constexpr int kOpusRate = 48000; // Hz, in which Opus counts, whatever it is given

} // namespace

void copyTags(AVDictionary** to, const AVDictionary* from)
{
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(from, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr)
        if (!describesTheFile(tag->key))
            av_dict_set(to, tag->key, tag->value, AV_DICT_DONT_OVERWRITE);
}

MediaOutput::MediaOutput(const AVOutputFormat& container, Bytes& to) : bytes(to)
{
    AVFormatContext* made = nullptr;
    if (avformat_alloc_output_context2(&made, &container, nullptr, nullptr) < 0)
        throw std::bad_alloc();
    context.reset(made);
    context->pb = bytes.context();
    context->io_open = refuseToOpen;
    context->flags |= AVFMT_FLAG_BITEXACT;                       // no versions in the file
    context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL; // FLAC in MP4
}

AVStream& MediaOutput::addStream()
{
    AVStream* const stream = avformat_new_stream(context.get(), nullptr);
    if (stream == nullptr)
        throw std::bad_alloc();
    return *stream;
}

bool MediaOutput::addCover(const AVStream& picture)
{
    const AVCodecID codec = picture.codecpar->codec_id;
    const auto size = size_t(picture.attached_pic.size);
    if ((codec != AV_CODEC_ID_PNG && codec != AV_CODEC_ID_MJPEG) || size == 0)
        return false;
    const std::string kind = codec == AV_CODEC_ID_PNG ? "png" : "jpeg";
    if (isOgg(container())) {
        const std::string block = pictureBlock("image/" + kind, picture);
        std::vector<char> text(size_t(AV_BASE64_SIZE(block.size())));
        av_base64_encode(text.data(), int(text.size()),
                         reinterpret_cast<const uint8_t*>(block.data()), int(block.size()));
        av_dict_set(&context->metadata, "METADATA_BLOCK_PICTURE", text.data(), 0);
        return true;
    }
    if (!isMatroska(container()))
        return false;
    AVStream& attachment = addStream();
    AVCodecParameters& content = *attachment.codecpar;
    content.codec_type = AVMEDIA_TYPE_ATTACHMENT;
    content.codec_id = codec;
    content.extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (content.extradata == nullptr)
        throw std::bad_alloc();
    content.extradata_size = int(size);
    std::copy_n(picture.attached_pic.data, size, content.extradata);
    av_dict_set(&attachment.metadata, "filename", ("cover." + kind).c_str(), 0);
    av_dict_set(&attachment.metadata, "mimetype", ("image/" + kind).c_str(), 0);
    return true;
}

void MediaOutput::describeLike(const MediaInput& input, const SpeedMap& course, const Span& part)
{
    const AVFormatContext& from = input.format();
    copyTags(&context->metadata, from.metadata);
    const int sound = input.bestSound();
    if (sound >= 0 && from.metadata == nullptr) // Ogg has the tags of a file in its stream
        copyTags(&context->metadata, from.streams[sound]->metadata);

    // Chapters of sound are counted from the first sample, whatever a decoder throws away.
    const double origin = input.hasFilm() ? input.startTime() : 0.0;
    const auto mediaTime = [=](int64_t time, AVRational base) {
        return double(time) * av_q2d(base) - origin;
    };
    int number = 0;
    for (unsigned n = 0; n < from.nb_chapters; ++n) {
        const AVChapter& chapter = *from.chapters[n];
        const double start = mediaTime(chapter.start, chapter.time_base);
        const double end = mediaTime(chapter.end, chapter.time_base);
        if (end > part.from && start < part.to)
            addChapter(number++, std::max(course.outputAt(start), 0.0),
                       course.outputAt(std::min(end, part.to)), chapter.metadata);
    }
}

void MediaOutput::addChapter(int number, double start, double end, const AVDictionary* tags)
{
    // FFmpeg writes those of Ogg Opus a second late, and none to Ogg Vorbis.
    if (isOgg(container())) {
        char key[32];
        char time[32];
        const auto ms = std::llround(start * 1000.0);
        std::snprintf(key, sizeof key, "CHAPTER%03d", number + 1);
        std::snprintf(time, sizeof time, "%02lld:%02lld:%02lld.%03lld", ms / 3600000,
                      ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
        av_dict_set(&context->metadata, key, time, 0);
        const AVDictionaryEntry* const title = av_dict_get(tags, "title", nullptr, 0);
        av_dict_set(&context->metadata, (key + std::string("NAME")).c_str(),
                    title != nullptr ? title->value : "", 0);
        return;
    }
    auto* const chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    int count = int(context->nb_chapters);
    av_dynarray_add(&context->chapters, &count, chapter);
    if (context->chapters == nullptr)
        throw std::bad_alloc();
    context->nb_chapters = unsigned(count);
    chapter->id = number + 1;
    chapter->time_base = {1, 1000000};
    chapter->start = std::llround(start * 1e6);
    chapter->end = std::llround(end * 1e6);
    copyTags(&chapter->metadata, tags);
}

void MediaOutput::begin(AvOptions& options)
{
    const auto forEach = [this](auto change) {
        for (unsigned n = 0; n < context->nb_streams; ++n)
            change(*context->streams[n], tellsDelay(*context->streams[n], container()));
    };
    forEach([](const AVStream& stream, bool tells) {
        AVCodecParameters& codec = *stream.codecpar;
        if (tells) // FFmpeg takes it for that at any rate
            codec.initial_padding =
                int(av_rescale(codec.initial_padding, kOpusRate, codec.sample_rate));
    });
    const int flushing = context->flush_packets;
    if (isW64(container()))
        context->flush_packets = 0; // as its header isn't done yet
    check(avformat_write_header(context.get(), options.get()));
    context->flush_packets = flushing;
    if (isW64(container()))
        openW64();
    forEach([this](const AVStream& stream, bool tells) {
        delays.push_back(
            tells ? av_rescale_q(stream.codecpar->initial_padding, {1, kOpusRate}, stream.time_base)
                  : 0);
    });
}

void MediaOutput::write(AVPacket& packet)
{
    const int64_t delay = delays[size_t(packet.stream_index)];
    for (int64_t* time : {&packet.pts, &packet.dts})
        if (*time != AV_NOPTS_VALUE)
            *time += delay;
    const std::lock_guard lock(writing);
    check(av_interleaved_write_frame(context.get(), &packet));
}

void MediaOutput::end()
{
    check(av_interleaved_write_frame(context.get(), nullptr)); // what waits for other streams
    const int64_t dataEnd = avio_tell(context->pb);
    check(av_write_trailer(context.get()));
    if (isW64(container()))
        closeW64(dataEnd);
    avio_flush(context->pb);
    check(context->pb->error);
}

// FFmpeg leaves lengths in a pipe that no reader takes. The header is still in its buffer.
void MediaOutput::openW64()
{
    constexpr uint64_t kBoundless = uint64_t(1) << 62;
    dataStart = avio_tell(context->pb);
    if (context->pb->seekable != 0)
        return;
    AV_WL64(context->pb->buffer + kW64FileSizeAt, kBoundless);
    AV_WL64(context->pb->buf_ptr - kW64SizeBytes, kBoundless);
}

// FFmpeg fills the last 8 bytes up and counts this as samples. Some readers do so, too, if it is there.
void MediaOutput::closeW64(int64_t dataEnd)
{
    constexpr int64_t kHeadBytes = 24; // of a chunk, which are counted
    if (context->pb->seekable == 0)
        return;
    const auto set = [this](int64_t place, int64_t size) {
        avio_seek(context->pb, place, SEEK_SET);
        avio_wl64(context->pb, uint64_t(size));
    };
    set(kW64FileSizeAt, dataEnd);
    set(dataStart - kW64SizeBytes, kHeadBytes + dataEnd - dataStart);
    avio_flush(context->pb);
    bytes.rethrow();
    bytes.endAt(dataEnd);
}

void MediaOutput::check(int result)
{
    bytes.rethrow();
    if (result >= 0)
        return;
    const bool isPipe = context->pb->seekable == 0;
    throw FileError(name(), "can't be written as " + std::string(container().name) +
                                (isPipe ? " into a pipe: " : ": ") + avReason(result));
}
