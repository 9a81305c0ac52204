#include "tracks.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

void describe(AVStream& to, const AVStream& from)
{
    to.disposition = from.disposition;
    to.sample_aspect_ratio = from.sample_aspect_ratio;
    copyTags(&to.metadata, from.metadata);
}

// About so many bytes of samples go through the threads at once: enough to be worth it, but few where
// pictures go along, which come out with the sound of the same time.
size_t blockBytesFor(const SoundDecoder& sound, bool hasFilm)
{
    constexpr size_t kMost = 32768;
    const int second = sound.rate() * sound.channels() * int(sampleBytes(sound.samples()));
    return std::min(size_t(second) / (hasFilm ? 32 : 5), kMost);
}

} // namespace

bool isCopy(const Options& options)
{
    return options.speed.isConstant() && options.speed.holds(1.0);
}

// ---- Sound ----

SoundTrack::SoundTrack(const MediaInput& from, const AVStream& stream, MediaOutput& output,
                       const SpeedMap& map, const Options& given)
    : input(from), course(map), options(given),
      decoder(from, stream, {!isCopy(given), isLow24(given.rawOf(given.input)), from.hasFilm()}),
      chosen(chooseEncoding(output.container(), from.format(), stream, decoder, given)),
      blockBytes(blockBytesFor(decoder, from.hasFilm()))
{
    const SoundFormat format{avFormat(decoder.samples()), decoder.rate(), decoder.layout()};
    encoder = std::make_unique<SoundEncoder>(output, chosen, decoder.samples(), format,
                                             isLow24(given.rawOf(given.output)), !isCopy(given));
    if (chosen.bitRate > 0)
        chosen.bitRate = encoder->bitRate();
    describe(encoder->stream(), stream);
}

void SoundTrack::take(AVPacket& packet)
{
    pass(&packet);
}

void SoundTrack::pass(const AVPacket* packet)
{
    const size_t before = next.size();
    decoder.decode(packet, next);
    cutToPart(before);
    if (next.empty())
        return;
    if (player == nullptr)
        begin();
    if (packet == nullptr || next.size() >= blockBytes)
        playing->give(next);
}

// Of what was decoded last, which lies in the next block from a place on, leaves what is in the part.
void SoundTrack::cutToPart(size_t place)
{
    const size_t frameBytes = size_t(decoder.channels()) * sampleBytes(decoder.samples());
    const auto frameAt = [this](double media) {
        return media < kToTheEnd
                   ? int64_t(std::llround((media - decoder.startIn(input)) * decoder.rate()))
                   : INT64_MAX;
    };
    const auto count = int64_t((next.size() - place) / frameBytes);
    const int64_t from = std::clamp<int64_t>(frameAt(options.part.from) - framesDecoded, 0, count);
    const int64_t to = std::clamp(frameAt(options.part.to) - framesDecoded, from, count);
    next.resize(place + size_t(to) * frameBytes);
    const auto first = next.begin() + std::ptrdiff_t(place);
    next.erase(first, first + from * std::ptrdiff_t(frameBytes));
    framesDecoded += count;
    framesPlayed += to - from;
}

double SoundTrack::playedFrom() const
{
    return std::max(decoder.startIn(input), options.part.from);
}

void SoundTrack::begin()
{
    const double first = playedFrom();
    encoder->startAt(course.outputAt(first));
    player = isCopy(options)
                 ? makeCopier()
                 : makePlayer(decoder.samples(), decoder.rate(), decoder.channels(), course, first,
                              {options.keepPitch ? velora::Pitch::keep : velora::Pitch::drop,
                               options.sound, options.material});
    if (report != nullptr)
        report->begin(decoder.samples(), decoder.rate(), decoder.layout(), first);
    writing.emplace([this](const Block& block) {
        if (report != nullptr)
            report->takeOutput(block);
        encoder->write(block);
    });
    playing.emplace([this](const Block& block) {
        if (report != nullptr)
            report->takeInput(block);
        player->play(block, made);
        writing->give(made);
    });
}

void SoundTrack::finish()
{
    pass(nullptr);
    if (player != nullptr) {
        playing->finish();
        while (player->flush(made))
            writing->give(made);
        writing->finish();
    }
    encoder->finish();
}

// ---- All else ----

CopiedTrack::CopiedTrack(const MediaInput& source, const AVStream& stream, MediaOutput& target,
                         const SpeedMap& map, const Span& played,
                         std::unique_ptr<TextConverter> ofText)
    : input(source), from(stream), output(target), to(target.addStream()), course(map),
      part(played), converter(std::move(ofText))
{
    constexpr AVRational kFine = {1, 90000};
    if (converter != nullptr)
        converter->describe(*to.codecpar);
    else
        avcodec_parameters_copy(to.codecpar, from.codecpar);
    const AVOutputFormat& container = output.container();
    if (container.codec_tag == nullptr ||
        av_codec_get_id(container.codec_tag, from.codecpar->codec_tag) != from.codecpar->codec_id)
        to.codecpar->codec_tag = 0;
    to.time_base = kFine;
    const bool needsFrameRate = (container.flags & AVFMT_VARIABLE_FPS) == 0;
    if (from.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && needsFrameRate && !isPicture(from)) {
        to.avg_frame_rate =
            av_d2q(av_q2d(from.avg_frame_rate) * course.speedAt(part.from), 1000000);
        to.time_base = av_inv_q(to.avg_frame_rate);
    }
    for (int n = 0; n < from.nb_side_data; ++n) {
        const AVPacketSideData& data = from.side_data[n];
        if (uint8_t* const copy = av_stream_new_side_data(&to, data.type, data.size))
            std::copy_n(data.data, data.size, copy);
    }
    describe(to, from);
}

double CopiedTrack::mediaTime(int64_t time) const
{
    return double(time) * av_q2d(from.time_base) - input.startTime();
}

int64_t CopiedTrack::outputTime(int64_t time) const
{
    return std::llround(course.outputAt(mediaTime(time)) / av_q2d(to.time_base));
}

void CopiedTrack::take(AVPacket& packet)
{
    if (converter != nullptr && !converter->convert(packet))
        return;
    packet.stream_index = to.index;
    packet.pos = -1;
    if (isPicture(from)) {
        packet.pts = packet.dts = 0;
        return output.write(packet);
    }
    if (packet.pts == AV_NOPTS_VALUE)
        packet.pts = packet.dts;
    if (packet.pts == AV_NOPTS_VALUE)
        return; // no time at all
    if (mediaTime(packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts) >= part.to)
        return;
    if (mediaTime(packet.pts) < part.from)
        return hold(packet);
    for (const auto& before : held)
        write(*before);
    held.clear();
    write(packet);
}

// Pictures before the part may be needed by those in it, a text may still be there.
void CopiedTrack::hold(const AVPacket& packet)
{
    const bool isText = from.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE;
    if (isText && mediaTime(packet.pts + packet.duration) <= part.from)
        return;
    if (!isText && (packet.flags & AV_PKT_FLAG_KEY) != 0)
        held.clear();
    held.emplace_back(av_packet_clone(&packet));
    if (held.back() == nullptr)
        throw std::bad_alloc();
}

void CopiedTrack::write(AVPacket& packet)
{
    if (packet.duration > 0)
        packet.duration = outputTime(packet.pts + packet.duration) - outputTime(packet.pts);
    packet.pts = outputTime(packet.pts);
    if (packet.dts != AV_NOPTS_VALUE) {
        packet.dts = std::max(outputTime(packet.dts), lastDecoding + 1);
        packet.pts = std::max(packet.pts, packet.dts);
        lastDecoding = packet.dts;
    }
    output.write(packet);
}
