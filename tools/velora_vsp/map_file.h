// Where the speeds that are taken are written: a file that appears whole or not at all, a pipe, a device.
#pragma once

#include <optional>

#include "options.h"
#include "output_file.h"

class MapFile {
public:
    /// Writes nothing yet. Throws FileError if the file can't be written, or is one that the options
    /// name for something else.
    explicit MapFile(const Options& options);

    /// To be called once. Throws FileError, ReaderGone or Interrupted.
    void write(const SpeedMap& speed);

private:
    std::string name;
    std::optional<OutputFile> file; // none for pipes and devices
};
