// What can only be said of the speed once all of the sound is known: where it pauses, and how fast
// it has to be for a length that is wanted.
#pragma once

#include "options.h"
#include "progress.h"

struct Plan {
    SpeedMap speed;     // of the whole input, pauses and all
    double pace;        // at its start, were there no pause
    int pauses = 0;     // that go at their own speed
    double saved = 0.0; // seconds of output by that
};

/// Whether all of the sound has to be read for it.
bool needsListening(const Options& options);

/// Reads all of the sound, if it has to. Throws what MediaInput throws, and FileError if the length
/// can't be reached.
/// @param stored    what the input was stored as, as Bytes::input has it
/// @param progress  of the reading
Plan makePlan(const Options& options, int stored, const Phase& progress);
