// What was done, told at the end: a line for people, or JSON for programs.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "options.h"
#include "progress.h"
#include "samples.h"

struct Summary {
    Samples samples = Samples::int16; // in which the sound was passed on
    double speed = 1.0;               // but in pauses, if there is one throughout
    int rate = 0;                     // Hz
    int channels = 0;
    int64_t framesIn = 0;
    int64_t framesOut = 0;
    double framesIdeal = 0.0; // the exact integral of 1 / speed over the input
    double seconds = 0.0;     // that it took
    std::string encoding;     // of what was written
    int64_t clipped = 0;      // samples that full scale cut
    int pauses = 0;           // that went at their own speed
    double saved = 0.0;       // seconds of output by that
};

/// Says what was done, as the options want it said.
void report(const Summary& summary, const Options& options, Progress& progress);

/// Says to programs, if the options want that, that nothing could be begun.
void reportMistake(const std::string& problem, const Options& options);

/// The same as a JSON object in a line.
std::string json(const Summary& summary, const Options& options);

/// Says that it wasn't.
void reportFailure(const std::exception& error, const Options& options, Progress& progress);

/// Says that the input is one of many which isn't played, and why.
void reportLeftOut(const std::string& reason, const Options& options, Progress& progress);
