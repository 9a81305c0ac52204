#include "sound_decoder.h"

#include <algorithm>
#include <cmath>
#include <new>

#include <velora/stream.hpp>

#include "error.h"

namespace {

using AnyStream = velora::Stream<>; // limits are the same for every format

void refuseOutOfRange(const std::string& name, const AVCodecParameters& sound)
{
    const int channels = sound.ch_layout.nb_channels;
    if (channels < 1 || channels > AnyStream::kMostChannels)
        throw FileError(name, "has " + std::to_string(channels) + " channels: 1 to " +
                                  std::to_string(AnyStream::kMostChannels) + " are possible");
    if (sound.sample_rate < AnyStream::kLowestRate || sound.sample_rate > AnyStream::kHighestRate)
        throw FileError(name, "has a sample rate of " + std::to_string(sound.sample_rate) +
                                  " Hz: " + std::to_string(AnyStream::kLowestRate) + " to " +
                                  std::to_string(AnyStream::kHighestRate) + " Hz are possible");
}

// Decoders give 17 to 24 bits in 32, and tell how many there are.
int bitsOf(const AVCodecContext& codec)
{
    const int bits = resolutionBits(codec.sample_fmt);
    return bits == 32 && codec.bits_per_raw_sample > 0 ? std::min(codec.bits_per_raw_sample, bits)
                                                       : bits;
}

} // namespace

SoundDecoder::SoundDecoder(const MediaInput& input, const AVStream& track, const DecodeManner& how)
    : name(input.name()), stream(track), manner(how),
      isMp4(av_match_name("mp4", input.format().iformat->name) != 0),
      isMp3(av_match_name("mp3", input.format().iformat->name) != 0)
{
    const AVCodec* const decoder = avcodec_find_decoder(track.codecpar->codec_id);
    codec.reset(avcodec_alloc_context3(decoder));
    if (decoder == nullptr || codec == nullptr ||
        avcodec_parameters_to_context(codec.get(), track.codecpar) < 0)
        throw FileError(name,
                        "holds sound of a kind that can't be decoded here: " + codecName(track));
    refuseOutOfRange(name, *track.codecpar);
    codec->pkt_timebase = track.time_base;
    const int result = avcodec_open2(codec.get(), decoder, nullptr);
    if (result < 0)
        throw FileError(name, "can't be decoded: " + avReason(result));
    if (codec->sample_fmt == AV_SAMPLE_FMT_NONE)
        codec->sample_fmt = AVSampleFormat(track.codecpar->format);
    resolution = manner.isLow24 ? 24 : bitsOf(*codec);
    kind = samplesFor(resolution);
    if (manner.forEngine && kind == Samples::float64)
        kind = Samples::float32;
    target = {avFormat(kind), track.codecpar->sample_rate, plainLayout(track.codecpar->ch_layout)};
}

double SoundDecoder::startIn(const MediaInput& input) const
{
    return input.hasFilm() ? std::max(start - input.startTime(), 0.0) : 0.0;
}

// Of a packet what is no tag; null if it is nothing else.
const AVPacket* SoundDecoder::withoutTags(const AVPacket& packet)
{
    const size_t bytes = tags.bytesIn({packet.data, size_t(packet.size)});
    if (bytes == 0)
        return &packet;
    if (bytes == size_t(packet.size))
        return nullptr;
    untagged.reset(av_packet_clone(&packet));
    if (untagged == nullptr)
        throw std::bad_alloc();
    untagged->data += bytes;
    untagged->size -= int(bytes);
    return untagged.get();
}

void SoundDecoder::decode(const AVPacket* packet, Block& out)
{
    const int before = damagedPackets;
    if (packet != nullptr && isMp3) {
        packet = withoutTags(*packet);
        if (packet == nullptr)
            return;
    }
    const int result = avcodec_send_packet(codec.get(), packet);
    if (result < 0 && result != AVERROR_EOF)
        ++damagedPackets;
    for (;;) {
        const int received = avcodec_receive_frame(codec.get(), frame.get());
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF)
            break;
        if (received < 0)
            ++damagedPackets;
        else
            take(out);
    }
    if (packet != nullptr)
        isLastDamaged = damagedPackets > before;
    else
        convert(nullptr, 0, out);
}

void SoundDecoder::take(Block& out)
{
    trimLast();
    const SoundFormat now{AVSampleFormat(frame->format), frame->sample_rate,
                          plainLayout(frame->ch_layout)};
    if (!(now == source)) {
        if (source.rate != 0) {
            convert(nullptr, 0, out);
            changes = true;
        }
        resampler = now == target ? nullptr : makeResampler(now, target);
        source = now;
    }
    fillGap(out);
    convert(frame->extended_data, frame->nb_samples, out);
}

// MP4 tells by its duration how much of the last packet is sound. Other durations may not be those of
// the samples: Vorbis has packets that give more, recorders write times that jitter.
void SoundDecoder::trimLast()
{
    const bool isToTheFrame = stream.time_base.num == 1 && frame->sample_rate > 0 &&
                              stream.time_base.den % frame->sample_rate == 0;
    const bool isLast = stream.duration <= 0 || frame->pts + frame->pkt_duration >= stream.duration;
    if (!isMp4 || !isToTheFrame || frame->pts == AV_NOPTS_VALUE || frame->pkt_duration <= 0 ||
        !isLast)
        return;
    const int64_t real =
        av_rescale_q(frame->pkt_duration, stream.time_base, {1, frame->sample_rate});
    frame->nb_samples = int(std::min<int64_t>(frame->nb_samples, real));
}

// Between what has come and what comes next nothing sounds, and pictures go on.
void SoundDecoder::fillGap(Block& out)
{
    constexpr double kSmallest = 0.05; // seconds: less is what careless writers of times do
    constexpr double kLargest = 600.0; // more is a mistake
    if (frame->pts == AV_NOPTS_VALUE)
        return;
    const double time = double(frame->pts) * av_q2d(stream.time_base);
    if (frames == 0)
        start = time;
    const double gap = time - start - double(frames) / target.rate;
    if (!manner.fillsGaps || gap < kSmallest || gap > kLargest)
        return;
    const int64_t silent = std::llround(gap * target.rate);
    out.resize(out.size() + size_t(silent * channels()) * sampleBytes(kind));
    frames += silent;
}

void SoundDecoder::convert(const uint8_t* const* data, int count, Block& out)
{
    const size_t width = size_t(channels()) * sampleBytes(kind);
    const size_t before = out.size();
    int got = count;
    if (resampler != nullptr) {
        const int room = std::max(swr_get_out_samples(resampler.get(), count), 0);
        out.resize(before + size_t(room) * width);
        auto* to = reinterpret_cast<uint8_t*>(out.data() + before);
        got = swr_convert(resampler.get(), &to, room, const_cast<const uint8_t**>(data), count);
        got = std::max(got, 0);
        out.resize(before + size_t(got) * width);
    } else if (count > 0) {
        const auto* const from = reinterpret_cast<const std::byte*>(data[0]);
        out.insert(out.end(), from, from + size_t(count) * width);
    }
    frames += got;
    if (kind != Samples::int24)
        return;
    auto* const first = reinterpret_cast<int32_t*>(out.data() + before);
    for (auto* sample = first; sample < first + got * channels(); ++sample)
        *sample = int32_t(uint32_t(*sample) << (manner.isLow24 ? kInt24Shift : 0)) >> kInt24Shift;
}
