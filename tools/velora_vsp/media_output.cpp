#include "media_output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "error.h"
#include "output_choice.h"

namespace {

int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**)
{
    return AVERROR(EPERM);
}

// What would be wrong at another speed.
bool tellsOfTheOldLength(std::string_view key)
{
    constexpr std::string_view kKeys[] = {
        "DURATION", "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES", "BPS",           "iTunSMPB",
        "TLEN",     "encoder",          "major_brand",     "minor_version", "compatible_brands"};
    return key.starts_with("_STATISTICS") ||
           std::any_of(std::begin(kKeys), std::end(kKeys),
                       [=](std::string_view known) { return key.starts_with(known); });
}

} // namespace

void copyTags(AVDictionary** to, const AVDictionary* from)
{
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(from, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr)
        if (!tellsOfTheOldLength(tag->key))
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
    context->flags |= AVFMT_FLAG_BITEXACT; // no versions in the file
}

AVStream& MediaOutput::addStream()
{
    AVStream* const stream = avformat_new_stream(context.get(), nullptr);
    if (stream == nullptr)
        throw std::bad_alloc();
    return *stream;
}

void MediaOutput::describeLike(const MediaInput& input, const SpeedMap& speed)
{
    const AVFormatContext& from = input.format();
    copyTags(&context->metadata, from.metadata);
    const int sound = av_find_best_stream(&input.format(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (sound >= 0 && from.metadata == nullptr) // Ogg has the tags of a file in its stream
        copyTags(&context->metadata, from.streams[sound]->metadata);

    // Chapters of sound are counted from the first sample, whatever a decoder throws away.
    const double origin = input.hasFilm() ? input.startTime() : 0.0;
    const auto outputTime = [&](int64_t time, AVRational base) {
        return std::max(speed.outputAt(double(time) * av_q2d(base) - origin), 0.0);
    };
    for (unsigned n = 0; n < from.nb_chapters; ++n) {
        const AVChapter& chapter = *from.chapters[n];
        const double start = outputTime(chapter.start, chapter.time_base);
        const double end = outputTime(chapter.end, chapter.time_base);
        addChapter(int(n), start, end, chapter.metadata);
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
    check(avformat_write_header(context.get(), options.get()));
}

void MediaOutput::write(AVPacket& packet)
{
    check(av_interleaved_write_frame(context.get(), &packet));
}

void MediaOutput::end()
{
    check(av_write_trailer(context.get()));
    avio_flush(context->pb);
    check(context->pb->error);
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
