#include "output_choice.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "encoder_limits.h"
#include "error.h"
#include "output_file.h"

namespace {

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool isPcm(AVCodecID codec)
{
    return codec >= AV_CODEC_ID_FIRST_AUDIO && codec < AV_CODEC_ID_ADPCM_IMA_QT;
}

std::string extensionOf(const std::string& output)
{
    std::string extension = std::filesystem::path(output).extension().string();
    extension.erase(0, 1);
    for (char& letter : extension)
        letter = char(std::tolower(static_cast<unsigned char>(letter)));
    return extension;
}

// By an extension, or by the name that FFmpeg's libraries have for it.
const AVOutputFormat* findContainer(const std::string& name)
{
    if (name == "rf64")
        return av_guess_format("wav", nullptr, nullptr);
    if (name == "snd")
        return av_guess_format("au", nullptr, nullptr);
    const AVOutputFormat* const found = av_guess_format(nullptr, ("." + name).c_str(), nullptr);
    return found != nullptr ? found : av_guess_format(name.c_str(), nullptr, nullptr);
}

bool isFlash(const AVOutputFormat& container)
{
    return std::string_view(container.name) == "flv";
}

// What the libraries can't be asked about a container.
const std::vector<AVCodecID>* knownCodecs(const AVOutputFormat& container)
{
    static const std::vector<AVCodecID> kOgg = {AV_CODEC_ID_VORBIS, AV_CODEC_ID_OPUS,
                                                AV_CODEC_ID_FLAC,   AV_CODEC_ID_SPEEX,
                                                AV_CODEC_ID_THEORA, AV_CODEC_ID_VP8};
    static const std::vector<AVCodecID> kTransportStream = {
        AV_CODEC_ID_AAC,  AV_CODEC_ID_AC3,   AV_CODEC_ID_EAC3,       AV_CODEC_ID_MP2,
        AV_CODEC_ID_MP3,  AV_CODEC_ID_OPUS,  AV_CODEC_ID_DTS,        AV_CODEC_ID_H264,
        AV_CODEC_ID_HEVC, AV_CODEC_ID_MPEG4, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_DVB_SUBTITLE};
    static const std::vector<AVCodecID> kFlash = {
        AV_CODEC_ID_MP3,   AV_CODEC_ID_AAC,     AV_CODEC_ID_H264, AV_CODEC_ID_FLV1,
        AV_CODEC_ID_MPEG4, AV_CODEC_ID_FLASHSV, AV_CODEC_ID_VP6F, AV_CODEC_ID_VP6A};
    static const std::vector<AVCodecID> kProgramStream = {
        AV_CODEC_ID_MP2,  AV_CODEC_ID_MP3,        AV_CODEC_ID_AC3,        AV_CODEC_ID_DTS,
        AV_CODEC_ID_H264, AV_CODEC_ID_MPEG1VIDEO, AV_CODEC_ID_MPEG2VIDEO, AV_CODEC_ID_DVD_SUBTITLE};
    static const std::vector<AVCodecID> kOpus = {AV_CODEC_ID_OPUS};
    if (std::string_view(container.name) == "opus")
        return &kOpus;
    if (isOgg(container))
        return &kOgg;
    if (isFlash(container))
        return &kFlash;
    if (isOneOf(container.name, {"mpeg", "vob", "dvd", "svcd", "vcd"}))
        return &kProgramStream;
    return std::string_view(container.name) == "mpegts" ? &kTransportStream : nullptr;
}

// The codec that keeps samples as they are, in either byte order, or the next that holds them.
AVCodecID choosePcm(const AVOutputFormat& container, int bits)
{
    struct Pcm {
        int bits;
        AVCodecID codecs[2];
    };
    static constexpr Pcm kPcm[] = {{8, {AV_CODEC_ID_PCM_U8, AV_CODEC_ID_PCM_S8}},
                                   {16, {AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_PCM_S16BE}},
                                   {24, {AV_CODEC_ID_PCM_S24LE, AV_CODEC_ID_PCM_S24BE}},
                                   {32, {AV_CODEC_ID_PCM_S32LE, AV_CODEC_ID_PCM_S32BE}},
                                   {33, {AV_CODEC_ID_PCM_F32LE, AV_CODEC_ID_PCM_F32BE}},
                                   {64, {AV_CODEC_ID_PCM_F64LE, AV_CODEC_ID_PCM_F64BE}}};
    AVCodecID best = AV_CODEC_ID_NONE;
    for (const Pcm& pcm : kPcm)
        for (const AVCodecID codec : pcm.codecs)
            if (holds(container, codec)) {
                best = codec;
                if (pcm.bits >= bits)
                    return best;
                break;
            }
    return best;
}

// Of MP3, Flash knows few rates.
bool takesRate(const AVOutputFormat& container, AVCodecID codec, int rate)
{
    return !isFlash(container) || codec != AV_CODEC_ID_MP3 || rate == 44100 || rate == 22050 ||
           rate == 11025;
}

// What sound is written as that has no reason to become something else.
AVCodecID usualCodec(const AVOutputFormat& container)
{
    constexpr AVCodecID kOthers[] = {AV_CODEC_ID_AAC, AV_CODEC_ID_MP3, AV_CODEC_ID_MP2,
                                     AV_CODEC_ID_AC3, AV_CODEC_ID_OPUS};
    if (!isFlash(container) && avcodec_find_encoder(container.audio_codec) != nullptr)
        return container.audio_codec;
    for (const AVCodecID codec : kOthers) // 3GP is meant for AMR, which nothing here encodes
        if (holds(container, codec) && avcodec_find_encoder(codec) != nullptr)
            return codec;
    return container.audio_codec;
}

// For what is compressed without loss and can't stay as it is; none where the container has only
// lossy ones, or is usually for these.
AVCodecID chooseLossless(const AVOutputFormat& container, int bits)
{
    for (const AVCodecID codec : {AV_CODEC_ID_FLAC, AV_CODEC_ID_ALAC})
        if (!isOgg(container) && holds(container, codec))
            return codec;
    return choosePcm(container, bits);
}

AVCodecID chooseCodec(const AVOutputFormat& container, const AVInputFormat& from, AVCodecID codec,
                      int rate, int bits, bool isBitsGiven)
{
    const bool isForPcm = isPcm(container.audio_codec);
    if (isForPcm && isBitsGiven)
        return choosePcm(container, bits);
    const bool isUsual = isForPcm ? isPcm(codec) : !isOgg(container) || isLossy(codec);
    const bool canKeep = holds(container, codec) && takesRate(container, codec, rate) &&
                         avcodec_find_encoder(codec) != nullptr;
    if (canKeep && (isUsual || isSameKind(container, from)))
        return codec;
    const AVCodecID next = isForPcm                         ? choosePcm(container, bits)
                           : isLossy(codec) || isPcm(codec) ? AV_CODEC_ID_NONE
                                                            : chooseLossless(container, bits);
    return next != AV_CODEC_ID_NONE ? next : usualCodec(container);
}

// What --codec names.
const AVCodec* findEncoder(const Options& options)
{
    const AVCodec* encoder = avcodec_find_encoder_by_name(options.codec.c_str());
    if (encoder == nullptr)
        if (const AVCodecDescriptor* codec = avcodec_descriptor_get_by_name(options.codec.c_str()))
            encoder = avcodec_find_encoder(codec->id);
    if (encoder == nullptr || encoder->type != AVMEDIA_TYPE_AUDIO)
        throw FileError(options.output, "can't be written with --codec " + options.codec +
                                            ": there is no such encoder here for sound");
    return encoder;
}

const AVCodec* findEncoder(const AVOutputFormat& container, const Options& options)
{
    const AVCodec* const encoder = findEncoder(options);
    if (!holds(container, encoder->id))
        throw FileError(options.output, "this kind of file can't hold " + options.codec);
    return encoder;
}

// By which sound files of a codec go.
std::string extensionFor(AVCodecID codec)
{
    struct Usual {
        AVCodecID codec;
        const char* extension;
    };
    static constexpr Usual kUsual[] = {{AV_CODEC_ID_MP3, "mp3"},    {AV_CODEC_ID_AAC, "m4a"},
                                       {AV_CODEC_ID_ALAC, "m4a"},   {AV_CODEC_ID_FLAC, "flac"},
                                       {AV_CODEC_ID_VORBIS, "ogg"}, {AV_CODEC_ID_OPUS, "opus"}};
    if (isPcm(codec))
        return "wav";
    for (const Usual& usual : kUsual)
        if (usual.codec == codec)
            return usual.extension;
    void* walk = nullptr;
    while (const AVOutputFormat* const container = av_muxer_iterate(&walk))
        if (container->audio_codec == codec && container->video_codec == AV_CODEC_ID_NONE &&
            container->extensions != nullptr)
            return std::string(container->extensions, std::strcspn(container->extensions, ","));
    return "mka";
}

// The narrowest that holds `bits`, else the widest.
AVSampleFormat chooseSampleFormat(const AVCodec& encoder, int bits)
{
    AVSampleFormat best = encoder.sample_fmts[0];
    for (const AVSampleFormat* format = encoder.sample_fmts; *format != AV_SAMPLE_FMT_NONE;
         ++format) {
        const int width = resolutionBits(*format);
        const int bestWidth = resolutionBits(best);
        if (bestWidth < bits ? width > bestWidth : width >= bits && width < bestWidth)
            best = *format;
    }
    return best;
}

// The next higher one that the encoder takes, else its highest.
int chooseRate(const AVCodec& encoder, int rate)
{
    if (encoder.supported_samplerates == nullptr)
        return rate;
    int above = 0;
    int highest = 0;
    for (const int* known = encoder.supported_samplerates; *known != 0; ++known) {
        highest = std::max(highest, *known);
        if (*known >= rate && (above == 0 || *known < above))
            above = *known;
    }
    return above != 0 ? above : highest;
}

bool takes(const AVCodec& encoder, const AVChannelLayout& layout)
{
    if (encoder.ch_layouts == nullptr)
        return true;
    for (const AVChannelLayout* known = encoder.ch_layouts; known->nb_channels != 0; ++known)
        if (av_channel_layout_compare(known, &layout) == 0)
            return true;
    return false;
}

AVChannelLayout chooseLayout(const AVCodec& encoder, const AVChannelLayout& layout,
                             const Options& options)
{
    AVChannelLayout usual{};
    av_channel_layout_default(&usual, layout.nb_channels);
    if (layout.order == AV_CHANNEL_ORDER_NATIVE && takes(encoder, layout))
        return layout;
    if (takes(encoder, usual))
        return isPcm(encoder.id) ? layout : usual;
    throw FileError(options.output, "this kind of file can't hold " +
                                        std::to_string(layout.nb_channels) +
                                        " channel(s): give another extension, such as .wav");
}

// Of lossy sound; 0 if there is none.
int64_t bitRateOf(const AVStream& stream, const AVFormatContext& input)
{
    const AVCodecParameters& codec = *stream.codecpar;
    if (!isLossy(codec.codec_id) || isPcm(codec.codec_id))
        return 0;
    return codec.bit_rate > 0 || input.nb_streams > 1 ? codec.bit_rate : input.bit_rate;
}

int64_t chooseBitRate(int64_t ofInput, const Encoding& encoding, const Options& options)
{
    constexpr int64_t kUsual = 96000; // for each channel
    constexpr int64_t kLeast = 24000; // where silence brought the average of the input down
    constexpr int64_t kMost = 256000;
    if (!isLossy(encoding.encoder->id))
        return 0;
    const int channels = encoding.format.channels();
    if (options.bitRate > 0)
        return options.bitRate;
    return std::clamp(ofInput > 0 ? ofInput : kUsual * channels, kLeast * channels,
                      kMost * channels);
}

} // namespace

