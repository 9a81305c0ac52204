// What headers announce of the length of the sound, where FFmpeg's libraries don't tell, or tell what
// they make of the size of a file that was cut. Not all writers could know, or lived to say so.
#pragma once

#include <cstdint>
#include <vector>

/// How many bytes of samples the header of a WAV or W64 file announces, by the first bytes of the
/// file: 0 or more; kOpenEnd if it leaves that open, so that they go on to the end of the file; kNoWav
/// if this is something else.
int64_t announcedWavBytes(const std::vector<uint8_t>& start);

constexpr int64_t kOpenEnd = -1;
constexpr int64_t kNoWav = -2;

/// The seconds that the header of an ASF file announces, such as of WMA; 0 if it leaves that open, or
/// this is something else.
double announcedAsfSeconds(const std::vector<uint8_t>& start);
