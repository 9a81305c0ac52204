// The command line: what the user asks for, checked before any sound is touched.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <velora/stream.hpp>

#include "bytes.h"
#include "raw_format.h"
#include "speed_map.h"

/// What --bits takes: 33 for float.
constexpr int kBits[] = {16, 24, 32, 33};

constexpr double kToTheEnd = std::numeric_limits<double>::infinity();

struct Options {
    std::string input;
    std::string output;
    std::vector<std::string> inputs; // of many files
    std::string folder;              // into which these go; empty if there is one
    bool isRecursive = false;        // folders among them stand for what is in them
    bool skipsExisting = false;      // what is there already isn't made again
    int jobs = 1;                    // files at a time
    SpeedMap speed{1.0};
    std::string speedMapName;           // empty if there is one speed throughout
    Span part{0.0, kToTheEnd};          // of the input, in seconds
    std::optional<double> length;       // that the output is to have, in seconds
    std::optional<double> silenceSpeed; // of pauses
    double silenceThreshold = -38.0;    // dB below full scale
    double silenceMargin = 0.15;        // seconds beside sound that are no pause
    std::string speedMapOut;            // where to write the map that was used; empty: nowhere
    std::string reportName;             // where to write the page about it; empty: nowhere
    bool keepPitch = false;             // at the speeds 0.5, 0.25 and 0.125
    velora::Sound sound = velora::Sound::natural;
    velora::Material material = velora::Material::music;
    std::optional<RawFormat> raw;
    std::string format;             // of the output; empty: what its name says
    std::string codec;              // of its sound; empty: what is usual
    int bits = 0;                   // of its samples, 33 for float; 0: as the input's
    std::optional<double> quality;  // as its encoder counts it
    std::optional<int> compression; // as its encoder counts it
    int64_t bitRate = 0; // of its sound in bits per second; 0: as the input's, or what is usual
    bool audioOnly = false;
    bool strict = false; // what is missing or damaged is an error
    bool overwrite = false;
    bool json = false;
    bool quiet = false;
    bool finished = false; // help or version was asked for and printed
    int exitCode = 0;      // non-zero: the command line was wrong, which has been said
    std::string mistake;   // what was wrong

    /// What --raw says of the input or output of this name: of - alone.
    std::optional<RawFormat> rawOf(const std::string& name) const
    {
        return name == kPipe ? raw : std::nullopt;
    }
};

/// Reads the command line and the speed map; prints help, version or what is wrong with the command
/// line. Throws FileError for the map; `options` then says where that is to be told.
void readOptions(int argc, const char* const* argv, Options& options);