const AVOutputFormat& chooseContainer(const Options& options)
{
    std::string name = !options.format.empty() ? options.format : extensionOf(options.output);
    if (name.empty() && isStream(options.output))
        name = options.output == kPipe && options.raw ? options.raw->encoding->format : "wav";
    const AVOutputFormat* const container = name.empty() ? nullptr : findContainer(name);
    if (container == nullptr || container->audio_codec == AV_CODEC_ID_NONE ||
        (container->flags & AVFMT_NOFILE) != 0)
        throw FileError(options.output == kPipe ? "standard output" : options.output,
                        options.format.empty()
                            ? "the extension doesn't name a kind of media file: give one such as "
                              ".wav, .flac, .mp3, .ogg, .opus, .m4a, .mp4, .mkv, .webm, .aiff"
                            : "'" + options.format + "' doesn't name a kind of media file");
    return *container;
}

std::string extensionFor(const std::string& format)
{
    const AVOutputFormat* const container = findContainer(format);
    if (container == nullptr || container->extensions == nullptr)
        throw FileError("--format " + format, "doesn't name a kind of media file");
    const std::string known = container->extensions;
    return av_match_name(format.c_str(), known.c_str()) != 0 ? format
                                                             : known.substr(0, known.find(','));
}

std::filesystem::path nameForCodec(const Options& options, const std::filesystem::path& name,
                                   bool hasFilm)
{
    const AVCodecID codec = findEncoder(options)->id;
    const std::string extension = extensionOf(name.string());
    const AVOutputFormat* const same = extension.empty() ? nullptr : findContainer(extension);
    if (same != nullptr && holds(*same, codec) && (isPcm(codec) || !isPcm(same->audio_codec)))
        return name;
    return std::filesystem::path(name).replace_extension(hasFilm ? "mkv" : extensionFor(codec));
}

