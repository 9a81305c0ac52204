// Between the caller's formats and the 16 bits of the engine, under a gain. Floats, each operation
// rounded by itself, so every vector gives the same.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "fixed/fixed.h"
#include "fixed/floating_point.h"
#include "kernels/level_kernels.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

// |x|, or one less for a negative one: it has no corner, and fits where x does.
template <class Sample>
VSP_INLINE Sample nearAbs(Sample x)
{
    return Sample(x < 0 ? ~x : x);
}

template <class Sample>
int32_t peakOf(const Sample* in, int samples)
{
    Sample peak = 0;
    for (int n = 0; n < samples; ++n)
        peak = std::max(peak, nearAbs(in[n]));
    return peak;
}

constexpr int32_t kInfinity = 0x7F800000; // the bits of the float

// Floats of one sign are in the order of their bits, as integers; from infinity on they aren't finite.
inline float peakFloat(const float* in, int samples)
{
    int32_t peak = 0;
    for (int n = 0; n < samples; ++n) {
        int32_t bits;
        std::memcpy(&bits, in + n, sizeof bits);
        bits &= INT32_MAX;
        bits = bits >= kInfinity ? 0 : bits;
        peak = bits > peak ? bits : peak;
    }
    float found;
    std::memcpy(&found, &peak, sizeof found);
    return found;
}

VSP_INLINE float gainOf(Ramp gain, int frame)
{
    return gain.first + gain.step * float(frame);
}

// Beyond what any 16-bit sample is, within what an integer holds.
constexpr float kFarBeyond = 1048576.0f;
// Full scale of 32 bits as a float.
constexpr float kHighest32 = 2147483520.0f;

VSP_INLINE float within(float x, float lowest, float highest)
{
    const float above = x > lowest ? x : lowest;
    return above < highest ? above : highest;
}

/// The nearest integer, halves away from zero, within two integers.
VSP_INLINE int32_t rounded(float x, float lowest, float highest)
{
    return int32_t(within(x + (x < 0.0f ? -0.5f : 0.5f), lowest, highest));
}

// The same for lanes of floats.
template <class F>
VSP_INLINE F within(F x, float lowest, float highest)
{
    const F above = x > lowest ? x : F{} + lowest;
    return above < highest ? above : F{} + highest;
}
template <class V, class F>
VSP_INLINE V rounded(F x)
{
    using Signed = typename Register<sizeof(V)>::Signed;
    const Signed half = (Signed(x) & INT32_MIN) | Signed(F{} + 0.5f);
    return {decltype(V::v)(__builtin_convertvector(x + F(half), Signed))};
}

/// Samples as lanes of floats; what isn't finite is 0.
template <class V>
VSP_INLINE auto floats(V x)
{
    using R = Register<sizeof(V)>;
    return __builtin_convertvector(typename R::Signed(x.v), typename R::Float);
}
template <class V>
VSP_INLINE auto loadFloats(const int16_t* p)
{
    return floats(loadShorts(p, V{}));
}
template <class V>
VSP_INLINE auto loadFloats(const int32_t* p)
{
    return floats(load(p, V{}));
}
template <class V>
VSP_INLINE auto loadFloats(const float* p)
{
    using R = Register<sizeof(V)>;
    const auto x = typename R::Float(*reinterpret_cast<const typename R::FloatInMemory*>(p));
    return (typename R::Signed(x) & INT32_MAX) < kInfinity ? x : typename R::Float{};
}
VSP_INLINE float loadFloat(int32_t x)
{
    return float(x);
}
VSP_INLINE float loadFloat(float x)
{
    return x - x == 0.0f ? x : 0.0f; // infinity less itself is no number
}

/// Runs vectors(n, gains) over as many samples as fit two vectors at a time, gains those of the
/// first, and next(gains) those of the second; returns how many samples that are.
template <class V, class Body>
VSP_INLINE int forVectors(Ramp gain, int samples, Body body)
{
    using F = typename Register<sizeof(V)>::Float;
    constexpr int kFrames = V::lanes / 2;
    F frame;
    for (int i = 0; i < V::lanes; ++i)
        frame[i] = float(i >> 1);
    const auto gains = [&] {
        const F g = gain.first + gain.step * frame;
        frame += float(kFrames);
        return g;
    };
    int n = 0;
    for (; n + 2 * V::lanes <= samples; n += 2 * V::lanes) {
        const F first = gains();
        body(n, first, gains());
    }
    return n;
}

