// Sound files as streams of stereo frames in a sample format the engine knows: a mono file is read
// to both channels and written from the left one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include <sndfile.h>

/// How samples are passed on. The first four are the engine's formats; float64 is for copies.
enum class Samples { int16, int24, int32, float32, float64 };

/// The narrowest that holds every sample of a libsndfile format.
Samples samplesFor(int format);

/// Bytes of a stereo frame.
size_t frameBytes(Samples samples);

struct CloseSoundFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFilePtr = std::unique_ptr<SNDFILE, CloseSoundFile>;

class SoundReader {
public:
    /// Throws FileError if the file can't be read, is incomplete, or isn't mono or stereo at 8000
    /// to 192000 Hz.
    explicit SoundReader(const std::filesystem::path& path);

    const SF_INFO& info() const { return fileInfo; }
    SNDFILE* handle() const { return file.get(); }
    /// Frames in the file, or -1 if only reading it to the end can tell.
    int64_t length() const;
    /// Frames read so far.
    int64_t position() const { return framesRead; }

    /// Reads up to `frames` stereo frames; fewer only at the end. Throws FileError if the file ends
    /// before its length or is damaged.
    int read(Samples samples, void* out, int frames);

private:
    void refuseCutData() const;

    std::filesystem::path name;
    SF_INFO fileInfo{};
    SoundFilePtr file;
    int64_t framesRead = 0;
};

class SoundWriter {
public:
    /// @param name  what errors call the file, which is written to `path`
    /// Throws FileError.
    SoundWriter(const std::filesystem::path& name, const std::filesystem::path& path,
                const SF_INFO& info);

    /// Takes over title, artist and the like; before the first frame.
    void copyStrings(SNDFILE* from);
    /// Writes stereo frames. Throws FileError.
    void write(Samples samples, const void* in, int frames);
    /// Completes the file, and makes sure that it can be read. Throws FileError.
    void close();

private:
    bool isReadable() const;

    std::filesystem::path name;
    std::filesystem::path path;
    SF_INFO fileInfo;
    SoundFilePtr file;
    int64_t framesWritten = 0;
    std::vector<std::byte> scratch;
};
