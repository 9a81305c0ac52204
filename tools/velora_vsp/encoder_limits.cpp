#include "encoder_limits.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <new>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "error.h"

namespace {

struct Range {
    double lowest;
    double highest;

    bool holds(double value) const { return value >= lowest && value <= highest; }
};

// What FFmpeg's libraries can't be asked about an encoder. Beyond these numbers it goes on as at the
// last of them.
struct Limits {
    std::string_view encoder;
    std::optional<Range> quality;
    std::optional<Range> compression;
};
constexpr Limits kLimits[] = {
    {"aac", Range{0.1, 2.0}, {}},           {"alac", {}, Range{0.0, 2.0}},
    {"flac", {}, Range{0.0, 12.0}},         {"libmp3lame", Range{0.0, 9.0}, Range{0.0, 9.0}},
    {"libopus", {}, Range{0.0, 10.0}},      {"libspeex", Range{0.0, 10.0}, Range{0.0, 10.0}},
    {"libtwolame", Range{-10.0, 10.0}, {}}, {"libvorbis", Range{-1.0, 10.0}, {}},
    {"vorbis", Range{0.0, 10.0}, {}},       {"wavpack", {}, Range{0.0, 8.0}},
};

Limits limitsOf(std::string_view encoder)
{
    const auto* const found =
        std::find_if(std::begin(kLimits), std::end(kLimits),
                     [=](const Limits& limits) { return limits.encoder == encoder; });
    return found != std::end(kLimits) ? *found : Limits{encoder, {}, {}};
}

// In kb/s, of encoders that take any number and then do something else, or fail once sound comes.
std::optional<Range> knownBitRates(const Encoding& encoding)
{
    const std::string_view name = encoding.encoder->name;
    const int rate = encoding.format.rate;
    const int channels = encoding.format.channels();
    if (name == "libmp3lame")
        return rate >= 32000   ? Range{32.0, 320.0}
               : rate >= 16000 ? Range{8.0, 160.0}
                               : Range{8.0, 64.0};
    if (name == "libtwolame")
        return rate < 32000    ? Range{8.0, 160.0}
               : channels == 1 ? Range{32.0, 192.0}
                               : Range{64.0, 384.0};
    if (name == "aac")
        return Range{8.0 * channels, std::floor(0.006 * rate * channels)};
    if (name == "ac3" || name == "ac3_fixed")
        return Range{32.0, 640.0};
    if (name == "eac3")
        return Range{32.0, std::floor(0.128 * rate)};
    if (name == "libopus" || name == "opus")
        return Range{6.0, 256.0 * channels};
    if (name == "libspeex")
        return Range{4.0, 44.0};
    return std::nullopt;
}

// Whether it is set by the codec, or by nothing at all.
bool hasNoBitRate(const AVCodec& encoder)
{
    return !isLossy(encoder.id) || av_get_bits_per_sample(encoder.id) > 0 ||
           std::string_view(encoder.name) == "vorbis";
}

bool opensWith(const Encoding& encoding, int64_t bitRate)
{
    const AvPtr<AVCodecContext> codec(avcodec_alloc_context3(encoding.encoder));
    if (codec == nullptr)
        throw std::bad_alloc();
    codec->sample_fmt = encoding.format.format;
    codec->sample_rate = encoding.format.rate;
    codec->ch_layout = encoding.format.layout;
    codec->time_base = {1, encoding.format.rate};
    codec->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    codec->bit_rate = bitRate;
    return avcodec_open2(codec.get(), encoding.encoder, nullptr) >= 0;
}

std::string kilobits(double number)
{
    std::ostringstream text;
    text << number << 'k';
    return text.str();
}

std::string fromTo(const std::string& lowest, const std::string& highest)
{
    return "from " + lowest + " to " + highest;
}

// Of the usual bit rates those that the encoder opens with, or the two of them that are next to the one
// that was wanted.
std::string possibleBitRates(const Encoding& encoding, int64_t wanted)
{
    constexpr int kUsual[] = {8,   16,  24,  32,   40,   48,   56,   64,  80,  96,
                              112, 128, 144, 160,  192,  224,  256,  320, 384, 448,
                              512, 640, 768, 1024, 1536, 2048, 3072, 4096};
    std::vector<int> possible;
    std::copy_if(std::begin(kUsual), std::end(kUsual), std::back_inserter(possible),
                 [&](int rate) { return opensWith(encoding, rate * int64_t(1000)); });
    if (possible.empty())
        return {};
    const auto above = std::find_if(possible.begin(), possible.end(),
                                    [=](int rate) { return rate * int64_t(1000) > wanted; });
    if (above == possible.begin() || above == possible.end())
        return fromTo(kilobits(possible.front()), kilobits(possible.back()));
    return kilobits(*(above - 1)) + " or " + kilobits(*above);
}

[[noreturn]] void refuse(const Encoding& encoding, const Options& options,
                         const std::string& option, const std::string& possible)
{
    const std::string name = encoding.encoder->name;
    throw FileError(options.output,
                    possible.empty()
                        ? name + " has no " + option + ": leave it out"
                        : name + " takes no such " + option + " for " +
                              std::to_string(encoding.format.channels()) + " channel(s) at " +
                              std::to_string(encoding.format.rate) + " Hz: give " + possible);
}

void refuseOutside(const std::optional<Range>& range, double value, const std::string& option,
                   const Encoding& encoding, const Options& options)
{
    const auto number = [](double limit) {
        std::ostringstream text;
        text << limit;
        return text.str();
    };
    if (!range)
        refuse(encoding, options, option, {});
    if (!range->holds(value))
        throw FileError(options.output, std::string(encoding.encoder->name) + " takes no " +
                                            option + " " + number(value) + ": give one " +
                                            fromTo(number(range->lowest), number(range->highest)));
}

} // namespace

void refuseBeyondLimits(const Encoding& encoding, const Options& options)
{
    const Limits limits = limitsOf(encoding.encoder->name);
    if (options.quality)
        refuseOutside(limits.quality, *options.quality, "--quality", encoding, options);
    if (options.compression)
        refuseOutside(limits.compression, *options.compression, "--compression", encoding, options);
    if (options.bitRate == 0)
        return;
    if (hasNoBitRate(*encoding.encoder))
        refuse(encoding, options, "--bitrate", {});
    const std::optional<Range> known = knownBitRates(encoding);
    if (known && !known->holds(double(options.bitRate) / 1000.0))
        refuse(encoding, options, "--bitrate",
               fromTo(kilobits(known->lowest), kilobits(known->highest)));
    if (!opensWith(encoding, options.bitRate))
        refuse(encoding, options, "--bitrate", possibleBitRates(encoding, options.bitRate));
}

int64_t takenBitRate(const AVCodecContext& codec)
{
    constexpr int kHigh[] = {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    constexpr int kLow[] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    constexpr size_t kLowest = 8; // of the low ones, all that is left below 16 kHz
    if (std::string_view(codec.codec->name) != "libmp3lame")
        return codec.bit_rate;
    const std::span<const int> all(codec.sample_rate >= 32000 ? kHigh : kLow);
    const std::span<const int> steps = codec.sample_rate < 16000 ? all.first(kLowest) : all;
    const auto wanted = int(codec.bit_rate / 1000);
    return 1000 * int64_t(*std::min_element(steps.begin(), steps.end(), [=](int one, int other) {
               return std::abs(one - wanted) < std::abs(other - wanted);
           }));
}
