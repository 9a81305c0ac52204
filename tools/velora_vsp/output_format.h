// Which kind of file the output becomes, and in which sample format: the extension of its name
// chooses the container; the input's encoding is kept if the container takes it, otherwise the one
// that loses least is taken.
#pragma once

#include <cstdint>
#include <filesystem>

#include <sndfile.h>

#include "samples.h"

/// Bits that a sample of this libsndfile format is worth: 8 to 32, 33 for float and for codecs that
/// decode to it, 64 for double.
int resolutionBits(int format);

/// The narrowest that holds every sample of a libsndfile format.
Samples samplesFor(int format);

/// Whether decoding and encoding again changes samples.
bool isLossy(int format);

/// The libsndfile format for a file of this name made from `input`. Throws FileError if the
/// extension is unknown, or no encoding of that container takes the input's rate and channels.
int chooseOutputFormat(const std::filesystem::path& output, const SF_INFO& input);

/// Throws FileError if that many frames are more than the container's sizes can count.
void checkOutputSize(const std::filesystem::path& output, const SF_INFO& format, int64_t frames);
