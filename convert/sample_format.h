// The caller's sample formats and the engine's 16 bits, sample by sample.
#pragma once

#include <cstdint>

namespace vsp {

/// To 16 bits. All arrays [samples], out not overlapping in.
/// 24-bit and 32-bit values are rounded half up, floats truncated toward zero after scaling by
/// 32768 (not a number: 0); everything saturates.
void from24Bit(int16_t* out, const int32_t* in, int samples);
void from32Bit(int16_t* out, const int32_t* in, int samples);
void fromFloat(int16_t* out, const float* in, int samples);

/// From 16 bits, exactly. All arrays [samples], out not overlapping in.
void to24Bit(int32_t* out, const int16_t* in, int samples);
void to32Bit(int32_t* out, const int16_t* in, int samples);
void toFloat(float* out, const int16_t* in, int samples);

} // namespace vsp
