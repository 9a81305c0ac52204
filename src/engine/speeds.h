// Which speeds there are, and which of them are special.
#pragma once

#include "fixed/floating_point.h"

namespace vsp {

inline constexpr float kSlowestSpeed = 0.125f;
inline constexpr float kFastestSpeed = 8.0f;

/// What is out of range, "not a number" included, means 1.0.
constexpr float speedInRange(float speed)
{
    return speed >= kSlowestSpeed && speed <= kFastestSpeed ? speed : 1.0f;
}

/// Slow speeds pass low-passes and a gain, in the engine's own sound.
constexpr bool isSlow(float speed)
{
    return speed <= 0.5f;
}

/// Output over input rate of the speeds that a sample-rate converter serves; 0 for all others.
constexpr int converterRatio(float speed)
{
    return speed == 0.5f ? 2 : speed == 0.25f ? 4 : speed == 0.125f ? 8 : 0;
}

inline constexpr int kFullHighBandQ15 = 32768;

/// Gain of the high band in the engine's own sound, Q15: it fades out as the speed falls from 0.5 to
/// 0.25.
constexpr int highBandGainQ15For(float speed)
{
    if (speed <= 0.25f)
        return 0;
    if (speed >= 0.5f)
        return kFullHighBandQ15;
    return int((4.0f * speed - 1.0f) * 32768.0f); // exact until the truncation
}

} // namespace vsp
