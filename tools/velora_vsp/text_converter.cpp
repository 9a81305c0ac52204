#include "text_converter.h"

#include <algorithm>
#include <new>
#include <utility>

#include "output_choice.h"

namespace {

constexpr size_t kMostBytes = 1 << 20; // of one text

bool isText(AVCodecID codec)
{
    const AVCodecDescriptor* const known = avcodec_descriptor_get(codec);
    return known != nullptr && (known->props & AV_CODEC_PROP_TEXT_SUB) != 0;
}

const AVCodec* findEncoder(const AVOutputFormat& container)
{
    for (const AVCodecID codec :
         {AV_CODEC_ID_SUBRIP, AV_CODEC_ID_MOV_TEXT, AV_CODEC_ID_WEBVTT, AV_CODEC_ID_ASS})
        if (holds(container, codec))
            return avcodec_find_encoder(codec);
    return nullptr;
}

AvPtr<AVCodecContext> open(const AVCodec* codec, AvPtr<AVCodecContext> context)
{
    return avcodec_open2(context.get(), codec, nullptr) < 0 ? nullptr : std::move(context);
}

AvPtr<AVCodecContext> allocate(const AVCodec* codec)
{
    AvPtr<AVCodecContext> context(avcodec_alloc_context3(codec));
    if (context == nullptr)
        throw std::bad_alloc();
    return context;
}

AvPtr<AVCodecContext> openDecoder(const AVStream& stream)
{
    const AVCodec* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr)
        return nullptr;
    AvPtr<AVCodecContext> context = allocate(codec);
    if (avcodec_parameters_to_context(context.get(), stream.codecpar) < 0)
        throw std::bad_alloc();
    context->pkt_timebase = stream.time_base;
    return open(codec, std::move(context));
}

// Fonts and colours of the decoder are those of the encoder.
AvPtr<AVCodecContext> openEncoder(const AVCodec* codec, const AVCodecContext& decoder)
{
    AvPtr<AVCodecContext> context = allocate(codec);
    context->time_base = {1, AV_TIME_BASE};
    const auto bytes = size_t(decoder.subtitle_header_size);
    context->subtitle_header = static_cast<uint8_t*>(av_mallocz(bytes + 1));
    if (context->subtitle_header == nullptr)
        throw std::bad_alloc();
    std::copy_n(decoder.subtitle_header, bytes, context->subtitle_header);
    context->subtitle_header_size = decoder.subtitle_header_size;
    return open(codec, std::move(context));
}

} // namespace

std::unique_ptr<TextConverter> TextConverter::make(const AVStream& from, const AVOutputFormat& to)
{
    const AVCodec* const codec = isText(from.codecpar->codec_id) ? findEncoder(to) : nullptr;
    if (codec == nullptr)
        return nullptr;
    AvPtr<AVCodecContext> decoder = openDecoder(from);
    if (decoder == nullptr)
        return nullptr;
    AvPtr<AVCodecContext> encoder = openEncoder(codec, *decoder);
    if (encoder == nullptr)
        return nullptr;
    return std::unique_ptr<TextConverter>(
        new TextConverter(std::move(decoder), std::move(encoder)));
}

void TextConverter::describe(AVCodecParameters& parameters) const
{
    if (avcodec_parameters_from_context(&parameters, encoder.get()) < 0)
        throw std::bad_alloc();
}

bool TextConverter::convert(AVPacket& packet)
{
    AVSubtitle decoded{};
    int isThere = 0;
    const int result = avcodec_decode_subtitle2(decoder.get(), &decoded, &isThere, &packet);
    int bytes = 0;
    if (result >= 0 && isThere != 0 && decoded.num_rects > 0) {
        text.resize(kMostBytes);
        bytes = avcodec_encode_subtitle(encoder.get(), text.data(), int(text.size()), &decoded);
    }
    avsubtitle_free(&decoded);
    if (bytes <= 0)
        return false;
    const AvPtr<AVPacket> converted(av_packet_alloc());
    if (converted == nullptr || av_new_packet(converted.get(), bytes) < 0)
        throw std::bad_alloc();
    std::copy_n(text.data(), bytes, converted->data);
    converted->pts = packet.pts;
    converted->dts = packet.dts;
    converted->duration = packet.duration;
    converted->flags = packet.flags;
    av_packet_unref(&packet);
    av_packet_move_ref(&packet, converted.get());
    return true;
}
