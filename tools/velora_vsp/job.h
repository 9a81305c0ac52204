// Sound from one file or pipe to another at another speed.
#pragma once

#include "options.h"
#include "progress.h"
#include "summary.h"

/// Does what the options say. Throws FileError, Interrupted or ReaderGone; leaves no file then.
/// @param job  its number in `progress`
Summary changeSpeed(const Options& options, Progress& progress, size_t job);
