// Many files at once, each into a folder.
#pragma once

#include "options.h"

/// Does what the options say for each of their files, some at the same time; says how each of them
/// ended. Returns whether none failed. Throws Interrupted, and FileError or ReaderGone if the folder
/// can't be had or no report be written.
bool changeAll(const Options& options);
