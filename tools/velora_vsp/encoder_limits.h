// What encoders of sound can be asked for.
#pragma once

#include <cstdint>

#include "av.h"
#include "options.h"
#include "output_choice.h"

/// Throws FileError, which says what is possible, if --quality, --compression or --bitrate ask for
/// what the chosen encoder doesn't have.
void refuseBeyondLimits(const Encoding& encoding, const Options& options);

/// The bit rate that an open encoder goes by, of which some take but certain ones.
int64_t takenBitRate(const AVCodecContext& codec);
