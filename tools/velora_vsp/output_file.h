// A file that appears whole or not at all: it has no name until it is done, so that nothing is left of
// it however the process ends.
#pragma once

#include <filesystem>

/// Whether there is a pipe or a device of this name, or it is -: what is written goes there at once.
bool isStream(const std::filesystem::path& output);

class OutputFile {
public:
    /// Creates an empty file in the directory of `path`. Throws FileError if `path` can't be written,
    /// names the same file as `input`, or exists and `overwrite` is false.
    OutputFile(const std::filesystem::path& path, const std::filesystem::path& input,
               bool overwrite);
    /// The file is gone, if keep wasn't called.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Where to write.
    const std::filesystem::path& temporary() const { return temporaryPath; }

    /// Puts what was written in its place. Throws FileError.
    void keep();

private:
    void refuseExisting() const;
    bool createUnnamed(const std::filesystem::path& directory);
    void createNamed(const std::filesystem::path& directory);
    void allowAsBefore(std::filesystem::perms more) const;
    void giveName();

    std::filesystem::path name;        // as the user wrote it
    std::filesystem::path destination; // a symbolic link stays, and what it points to is replaced
    std::filesystem::path temporaryPath;
    int file = -1; // what temporaryPath stands for
    bool isNamed = false;
    bool overwrite;
};
