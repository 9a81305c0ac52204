// Samples as bytes in a pipe: interleaved, little-endian.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "samples.h"

struct PcmFormat {
    std::string_view name;
    int bytes;    // of a sample
    int bits;     // that count in it
    bool isFloat; // else an integer, in the low bits; unsigned if it has 8
    bool isInWav; // a WAV file can hold it
    int encoding; // libsndfile's name for it
};

std::span<const PcmFormat> pcmFormats();

/// Null if there is none of that name.
const PcmFormat* findPcm(std::string_view name);

/// The one that a WAV file in a pipe has for samples of a libsndfile format: the same, or the
/// narrowest that holds them.
const PcmFormat& closestPcm(int format);

/// Reads `count` samples from bytes. `samples` must hold every sample of `format`.
void decodePcm(const PcmFormat& format, const std::byte* in, Samples samples, void* out,
               size_t count);

/// Writes `count` samples as bytes: rounded and limited to full scale where `format` is narrower.
void encodePcm(const PcmFormat& format, std::byte* out, Samples samples, const void* in,
               size_t count);
