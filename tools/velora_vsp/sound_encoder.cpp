#include "sound_encoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "clipping.h"
#include "encoder_limits.h"
#include "error.h"

namespace {

constexpr int kFreeFrameSize = 8192; // frames in a packet where the encoder takes any number

// Makes all samples numbers within what encoders are built for: 12 dB beyond full scale.
template <class Sample>
void limit(Block& block)
{
    constexpr Sample kMost = 4;
    auto* const samples = reinterpret_cast<Sample*>(block.data());
    for (size_t n = 0; n < block.size() / sizeof(Sample); ++n)
        samples[n] = std::isnan(samples[n]) ? Sample(0) : std::clamp(samples[n], -kMost, kMost);
}

AvPtr<AVCodecContext> openEncoder(const MediaOutput& output, const Encoding& encoding,
                                  int64_t bitRate)
{
    AvPtr<AVCodecContext> codec(avcodec_alloc_context3(encoding.encoder));
    if (codec == nullptr)
        throw std::bad_alloc();
    codec->sample_fmt = encoding.format.format;
    codec->sample_rate = encoding.format.rate;
    codec->ch_layout = encoding.format.layout;
    codec->bits_per_raw_sample = encoding.bits;
    codec->time_base = {1, encoding.format.rate};
    codec->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL; // DTS, TrueHD
    if (bitRate > 0)
        codec->bit_rate = bitRate;
    if (encoding.quality) {
        codec->flags |= AV_CODEC_FLAG_QSCALE;
        codec->global_quality = int(FF_QP2LAMBDA * *encoding.quality);
    }
    if (encoding.compression)
        codec->compression_level = *encoding.compression;
    if ((output.container().flags & AVFMT_GLOBALHEADER) != 0)
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const int result = avcodec_open2(codec.get(), encoding.encoder, nullptr);
    if (result < 0 && bitRate > 0)
        return openEncoder(output, encoding, 0); // what it thinks right, where ours is impossible
    if (result < 0)
        throw FileError(output.name(),
                        "can't be written with " + std::to_string(encoding.format.channels()) +
                            " channel(s) at " + std::to_string(encoding.format.rate) + " Hz as " +
                            encoding.encoder->name + ": " + avReason(result));
    return codec;
}

} // namespace

SoundEncoder::SoundEncoder(MediaOutput& to, const Encoding& encoding, Samples samples,
                           const SoundFormat& from, bool isLow, bool comesFromEngine)
    : output(to), track(to.addStream()), codec(openEncoder(to, encoding, encoding.bitRate)),
      kind(samples), source(from), isLow24(isLow), isFromEngine(comesFromEngine)
{
    avcodec_parameters_from_context(track.codecpar, codec.get());
    track.time_base = codec->time_base;
    SoundFormat target = encoding.format;
    if (source.layout.order == AV_CHANNEL_ORDER_UNSPEC ||
        target.layout.order == AV_CHANNEL_ORDER_UNSPEC)
        source.layout = target.layout; // the same channels, by another name
    if (!(source == target))
        resampler = makeResampler(source, target);
    waiting.reset(av_audio_fifo_alloc(target.format, target.channels(), kFreeFrameSize));
    if (waiting == nullptr || packet == nullptr)
        throw std::bad_alloc();
    keepsFloats = resolutionBits(target.format) > 32 && !isLossy(codec->codec_id);
    isLimited = !keepsFloats && isFloat();
}

int64_t SoundEncoder::bitRate() const
{
    return takenBitRate(*codec);
}

void SoundEncoder::startAt(double seconds)
{
    start = std::llround(seconds * codec->sample_rate);
}

void SoundEncoder::write(const Block& block)
{
    const size_t width = size_t(source.channels()) * sampleBytes(kind);
    const int frames = int(block.size() / width);
    framesIn += frames;
    if (!changesRate() && (isFloat() ? !keepsFloats : isFromEngine))
        clipped += countClipped(block, kind);
    const auto* const data = reinterpret_cast<const uint8_t*>(prepare(block).data());
    convert(&data, frames);
}

