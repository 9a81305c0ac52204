#include "pcm.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <type_traits>

#include <sndfile.h>

#include "little_endian.h"
#include "output_format.h"

namespace {

constexpr PcmFormat kFormats[] = {
    {"u8", 1, 8, false, true, SF_FORMAT_PCM_U8},
    {"s16", 2, 16, false, true, SF_FORMAT_PCM_16},
    {"s24", 3, 24, false, true, SF_FORMAT_PCM_24},
    {"s24in32", 4, 24, false, false, SF_FORMAT_PCM_24},
    {"s32", 4, 32, false, true, SF_FORMAT_PCM_32},
    {"f32", 4, 32, true, true, SF_FORMAT_FLOAT},
    {"f64", 8, 64, true, true, SF_FORMAT_DOUBLE},
};

constexpr int kUnsignedBits = 8;
constexpr int64_t kUnsignedZero = 128;

// The value of full scale, 1.0.
double fullScale(int bits)
{
    return std::ldexp(1.0, bits - 1);
}

double fullScale(Samples samples)
{
    switch (samples) {
    case Samples::int16:
        return fullScale(16);
    case Samples::int24:
        return fullScale(24);
    case Samples::int32:
        return fullScale(32);
    default:
        return 1.0;
    }
}

// Every format fits a double without loss.
double decode(const PcmFormat& format, const std::byte* in)
{
    const uint64_t raw = loadLittleEndian(in, format.bytes);
    if (format.isFloat)
        return format.bytes == 4 ? double(std::bit_cast<float>(uint32_t(raw)))
                                 : std::bit_cast<double>(raw);
    if (format.bits == kUnsignedBits)
        return double(int64_t(raw) - kUnsignedZero) / fullScale(kUnsignedBits);
    const int unused = 64 - format.bits;
    return double(int64_t(raw << unused) >> unused) / fullScale(format.bits);
}

void encode(const PcmFormat& format, std::byte* out, double value)
{
    if (format.isFloat) {
        const uint64_t raw = format.bytes == 4 ? std::bit_cast<uint32_t>(float(value))
                                               : std::bit_cast<uint64_t>(value);
        storeLittleEndian(out, format.bytes, raw);
        return;
    }
    const double full = fullScale(format.bits);
    // In this order "not a number" becomes a number.
    int64_t sample = std::llrint(std::fmin(std::fmax(value * full, -full), full - 1.0));
    if (format.bits == kUnsignedBits)
        sample += kUnsignedZero;
    storeLittleEndian(out, format.bytes, uint64_t(sample));
}

} // namespace

std::span<const PcmFormat> pcmFormats()
{
    return kFormats;
}

const PcmFormat* findPcm(std::string_view name)
{
    const auto* found =
        std::find_if(std::begin(kFormats), std::end(kFormats),
                     [name](const PcmFormat& format) { return format.name == name; });
    return found == std::end(kFormats) ? nullptr : found;
}

const PcmFormat& closestPcm(int format)
{
    const int bits = resolutionBits(format);
    switch (samplesFor(format)) {
    case Samples::int16:
        return *findPcm(bits <= kUnsignedBits ? "u8" : "s16");
    case Samples::int24:
        return *findPcm("s24");
    case Samples::int32:
        return *findPcm("s32");
    case Samples::float32:
        return *findPcm("f32");
    default:
        return *findPcm("f64");
    }
}

void decodePcm(const PcmFormat& format, const std::byte* in, Samples samples, void* out,
               size_t count)
{
    const double scale = fullScale(samples);
    withType(samples, [&](auto* type) {
        using Sample = std::remove_pointer_t<decltype(type)>;
        auto* to = static_cast<Sample*>(out);
        for (size_t n = 0; n < count; ++n, in += format.bytes)
            to[n] = Sample(decode(format, in) * scale);
    });
}

void encodePcm(const PcmFormat& format, std::byte* out, Samples samples, const void* in,
               size_t count)
{
    const double scale = 1.0 / fullScale(samples);
    withType(samples, [&](auto* type) {
        using Sample = std::remove_pointer_t<decltype(type)>;
        const auto* from = static_cast<const Sample*>(in);
        for (size_t n = 0; n < count; ++n, out += format.bytes)
            encode(format, out, double(from[n]) * scale);
    });
}