bool holds(const AVOutputFormat& container, AVCodecID codec)
{
    if (const auto* known = knownCodecs(container))
        return std::find(known->begin(), known->end(), codec) != known->end();
    if (isOneOf(container.name, {"mov", "ismv"}) &&
        (codec == AV_CODEC_ID_FLAC || codec == AV_CODEC_ID_OPUS))
        return false; // which its muxer only finds out when it begins
    if (std::string_view(container.name) == "avi" && codec == AV_CODEC_ID_FLAC)
        return false;         // whose last packet is shorter, which its muxer refuses
    const bool isUnreadable = // by all but FFmpeg
        codec == AV_CODEC_ID_ALAC && std::string_view(container.name) == "caf";
    return !isUnreadable && avformat_query_codec(&container, codec, FF_COMPLIANCE_NORMAL) == 1;
}

bool isOgg(const AVOutputFormat& container)
{
    return isOneOf(container.name, {"ogg", "oga", "ogv", "spx", "opus"});
}

bool canBeEmpty(const AVOutputFormat& container)
{
    return isPcm(container.audio_codec) || container.audio_codec == AV_CODEC_ID_FLAC;
}

bool takesPictures(const AVOutputFormat& container)
{
    return isOneOf(container.name, {"mp3", "flac", "ipod", "mp4", "mov", "aiff"});
}

