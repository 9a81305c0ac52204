// WAV headers whose writer couldn't know how long the sound would be, or was killed before it
// could say so.
#pragma once

#include <cstdint>
#include <vector>

/// Whether these first bytes of a file are a WAV header that leaves the length of the samples open:
/// they go on to the end of the file then.
bool isWavOfUnknownLength(const std::vector<uint8_t>& start);
