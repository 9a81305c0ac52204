#include "tracks.h"

#include <algorithm>
#include <cmath>

namespace {

bool isLow24(const Options& options, const char* end)
{
    return options.raw && options.raw->encoding->isLow24 && end == std::string(kPipe);
}

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
                       const Options& given)
    : input(from), options(given),
      decoder(from, stream, {!isCopy(given), isLow24(given, given.input.c_str()), from.hasFilm()}),
      chosen(chooseEncoding(output.container(), from.format(), stream, decoder, given)),
      blockBytes(blockBytesFor(decoder, from.hasFilm()))
{
    const SoundFormat format{avFormat(decoder.samples()), decoder.rate(), decoder.layout()};
    encoder = std::make_unique<SoundEncoder>(output, chosen, decoder.samples(), format,
                                             isLow24(given, given.output.c_str()));
    describe(encoder->stream(), stream);
}

void SoundTrack::take(AVPacket& packet)
{
    pass(&packet);
}

void SoundTrack::pass(const AVPacket* packet)
{
    decoder.decode(packet, decoded);
    if (decoded.empty())
        return;
    if (player == nullptr)
        begin();
    if (packet == nullptr || decoded.size() >= blockBytes)
        playing->give(decoded);
}

// Sound that comes by itself begins at once, beside others where it began.
void SoundTrack::begin()
{
    const bool isAlone = !input.hasFilm();
    const double start = isAlone ? 0.0 : std::max(decoder.startTime() - input.startTime(), 0.0);
    encoder->startAt(options.speed.outputAt(start));
    player = isCopy(options)
                 ? makeCopier()
                 : makePlayer(decoder.samples(), decoder.rate(), decoder.channels(), options.speed,
                              start,
                              {options.keepPitch ? velora::Pitch::keep : velora::Pitch::drop,
                               options.sound, options.material});
    writing.emplace([this](const Block& block) { encoder->write(block); });
    playing.emplace([this](const Block& block) {
        player->play(block, played);
        writing->give(played);
    });
}

void SoundTrack::finish()
{
    pass(nullptr);
    if (player != nullptr) {
        playing->finish();
        while (player->flush(played))
            writing->give(played);
        writing->finish();
    }
    encoder->finish();
}

// ---- All else ----

CopiedTrack::CopiedTrack(const MediaInput& source, const AVStream& stream, MediaOutput& target,
                         const SpeedMap& map)
    : input(source), from(stream), output(target), to(target.addStream()), speed(map)
{
    constexpr AVRational kFine = {1, 90000};
    avcodec_parameters_copy(to.codecpar, from.codecpar);
    const AVOutputFormat& container = output.container();
    if (container.codec_tag == nullptr ||
        av_codec_get_id(container.codec_tag, from.codecpar->codec_tag) != from.codecpar->codec_id)
        to.codecpar->codec_tag = 0;
    to.time_base = kFine;
    const bool needsFrameRate = (container.flags & AVFMT_VARIABLE_FPS) == 0;
    if (from.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && needsFrameRate && !isPicture(from)) {
        to.avg_frame_rate = av_d2q(av_q2d(from.avg_frame_rate) * speed.speedAt(0.0), 1000000);
        to.time_base = av_inv_q(to.avg_frame_rate);
    }
    for (int n = 0; n < from.nb_side_data; ++n) {
        const AVPacketSideData& data = from.side_data[n];
        if (uint8_t* const copy = av_stream_new_side_data(&to, data.type, data.size))
            std::copy_n(data.data, data.size, copy);
    }
    describe(to, from);
}

int64_t CopiedTrack::outputTime(int64_t time) const
{
    const double media = double(time) * av_q2d(from.time_base) - input.startTime();
    return std::llround(speed.outputAt(media) / av_q2d(to.time_base));
}

void CopiedTrack::take(AVPacket& packet)
{
    packet.stream_index = to.index;
    packet.pos = -1;
    if (isPicture(from)) {
        packet.pts = packet.dts = 0;
        return output.write(packet);
    }
    const int64_t presentation = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (presentation == AV_NOPTS_VALUE)
        return; // no time at all
    if (packet.duration > 0)
        packet.duration = outputTime(presentation + packet.duration) - outputTime(presentation);
    packet.dts = packet.dts == AV_NOPTS_VALUE ? packet.dts : outputTime(packet.dts);
    packet.pts = outputTime(presentation);
    if (packet.dts != AV_NOPTS_VALUE) {
        packet.dts = std::max(packet.dts, lastDecoding + 1);
        packet.pts = std::max(packet.pts, packet.dts);
        lastDecoding = packet.dts;
    }
    output.write(packet);
}
