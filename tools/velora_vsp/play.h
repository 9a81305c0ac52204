// Sends sound through a velora::Stream along a course of speeds.
#pragma once

#include <functional>

#include <velora/stream.hpp>

#include "samples.h"
#include "sound_stream.h"
#include "speed_map.h"

/// Called with every block of input; may throw.
using TakeBlock = std::function<void(const void* frames, int count)>;

/// Reads all there is, showing progress if `showProgress`, and passes it on.
void forEachBlock(SoundReader& reader, Samples samples, bool showProgress, const TakeBlock& take);

/// How it is to sound.
struct Manner {
    velora::Pitch pitch;
    velora::Sound sound;
    velora::Material material;
};

/// Plays all of the input. Throws what reader and writer do.
void play(SoundReader& reader, SoundWriter& writer, const SpeedMap& speed, const Manner& manner,
          bool showProgress);
