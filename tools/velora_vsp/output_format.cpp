#include "output_format.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string>
#include <string_view>

#include "error.h"

namespace {

constexpr int kFloatBits = 33;
constexpr int kDoubleBits = 64;
constexpr int kAnyEncoding = 0;

struct Container {
    std::string_view extension;
    int type;
    int encoding; // the only one for this extension, or kAnyEncoding
};

// Where an extension stands for several containers, the input's own is preferred, then the first.
constexpr Container kContainers[] = {
    {"wav", SF_FORMAT_WAV, kAnyEncoding},
    {"wav", SF_FORMAT_WAVEX, kAnyEncoding},
    {"wav", SF_FORMAT_RF64, kAnyEncoding},
    {"wav", SF_FORMAT_NIST, kAnyEncoding},
    {"rf64", SF_FORMAT_RF64, kAnyEncoding},
    {"w64", SF_FORMAT_W64, kAnyEncoding},
    {"aiff", SF_FORMAT_AIFF, kAnyEncoding},
    {"aif", SF_FORMAT_AIFF, kAnyEncoding},
    {"aifc", SF_FORMAT_AIFF, kAnyEncoding},
    {"caf", SF_FORMAT_CAF, kAnyEncoding},
    {"flac", SF_FORMAT_FLAC, kAnyEncoding},
    {"ogg", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
    {"ogg", SF_FORMAT_OGG, SF_FORMAT_OPUS},
    {"oga", SF_FORMAT_OGG, SF_FORMAT_VORBIS},
    {"oga", SF_FORMAT_OGG, SF_FORMAT_OPUS},
    {"opus", SF_FORMAT_OGG, SF_FORMAT_OPUS},
    {"mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III},
    {"au", SF_FORMAT_AU, kAnyEncoding},
    {"snd", SF_FORMAT_AU, kAnyEncoding},
    {"avr", SF_FORMAT_AVR, kAnyEncoding},
    {"htk", SF_FORMAT_HTK, kAnyEncoding},
    {"iff", SF_FORMAT_SVX, kAnyEncoding},
    {"svx", SF_FORMAT_SVX, kAnyEncoding},
    {"mat", SF_FORMAT_MAT5, kAnyEncoding},
    {"mat", SF_FORMAT_MAT4, kAnyEncoding},
    {"mpc", SF_FORMAT_MPC2K, kAnyEncoding},
    {"paf", SF_FORMAT_PAF, kAnyEncoding},
    {"pvf", SF_FORMAT_PVF, kAnyEncoding},
    {"raw", SF_FORMAT_RAW, kAnyEncoding},
    {"sd2", SF_FORMAT_SD2, kAnyEncoding},
    {"sds", SF_FORMAT_SDS, kAnyEncoding},
    {"sf", SF_FORMAT_IRCAM, kAnyEncoding},
    {"sph", SF_FORMAT_NIST, kAnyEncoding},
    {"voc", SF_FORMAT_VOC, kAnyEncoding},
    {"wve", SF_FORMAT_WVE, kAnyEncoding},
    {"xi", SF_FORMAT_XI, kAnyEncoding},
};

struct Encoding {
    int type;
    int bits;
};

// Encodings that give back the samples they were given, if these have no more bits.
// Of equal ones the first is preferred.
constexpr Encoding kEncodings[] = {
    {SF_FORMAT_PCM_U8, 8},   {SF_FORMAT_PCM_S8, 8},   {SF_FORMAT_DPCM_8, 8},
    {SF_FORMAT_DWVW_12, 12}, {SF_FORMAT_ALAW, 13},    {SF_FORMAT_ULAW, 14},
    {SF_FORMAT_PCM_16, 16},  {SF_FORMAT_ALAC_16, 16}, {SF_FORMAT_DPCM_16, 16},
    {SF_FORMAT_DWVW_16, 16}, {SF_FORMAT_ALAC_20, 20}, {SF_FORMAT_PCM_24, 24},
    {SF_FORMAT_ALAC_24, 24}, {SF_FORMAT_DWVW_24, 24}, {SF_FORMAT_PCM_32, 32},
    {SF_FORMAT_ALAC_32, 32}, {SF_FORMAT_FLOAT, 33},   {SF_FORMAT_DOUBLE, 64},
};

int containerType(int format)
{
    return format & SF_FORMAT_TYPEMASK;
}

int encodingType(int format)
{
    return format & SF_FORMAT_SUBMASK;
}

const Encoding* findEncoding(int format)
{
    const auto* found = std::find_if(
        std::begin(kEncodings), std::end(kEncodings),
        [format](const Encoding& encoding) { return encoding.type == encodingType(format); });
    return found == std::end(kEncodings) ? nullptr : found;
}

// Codecs that decode to float and live in containers of their own.
bool isMusicCodec(int format)
{
    switch (encodingType(format)) {
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III:
        return true;
    default:
        return false;
    }
}

bool canWrite(const SF_INFO& input, int format)
{
    SF_INFO output = input;
    output.format = format;
    return sf_format_check(&output) != 0;
}

std::string knownExtensions()
{
    std::string list;
    std::string_view previous;
    for (const Container& container : kContainers) {
        if (container.extension != previous)
            list += (list.empty() ? "." : ", .") + std::string(container.extension);
        previous = container.extension;
    }
    return list;
}

const Container& chooseContainer(const std::filesystem::path& output, const SF_INFO& input)
{
    std::string extension = output.extension().string();
    extension.erase(0, 1);
    for (char& letter : extension)
        letter = char(std::tolower(static_cast<unsigned char>(letter)));

    const Container* first = nullptr;
    for (const Container& container : kContainers) {
        if (container.extension != extension)
            continue;
        if (first == nullptr)
            first = &container;
        const bool isEncoded = container.encoding != kAnyEncoding;
        if (container.type == containerType(input.format) &&
            (!isEncoded || container.encoding == encodingType(input.format)))
            return container;
    }
    if (first == nullptr)
        throw FileError(output, "the extension doesn't name a kind of sound file: give one of " +
                                    knownExtensions());
    return *first;
}

// The smallest encoding that holds every sample, else the largest there is; 0 if there is none.
int closestEncoding(const SF_INFO& input, int container)
{
    const int needed = resolutionBits(input.format);
    const Encoding* best = nullptr;
    for (const Encoding& encoding : kEncodings) {
        if (!canWrite(input, container | encoding.type))
            continue;
        if (best == nullptr || (best->bits < needed && encoding.bits > best->bits))
            best = &encoding;
    }
    return best == nullptr ? 0 : best->type;
}

} // namespace

int resolutionBits(int format)
{
    constexpr int kTelephonyCodecBits = 16;
    if (const Encoding* encoding = findEncoding(format))
        return encoding->bits;
    return isMusicCodec(format) ? kFloatBits : kTelephonyCodecBits;
}

Samples samplesFor(int format)
{
    const int bits = resolutionBits(format);
    return bits <= 16           ? Samples::int16
           : bits <= 24         ? Samples::int24
           : bits <= 32         ? Samples::int32
           : bits == kFloatBits ? Samples::float32
                                : Samples::float64;
}

bool isLossy(int format)
{
    return findEncoding(format) == nullptr;
}

int chooseOutputFormat(const std::filesystem::path& output, const SF_INFO& input)
{
    const Container& container = chooseContainer(output, input);
    if (container.encoding != kAnyEncoding)
        return container.type | container.encoding;
    if (containerType(input.format) == container.type && canWrite(input, input.format))
        return input.format; // byte order too

    const int kept = container.type | encodingType(input.format);
    if (!isMusicCodec(input.format) && canWrite(input, kept))
        return kept;
    const int encoding = closestEncoding(input, container.type);
    if (encoding == 0)
        throw FileError(output, "this kind of file can't hold " + std::to_string(input.channels) +
                                    " channel(s) at " + std::to_string(input.samplerate) +
                                    " Hz: give another extension, such as .wav");
    return container.type | encoding;
}

void checkOutputSize(const std::filesystem::path& output, const SF_INFO& format, int64_t frames)
{
    constexpr int64_t kMostBytes = 0xFFFFFFFF - 65536; // what 32 bits count, less headers
    switch (containerType(format.format)) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_AIFF:
    case SF_FORMAT_AU:
        break;
    default:
        return;
    }
    const int bits = resolutionBits(format.format);
    const int bytesPerSample = bits == kDoubleBits ? 8 : bits == kFloatBits ? 4 : (bits + 7) / 8;
    if (!isLossy(format.format) && frames > kMostBytes / (bytesPerSample * format.channels))
        throw FileError(output, "would be larger than 4 GiB, more than this kind of file holds: "
                                "give the extension .rf64, .w64 or .caf");
}