// As FFmpeg has integers, and as encoders want floats.
const Block& SoundEncoder::prepare(const Block& block)
{
    const bool isTurned = kind == Samples::int24 && !isLow24;
    if (!isTurned && !isLimited)
        return block;
    prepared = block;
    if (isTurned) {
        auto* const samples = reinterpret_cast<uint32_t*>(prepared.data());
        for (size_t n = 0; n < prepared.size() / sizeof(uint32_t); ++n)
            samples[n] <<= kInt24Shift;
    }
    if (isLimited)
        kind == Samples::float32 ? limit<float>(prepared) : limit<double>(prepared);
    return prepared;
}

void SoundEncoder::convert(const uint8_t* const* data, int count)
{
    if (resampler == nullptr)
        return queue(data, count);
    const int room = std::max(swr_get_out_samples(resampler.get(), count), 1);
    std::array<uint8_t*, 64> planes{};
    const int bytes = av_samples_get_buffer_size(nullptr, codec->ch_layout.nb_channels, room,
                                                 codec->sample_fmt, 0);
    converted.resize(size_t(std::max(bytes, 0)));
    av_samples_fill_arrays(planes.data(), nullptr, reinterpret_cast<uint8_t*>(converted.data()),
                           codec->ch_layout.nb_channels, room, codec->sample_fmt, 0);
    int got =
        swr_convert(resampler.get(), planes.data(), room, const_cast<const uint8_t**>(data), count);
    // Of a change of rate that ends a few frames late, these are left out.
    if (data == nullptr)
        got = int(std::min<int64_t>(got, length() - framesConverted));
    if (changesRate() && !keepsFloats && got > 0)
        clipped +=
            countClipped(planes.data(), codec->sample_fmt, codec->ch_layout.nb_channels, got);
    queue(planes.data(), got);
}

void SoundEncoder::queue(const uint8_t* const* data, int count)
{
    if (count <= 0)
        return;
    void** const planes = reinterpret_cast<void**>(const_cast<uint8_t**>(data)); // are only read
    if (av_audio_fifo_write(waiting.get(), planes, count) < count)
        throw std::bad_alloc();
    framesConverted += count;
    const int whole = codec->frame_size > 0 ? codec->frame_size : kFreeFrameSize;
    while (av_audio_fifo_size(waiting.get()) >= whole)
        encode(whole);
}

int64_t SoundEncoder::length() const
{
    return av_rescale(framesIn, codec->sample_rate, source.rate);
}

void SoundEncoder::finish()
{
    convert(nullptr, 0); // what the change of rate holds back
    padTo(length());
    while (av_audio_fifo_size(waiting.get()) > 0)
        encode(codec->frame_size > 0 ? codec->frame_size : kFreeFrameSize);
    send(nullptr);
}

// A change of rate may end a few frames early, which silence makes up for.
void SoundEncoder::padTo(int64_t length)
{
    const int missing = int(length - framesConverted);
    if (missing <= 0)
        return;
    const AvPtr<AVFrame> silence = makeFrame(missing);
    av_samples_set_silence(silence->extended_data, 0, missing, codec->ch_layout.nb_channels,
                           codec->sample_fmt);
    av_audio_fifo_write(waiting.get(), reinterpret_cast<void**>(silence->extended_data), missing);
}

AvPtr<AVFrame> SoundEncoder::makeFrame(int frames) const
{
    AvPtr<AVFrame> frame(av_frame_alloc());
    if (frame == nullptr)
        throw std::bad_alloc();
    frame->nb_samples = frames;
    frame->format = codec->sample_fmt;
    frame->ch_layout = codec->ch_layout;
    frame->sample_rate = codec->sample_rate;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        throw std::bad_alloc();
    return frame;
}

void SoundEncoder::encode(int most)
{
    const AvPtr<AVFrame> frame = makeFrame(std::min(most, av_audio_fifo_size(waiting.get())));
    frame->pts = start + framesSent;
    av_audio_fifo_read(waiting.get(), reinterpret_cast<void**>(frame->extended_data),
                       frame->nb_samples);
    framesSent += frame->nb_samples;
    send(frame.get());
}

void SoundEncoder::send(const AVFrame* frame)
{
    int result = avcodec_send_frame(codec.get(), frame);
    while (result >= 0) {
        result = avcodec_receive_packet(codec.get(), packet.get());
        if (result < 0)
            break;
        packet->stream_index = track.index;
        av_packet_rescale_ts(packet.get(), codec->time_base, track.time_base);
        output.write(*packet);
    }
    if (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_EOF)
        throw FileError(output.name(), "can't be encoded as " + std::string(codec->codec->name) +
                                           ": " + avReason(result));
}
