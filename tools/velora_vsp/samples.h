// How samples travel through the tool: in the narrowest of these types that holds every sample of
// the input, so that 24-bit sound stays 24-bit and float stays float.
#pragma once

#include <cstddef>
#include <cstdint>

/// The first four are the engine's formats; float64 is for copies at speed 1.0. int24 is a
/// sign-extended value in an int32_t.
enum class Samples { int16, int24, int32, float32, float64 };

/// Calls `use` with a null pointer of the C++ type of the samples.
template <class Use>
auto withType(Samples samples, Use use)
{
    switch (samples) {
    case Samples::int16:
        return use(static_cast<int16_t*>(nullptr));
    case Samples::float32:
        return use(static_cast<float*>(nullptr));
    case Samples::float64:
        return use(static_cast<double*>(nullptr));
    default:
        return use(static_cast<int32_t*>(nullptr));
    }
}

inline size_t sampleBytes(Samples samples)
{
    return withType(samples, [](auto* type) { return sizeof *type; });
}
