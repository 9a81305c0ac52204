// A file that appears whole or not at all: it is written beside its place and put there at the end.
#pragma once

#include <filesystem>

/// Whether there is a pipe or a device of this name, or it is -: what is written goes there at once.
bool isStream(const std::filesystem::path& output);

class OutputFile {
public:
    /// Creates an empty temporary file in the directory of `path`. Throws FileError if `path` can't
    /// be written, names the same file as `input`, or exists and `overwrite` is false.
    OutputFile(const std::filesystem::path& path, const std::filesystem::path& input,
               bool overwrite);
    /// Removes the temporary file, if keep wasn't called.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Where to write.
    const std::filesystem::path& temporary() const { return temporaryPath; }

    /// Moves what was written to its place. Throws FileError.
    void keep();

private:
    void refuseExisting() const;

    std::filesystem::path name;        // as the user wrote it
    std::filesystem::path destination; // a symbolic link stays, and what it points to is replaced
    std::filesystem::path temporaryPath;
    bool overwrite;
};
