// The line that shows where playback is.
#pragma once

#include <cstdint>
#include <string>

#include "playback.h"

/// Media time, listening time left, speed, loop or pause, level: at most 40 columns of ASCII.
/// @param duration  media frames there are; 0 if nothing tells
std::string statusLine(const Position& position, int64_t duration, int rate);
