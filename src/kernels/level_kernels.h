// The hot loops of level riding as function pointers: one table for each instruction set, all with
// the same output to the bit. They stand apart from the engine's, since the Stream has them in its
// own library.
#pragma once

#include <cstdint>

namespace vsp {

/// A gain that runs evenly over stereo frames: that of frame n is first + step * n.
struct Ramp {
    float first;
    float step;
};

/// Peaks beyond full scale are bent: what lies above the knee is taken back by
/// bend (|x| - kKnee)^2 / (4 (kBentPeak - kKnee)), so that at a bend of 1 the most that may come in,
/// kMostBent, becomes kBentPeak, where the curve is level. In 16-bit units; next to nothing of a hot
/// master reaches full scale.
inline constexpr float kKnee = 16384.0f;
inline constexpr float kBentPeak = 32760.0f;
inline constexpr float kMostBent = 2.0f * kBentPeak - kKnee;

/// Full scale of the format times the gain is at most 2^30. Samples are those of stereo frames,
/// interleaved; arrays [2 * frames], out not overlapping in.
struct LevelKernels {
    const char* name;

    /// Highest magnitude of [samples], in the format's units; that of a negative value may be 1
    /// less. Of floats, what isn't finite is 0.
    int32_t (*peak16)(const int16_t* in, int samples);
    int32_t (*peak32)(const int32_t* in, int samples);
    float (*peakFloat)(const float* in, int samples);

    /// in * gain as 16-bit samples, halves away from zero, limited. What isn't finite is 0.
    void (*in16)(int16_t* out, const int16_t* in, Ramp gain, int frames);
    void (*in32)(int16_t* out, const int32_t* in, Ramp gain, int frames);
    void (*inFloat)(int16_t* out, const float* in, Ramp gain, int frames);

    /// in * gain in a caller's format; integers halves away from zero, and limited: those of 32
    /// bits to the floats next to full scale.
    void (*out16)(int16_t* out, const int16_t* in, Ramp gain, int frames);
    void (*out24)(int32_t* out, const int16_t* in, Ramp gain, int frames);
    void (*out32)(int32_t* out, const int16_t* in, Ramp gain, int frames);
    /// The same, bent.
    void (*bent16)(int16_t* out, const int16_t* in, Ramp gain, Ramp bend, int frames);
    void (*bent24)(int32_t* out, const int16_t* in, Ramp gain, Ramp bend, int frames);
    void (*bent32)(int32_t* out, const int16_t* in, Ramp gain, Ramp bend, int frames);
    void (*outFloat)(float* out, const int16_t* in, Ramp gain, int frames);
};

/// Plain C++, for any machine.
extern const LevelKernels kPortableLevelKernels;

/// The fastest table for this machine.
const LevelKernels& bestLevelKernels();

/// All tables that this machine can run, portable first; ends with a null pointer.
const LevelKernels* const* availableLevelKernels();

} // namespace vsp
