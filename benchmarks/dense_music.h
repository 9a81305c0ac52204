// The sound that every benchmark plays: a dense mix,
// since an engine has more to do the more peaks and onsets it finds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// Interleaved stereo, peak at 0.9 of full scale: held chords of five harmonic notes, a bed of
/// inharmonic partials, and drums on a steady beat. The same samples at every call.
/// @param sampleRate  Hz; partials above 0.45 of it are left out
std::vector<int16_t> denseMusic(int sampleRate, size_t frames);
