// The header of a WAV file in a pipe. One who writes into a pipe can't know how long the sound will
// be and can't go back to fill it in; the sizes then say so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pcm.h"

struct WavHeader {
    const PcmFormat* format = nullptr;
    int rate = 0;
    int channels = 0;
    bool isExtensible = false;
    uint32_t speakers = 0;  // a bit for each loudspeaker that has a channel; 0 if unsaid
    int64_t dataBytes = -1; // of the samples that follow; -1 if unknown

    int frameBytes() const { return format->bytes * channels; }
};

/// Reads from standard input up to the first sample. Throws FileError.
WavHeader readWavHeader();

/// The bytes of a header, the same number whatever `dataBytes` is.
std::vector<std::byte> makeWavHeader(const WavHeader& header);
