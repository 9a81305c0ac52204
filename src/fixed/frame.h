// The engine's unit of sound inside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vsp {

/// One stereo frame: left, right, signed 16-bit. Buffers of frames are passed as Frame*.
using Frame = int16_t[2];

/// `out` and `in` may overlap; of 0 frames or fewer neither is touched.
inline void copyFrames(Frame* out, const Frame* in, int frames)
{
    if (frames > 0)
        std::memmove(out, in, std::size_t(frames) * sizeof *in);
}

} // namespace vsp