void setMuxing(AvOptions& muxing, const Options& options, double duration)
{
    constexpr double kLong =
        600.0; // seconds from which on 32 bits may not count the bytes of a WAV file
    if (extensionOf(options.output) == "rf64")
        muxing.set("rf64", "always");
    else if (!isStream(options.output) && (duration <= 0.0 || duration > kLong))
        muxing.set("rf64", "auto");
    muxing.set("write_id3v2", "1");         // AIFF
    muxing.set("movie_timescale", "90000"); // MP4: where tracks start, to the frame
}

bool isSameKind(const AVOutputFormat& container, const AVInputFormat& from)
{
    const std::string_view kind = isOgg(container)                    ? "ogg"
                                  : isOneOf(container.name, {"ipod"}) ? "mp4"
                                  : isOneOf(container.name, {"adts"}) ? "aac"
                                                                      : container.name;
    return av_match_name(std::string(kind).c_str(), from.name) != 0;
}

bool isLossy(AVCodecID codec)
{
    if (isPcm(codec))
        return codec == AV_CODEC_ID_PCM_ALAW || codec == AV_CODEC_ID_PCM_MULAW;
    const AVCodecDescriptor* const known = avcodec_descriptor_get(codec);
    return known == nullptr || (known->props & AV_CODEC_PROP_LOSSLESS) == 0 ||
           codec == AV_CODEC_ID_DTS; // which may be either
}

