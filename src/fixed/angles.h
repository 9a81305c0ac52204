// Angles, the same to the bit on every machine: libraries differ in the last bit of theirs.
#pragma once

#include <cmath>

#include "fixed/floating_point.h"

namespace vsp {

inline constexpr double kQuarterTurn = 1.5707963267948966; // in radians

struct Phasor {
    double re;
    double im;
};

/// Of an angle of at most an eighth of a turn, in radians: Taylor's series, within 1 in 10^7.
inline Phasor phasorOfSmall(double angle)
{
    const double x = angle * angle;
    return {1.0 - x / 2.0 * (1.0 - x / 12.0 * (1.0 - x / 30.0 * (1.0 - x / 56.0))),
            angle * (1.0 - x / 6.0 * (1.0 - x / 20.0 * (1.0 - x / 42.0)))};
}

/// Of any angle of fewer than 2^30 turns, in radians.
inline Phasor phasorOf(double angle)
{
    const double quarters = std::floor(angle / kQuarterTurn + 0.5);
    const Phasor p = phasorOfSmall(angle - quarters * kQuarterTurn);
    switch (int(quarters - 4.0 * std::floor(quarters / 4.0))) {
    case 0:
        return p;
    case 1:
        return {-p.im, p.re};
    case 2:
        return {-p.re, -p.im};
    default:
        return {p.im, -p.re};
    }
}

/// -half a turn to half a turn, in radians, within 10^-5; 0 for 0. The polynomial is 4.4.49 of
/// Abramowitz and Stegun.
inline double angleOf(double re, double im)
{
    const double along = std::abs(re);
    const double across = std::abs(im);
    if (along + across == 0.0)
        return 0.0;
    const bool isSteep = across > along;
    const double x = isSteep ? along / across : across / along;
    const double y = x * x;
    const double small =
        x * (0.9998660 + y * (-0.3302995 + y * (0.1801410 + y * (-0.0851330 + y * 0.0208351))));
    const double first = isSteep ? kQuarterTurn - small : small;
    const double upper = re < 0.0 ? 2.0 * kQuarterTurn - first : first;
    return im < 0.0 ? -upper : upper;
}

} // namespace vsp