template <class V, class Sample>
void scaleIn(int16_t* out, const Sample* in, Ramp gain, int frames)
{
    int n = 0;
    if constexpr (V::lanes > 1)
        n = forVectors<V>(gain, 2 * frames, [=](int k, auto first, auto second) {
            const auto scaled = [=](const Sample* p, auto g) {
                const auto x = loadFloats<V>(p) * g;
                if constexpr (std::is_same_v<Sample, float>)
                    return rounded<V>(within(x, -kFarBeyond, kFarBeyond));
                else
                    return rounded<V>(x); // gains are low enough
            };
            storeSaturated(out + k, scaled(in + k, first), scaled(in + k + V::lanes, second));
        });
    for (; n < 2 * frames; ++n) {
        const float x = loadFloat(in[n]) * gainOf(gain, n >> 1);
        out[n] = int16_t(rounded(x, -32768.0f, 32767.0f));
    }
}

template <class V>
void scaleOut16(int16_t* out, const int16_t* in, Ramp gain, int frames)
{
    scaleIn<V>(out, in, gain, frames);
}

/// What full scale of so many bits is, and what a unit of 16 bits is in it.
template <int bits>
struct Format {
    static constexpr float kUnit = float(1 << (bits - 16));
    static constexpr float kHighest = bits == 32 ? kHighest32 : 32768.0f * kUnit - 1.0f;
};

template <class V, int bits>
void scaleOut(int32_t* out, const int16_t* in, Ramp gain, int frames)
{
    constexpr float kHighest = Format<bits>::kHighest;
    int n = 0;
    if constexpr (V::lanes > 1)
        n = forVectors<V>(gain, 2 * frames, [=](int k, auto first, auto second) {
            const auto put = [=](int at, auto g) {
                store(out + at,
                      rounded<V>(within(loadFloats<V>(in + at) * g, -kHighest - 1.0f, kHighest)));
            };
            put(k, first);
            put(k + V::lanes, second);
        });
    for (; n < 2 * frames; ++n) {
        const float x = float(in[n]) * gainOf(gain, n >> 1);
        out[n] = rounded(x, -kHighest - 1.0f, kHighest);
    }
}

template <class Sample, int bits>
void bendOut(Sample* out, const int16_t* in, Ramp gain, Ramp bend, int frames)
{
    using F = Format<bits>;
    constexpr float kRoom = 2.0f * (kBentPeak - kKnee) * F::kUnit; // above the knee
    constexpr float kFactor = 1.0f / (2.0f * kRoom);
    for (int n = 0; n < 2 * frames; ++n) {
        const float x = float(in[n]) * gainOf(gain, n >> 1);
        const float magnitude = x < 0.0f ? -x : x;
        const float above = within(magnitude - kKnee * F::kUnit, 0.0f, kRoom);
        const float bent = magnitude - gainOf(bend, n >> 1) * (above * above) * kFactor;
        out[n] = Sample(rounded(x < 0.0f ? -bent : bent, -F::kHighest - 1.0f, F::kHighest));
    }
}

inline void scaleOutFloat(float* out, const int16_t* in, Ramp gain, int frames)
{
    for (int n = 0; n < 2 * frames; ++n)
        out[n] = float(in[n]) * gainOf(gain, n >> 1);
}

template <class V>
constexpr LevelKernels makeLevelKernels(const char* name)
{
    LevelKernels table{};
    table.name = name;
    table.peak16 = peakOf<int16_t>;
    table.peak32 = peakOf<int32_t>;
    table.peakFloat = peakFloat;
    table.in16 = scaleIn<V, int16_t>;
    table.in32 = scaleIn<V, int32_t>;
    table.inFloat = scaleIn<V, float>;
    table.out16 = scaleOut16<V>;
    table.out24 = scaleOut<V, 24>;
    table.out32 = scaleOut<V, 32>;
    table.bent16 = bendOut<int16_t, 16>;
    table.bent24 = bendOut<int32_t, 24>;
    table.bent32 = bendOut<int32_t, 32>;
    table.outFloat = scaleOutFloat;
    return table;
}

} // namespace vsp::VSP_KERNEL_SET