namespace {

void refuseOtherRaw(const SoundDecoder& sound, const Options& options)
{
    if (options.output != kPipe || !options.raw ||
        (options.raw->rate == sound.rate() && options.raw->channels == sound.channels()))
        return;
    throw FileError("standard output",
                    "--raw wants " + std::to_string(options.raw->rate) + " Hz and " +
                        std::to_string(options.raw->channels) + " channel(s), but the input has " +
                        std::to_string(sound.rate()) + " Hz and " +
                        std::to_string(sound.channels()) + ": neither is converted");
}

const AVCodec* chooseEncoder(const AVOutputFormat& container, const AVFormatContext& input,
                             const AVStream& stream, const SoundDecoder& sound,
                             const Options& options)
{
    if (!options.codec.empty())
        return findEncoder(container, options);
    const AVCodec* const encoder = avcodec_find_encoder(
        chooseCodec(container, *input.iformat, stream.codecpar->codec_id, sound.rate(),
                    options.bits > 0 ? options.bits : sound.bits(), options.bits > 0));
    if (encoder == nullptr || encoder->sample_fmts == nullptr)
        throw FileError(options.output, "there is no encoder here for this kind of file: give "
                                        "another extension, such as .wav");
    return encoder;
}

void setBits(Encoding& encoding, int bits)
{
    encoding.format.format = chooseSampleFormat(*encoding.encoder, bits);
    const bool isInteger = resolutionBits(encoding.format.format) == 32;
    encoding.bits = isInteger ? std::min(bits, 24) : 0;
}

void refuseOtherBits(const Encoding& encoding, const Options& options)
{
    const std::string name = encoding.encoder->name;
    if (options.bits == 0 || bitsOf(encoding) == options.bits)
        return;
    if (isLossy(encoding.encoder->id))
        throw FileError(options.output, name + " has no --bits, which are of sound without loss: "
                                               "leave it out");
    std::string possible;
    for (const int bits : kBits) {
        Encoding other = encoding;
        setBits(other, bits);
        if (bitsOf(other) == bits)
            possible += (possible.empty() ? "" : " or ") + bitsName(bits);
    }
    throw FileError(options.output, name + " can't hold samples of " + bitsName(options.bits) +
                                        (possible.empty() ? "" : ", but " + possible));
}

} // namespace

Encoding chooseEncoding(const AVOutputFormat& container, const AVFormatContext& input,
                        const AVStream& stream, const SoundDecoder& sound, const Options& options)
{
    refuseOtherRaw(sound, options);
    Encoding encoding;
    encoding.encoder = chooseEncoder(container, input, stream, sound, options);
    encoding.format.rate = chooseRate(*encoding.encoder, sound.rate());
    encoding.format.layout = chooseLayout(*encoding.encoder, sound.layout(), options);
    setBits(encoding, options.bits > 0 ? options.bits : sound.bits());
    refuseOtherBits(encoding, options);
    encoding.quality = options.quality;
    encoding.compression = options.compression;
    refuseBeyondLimits(encoding, options);
    if (!options.quality)
        encoding.bitRate = chooseBitRate(bitRateOf(stream, input), encoding, options);
    return encoding;
}

int bitsOf(const Encoding& encoding)
{
    if (isLossy(encoding.encoder->id))
        return 0;
    const int width = resolutionBits(encoding.format.format);
    const int exact = av_get_exact_bits_per_sample(encoding.encoder->id);
    return width > 32 ? width : exact > 0 ? exact : encoding.bits > 0 ? encoding.bits : width;
}

std::string bitsName(int bits)
{
    return bits > 33    ? "64-bit floating point"
           : bits == 33 ? "floating point"
                        : std::to_string(bits) + " bits";
}

std::string describe(const Encoding& encoding)
{
    const std::string name = avcodec_get_name(encoding.encoder->id);
    if (encoding.quality) {
        char text[64];
        std::snprintf(text, sizeof text, " at quality %g", *encoding.quality);
        return name + text;
    }
    return encoding.bitRate > 0 ? name + " at " + std::to_string(encoding.bitRate / 1000) + " kb/s"
                                : name;
}
