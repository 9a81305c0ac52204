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
    return {1.0 - x * (1.0 / 2.0 - x * (1.0 / 24.0 - x * (1.0 / 720.0 - x * (1.0 / 40320.0)))),
            angle * (1.0 - x * (1.0 / 6.0 - x * (1.0 / 120.0 - x * (1.0 / 5040.0))))};
}

/// The integer nearest to x, of two that are as near either one; |x| below 2^31.
inline int nearestTo(double x)
{
    return int(x + (x < 0.0 ? -0.5 : 0.5));
}

/// Of any angle of fewer than 2^28 turns, in radians.
inline Phasor phasorOf(double angle)
{
    const int quarters = nearestTo(angle * (1.0 / kQuarterTurn));
    const Phasor p = phasorOfSmall(angle - double(quarters) * kQuarterTurn);
    switch (quarters & 3) {
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
