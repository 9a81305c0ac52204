// The command line of velora-play.
#pragma once

#include <string>
#include <vector>

#include "keys.h"

struct Options {
    std::vector<std::string> files;
    double speed = 1.0;
    std::vector<TimedAction> script;
    bool finished = false; // with exitCode: all has been said
    int exitCode = 0;
};

/// Throws FileError for a script that can't be read.
Options readOptions(int argc, const char* const* argv);
