// Sound through standard input and output: WAV, or samples without a header.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "pcm.h"
#include "samples.h"
#include "sound_stream.h"
#include "wav_header.h"

/// What samples without a header are.
struct RawFormat {
    int rate = 0;
    int channels = 0;
    const PcmFormat* pcm = nullptr;
};

class PipeReader : public SoundReader {
public:
    /// Reads WAV, unless told what else comes. Throws FileError.
    explicit PipeReader(const std::optional<RawFormat>& raw);

    int read(Samples samples, void* out, int frames) override;

private:
    WavHeader header;
    std::vector<std::byte> bytes;
};

class PipeWriter : public SoundWriter {
public:
    /// Writes WAV, in the format closest to the input's, unless told what else. Throws FileError if
    /// that has another rate or other channels than the input; nothing is converted.
    PipeWriter(const SoundReader& input, const std::optional<RawFormat>& raw);

    /// Throws ReaderGone.
    void write(Samples samples, const void* in, int frames) override;
    /// Fills in the length where output is a file after all.
    void close() override;

private:
    WavHeader header;
    bool isRaw;
    long headerPosition = -1;
    std::vector<std::byte> bytes;
};
