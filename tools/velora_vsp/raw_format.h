// Samples without a header, interleaved and little-endian, as --raw tells of them.
#pragma once

#include <optional>
#include <string_view>

/// What FFmpeg's libraries have for a name.
struct RawEncoding {
    std::string_view name;
    const char* format; // demuxer and muxer
    bool isLow24;       // 24 bits at the bottom of 32, which the libraries don't know
};

constexpr RawEncoding kRawEncodings[] = {
    {"u8", "u8", false},        {"s16", "s16le", false}, {"s24", "s24le", false},
    {"s24in32", "s32le", true}, {"s32", "s32le", false}, {"f32", "f32le", false},
    {"f64", "f64le", false},
};

struct RawFormat {
    int rate = 0;
    int channels = 0;
    const RawEncoding* encoding = nullptr;
};

inline bool isLow24(const std::optional<RawFormat>& raw)
{
    return raw && raw->encoding->isLow24;
}
