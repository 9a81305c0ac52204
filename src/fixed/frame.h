// The engine's unit of sound inside.
#pragma once

#include <cstdint>

namespace vsp {

/// One stereo frame: left, right, signed 16-bit. Buffers of frames are passed as Frame*.
using Frame = int16_t[2];

} // namespace vsp
