// What was done, told at the end: a line for people, or JSON for programs.
#pragma once

#include <cstdint>
#include <string>

#include "options.h"
#include "samples.h"

struct Summary {
    Samples samples = Samples::int16; // in which the sound was passed on
    int rate = 0;                     // Hz
    int channels = 0;
    int64_t framesIn = 0;
    int64_t framesOut = 0;
    double framesIdeal = 0.0; // the exact integral of 1 / speed over the input
    double seconds = 0.0;     // that it took
    std::string encoding;     // of what was written
};

std::string closingLine(const Summary& summary);
std::string json(const Summary& summary, const Options& options);
