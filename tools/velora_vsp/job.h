// One file to another at another speed.
#pragma once

#include "options.h"

/// Does what the options say. Throws FileError, or Interrupted; leaves no output then.
void changeSpeed(const Options& options);
