// Signals, and ways to compare and measure them, shared by the tests.
#pragma once

#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace signals {

using Frame = std::array<int16_t, 2>;
using Frames = std::vector<Frame>;

inline constexpr double kPi = std::numbers::pi;

/// The pointer that the engine's interfaces take.
inline short (*raw(Frames& frames, size_t from = 0))[2]
{
    return reinterpret_cast<short(*)[2]>(frames.data() + from);
}

inline const short (*raw(const Frames& frames, size_t from = 0))[2]
{
    return reinterpret_cast<const short(*)[2]>(frames.data() + from);
}

inline Frames silence(size_t frames)
{
    return Frames(frames, Frame{0, 0});
}

inline Frames constant(size_t frames, int16_t left, int16_t right)
{
    return Frames(frames, Frame{left, right});
}

inline Frames tone(size_t frames, double hertz, double rate, double amplitude)
{
    Frames out(frames);
    for (size_t n = 0; n < frames; ++n) {
        const double phase = 2.0 * kPi * hertz * double(n) / rate;
        out[n] = {int16_t(std::lround(amplitude * std::sin(phase))),
                  int16_t(std::lround(amplitude * std::cos(phase)))};
    }
    return out;
}

inline Frames noise(size_t frames, int amplitude, unsigned seed)
{
    std::minstd_rand random(seed);
    std::uniform_int_distribution<int> value(-amplitude, amplitude);
    Frames out(frames);
    for (Frame& frame : out)
        frame = {int16_t(value(random)), int16_t(value(random))};
    return out;
}

/// Frequency of the strongest partial near `hertz` in the left channel: the phase that a
/// correlation with `hertz` gains from the first to the second half of the signal.
inline double measureFrequency(const Frames& in, size_t from, size_t frames, double hertz,
                               double rate)
{
    const auto correlate = [&](size_t start, size_t count) {
        std::complex<double> sum = 0;
        for (size_t n = 0; n < count; ++n) {
            const double window = 0.5 - 0.5 * std::cos(2.0 * kPi * double(n) / double(count));
            sum += window * double(in[start + n][0]) *
                   std::polar(1.0, -2.0 * kPi * hertz * double(start + n) / rate);
        }
        return sum;
    };
    const size_t half = frames / 2;
    const double turn = std::arg(correlate(from + half, half) / correlate(from, half));
    return hertz + turn / (2.0 * kPi) * rate / double(half);
}

} // namespace signals
