// Sound from one file or pipe to another at another speed.
#pragma once

#include "options.h"
#include "summary.h"

/// Does what the options say. Throws FileError, Interrupted or ReaderGone; leaves no file then.
Summary changeSpeed(const Options& options);
