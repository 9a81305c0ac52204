// How samples travel through the tool: interleaved, in the narrowest of these types that holds every
// sample of the input, so that 24-bit sound stays 24-bit and float stays float.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "av.h"

/// The first four are the engine's formats; float64 is for copies at speed 1.0. int24 is a
/// sign-extended value in an int32_t.
enum class Samples { int16, int24, int32, float32, float64 };

/// So many bytes of samples, aligned for any of them.
using Block = std::vector<std::byte>;

inline size_t sampleBytes(Samples samples)
{
    return samples == Samples::int16 ? 2 : samples == Samples::float64 ? 8 : 4;
}

/// The same in FFmpeg's terms, where int24 lies at the top of 32 bits.
inline AVSampleFormat avFormat(Samples samples)
{
    switch (samples) {
    case Samples::int16:
        return AV_SAMPLE_FMT_S16;
    case Samples::float32:
        return AV_SAMPLE_FMT_FLT;
    case Samples::float64:
        return AV_SAMPLE_FMT_DBL;
    default:
        return AV_SAMPLE_FMT_S32;
    }
}

/// Bits that a sample in one of FFmpeg's formats is worth: 33 for float, 64 for double.
inline int resolutionBits(AVSampleFormat format)
{
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_U8:
        return 8;
    case AV_SAMPLE_FMT_S16:
        return 16;
    case AV_SAMPLE_FMT_S32:
        return 32;
    case AV_SAMPLE_FMT_FLT:
        return 33;
    default:
        return 64;
    }
}

/// The narrowest that holds samples of so many bits, as above.
inline Samples samplesFor(int bits)
{
    return bits <= 16   ? Samples::int16
           : bits <= 24 ? Samples::int24
           : bits <= 32 ? Samples::int32
           : bits == 33 ? Samples::float32
                        : Samples::float64;
}

/// Where in 32 bits int24 lies for FFmpeg.
constexpr int kInt24Shift = 8;
