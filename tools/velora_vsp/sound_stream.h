// Sound that comes in and goes out block by block, whether through a file or a pipe.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include <sndfile.h>

#include "error.h"
#include "samples.h"

class SoundReader {
public:
    virtual ~SoundReader() = default;

    /// Rate, channels and encoding, in libsndfile's terms.
    const SF_INFO& info() const { return soundInfo; }
    /// Frames there are, or -1 if only reading to the end can tell.
    int64_t length() const { return soundInfo.frames == SF_COUNT_MAX ? -1 : soundInfo.frames; }
    /// Frames read so far.
    int64_t position() const { return framesRead; }
    /// Which loudspeaker each channel belongs to, a bit for each as in a WAV header; 0 if unsaid.
    uint32_t speakers() const { return speakerMask; }
    /// The open file, for what else it tells; null for a pipe.
    virtual SNDFILE* handle() const { return nullptr; }

    /// Reads up to `frames` frames, interleaved; fewer only at the end.
    /// Throws FileError if the sound ends before its length or is damaged.
    virtual int read(Samples samples, void* out, int frames) = 0;

protected:
    SoundReader() = default;
    SoundReader(const SoundReader&) = delete;
    SoundReader& operator=(const SoundReader&) = delete;

    [[noreturn]] void failIncomplete(const std::filesystem::path& name) const
    {
        throw FileError(name, "is incomplete: it ends after " + std::to_string(framesRead) +
                                  " of " + std::to_string(length()) + " frames");
    }

    SF_INFO soundInfo{};
    uint32_t speakerMask = 0;
    int64_t framesRead = 0;
};

class SoundWriter {
public:
    virtual ~SoundWriter() = default;

    int64_t position() const { return framesWritten; }

    /// Writes interleaved frames. Throws FileError.
    virtual void write(Samples samples, const void* in, int frames) = 0;
    /// Completes what was written. Throws FileError.
    virtual void close() = 0;

protected:
    SoundWriter() = default;
    SoundWriter(const SoundWriter&) = delete;
    SoundWriter& operator=(const SoundWriter&) = delete;

    int64_t framesWritten = 0;
};
