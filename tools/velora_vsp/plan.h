// What can only be said of the speed once all of the sound is known: where it pauses, and how fast
// it has to be for a length that is wanted.
#pragma once

#include "options.h"

struct Plan {
    SpeedMap speed;     // of the whole input, pauses and all
    int pauses = 0;     // that go at their own speed
    double saved = 0.0; // seconds of output by that
};

/// Reads all of the sound, if the options need that. Throws what MediaInput throws, and FileError if
/// the length can't be reached.
Plan makePlan(const Options& options);
