// How many samples full scale has cut.
#pragma once

#include <cstdint>

#include "samples.h"

/// Samples in which it may have: integers that are at full scale, floating-point numbers beyond it.
/// @param data    planes, or one of interleaved samples, as FFmpeg has them
/// @param frames  in each plane
int64_t countClipped(const uint8_t* const* data, AVSampleFormat format, int channels, int frames);

/// The same for a block.
int64_t countClipped(const Block& block, Samples samples);
