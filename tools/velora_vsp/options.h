// The command line: what the user asks for, checked before any file is touched.
#pragma once

#include <filesystem>
#include <string>

struct Options {
    std::filesystem::path input;
    std::filesystem::path output;
    double speed = 1.0;       // of the time axis; exactly 1.0 if the engine would take it as that
    float engineSpeed = 1.0f; // what the engine is told
    bool pitchDrops = false;  // the engine plays this speed through its converter
    bool overwrite = false;
    bool finished = false; // help or version was asked for and printed
    int exitCode = 0;      // non-zero: the command line was wrong, which has been said
};

/// Reads the command line; prints help, version or what is wrong with it.
Options readOptions(int argc, const char* const* argv);
