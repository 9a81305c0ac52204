// WAV headers whose writer couldn't know how long the sound would be, or was killed before it
// could say so.
#pragma once

#include <cstdint>
#include <vector>

/// How many bytes of samples a WAV header announces, by the first bytes of a file: 0 or more;
/// kOpenEnd if it leaves that open, so that they go on to the end of the file; kNoWav if this is
/// something else.
int64_t announcedWavBytes(const std::vector<uint8_t>& start);

constexpr int64_t kOpenEnd = -1;
constexpr int64_t kNoWav = -2;
