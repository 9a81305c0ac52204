// Sound files, through libsndfile.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include <sndfile.h>

#include "samples.h"
#include "sound_stream.h"

struct CloseSoundFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFilePtr = std::unique_ptr<SNDFILE, CloseSoundFile>;

class FileReader : public SoundReader {
public:
    /// Throws FileError if the file can't be read or is incomplete.
    explicit FileReader(const std::filesystem::path& path);

    SNDFILE* handle() const override { return file.get(); }
    int read(Samples samples, void* out, int frames) override;

private:
    void refuseCutData() const;

    std::filesystem::path name;
    SoundFilePtr file;
};

class FileWriter : public SoundWriter {
public:
    /// @param name  what errors call the file, which is written to `path`
    /// Throws FileError.
    FileWriter(const std::filesystem::path& name, const std::filesystem::path& path,
               const SF_INFO& info);

    /// Takes over title, artist and the like, and which loudspeaker each channel belongs to.
    /// To be called before the first frame.
    void describeLike(const SoundReader& reader);
    void write(Samples samples, const void* in, int frames) override;
    /// Makes sure, too, that the file can be read.
    void close() override;

private:
    bool isReadable() const;

    std::filesystem::path name;
    std::filesystem::path path;
    SF_INFO fileInfo;
    SoundFilePtr file;
    std::vector<int32_t> shifted; // 24-bit samples as libsndfile wants them
};
