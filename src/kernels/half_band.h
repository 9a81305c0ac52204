// The half-band resamplers' constants and state.
//
// H(z) = (B(z^2) + A(z^2) / z) / 2 with all-pass branches: flat to 0.22 of the higher rate, 60 dB
// down from 0.30 of it. Samples are Q4: 16-bit audio with four fraction bits. Everything wraps
// rather than saturates until the samples are 16-bit again.
#pragma once

#include <cstdint>

namespace vsp {

inline constexpr int kHalfBandFractionBits = 4;

/// Second-order all-pass section (c1 + c0 / z + 1 / z^2) / (1 + c0 / z + c1 / z^2).
struct HalfBandCoeffs {
    int32_t c0_q14;
    int32_t c1_q14;
};
inline constexpr HalfBandCoeffs kSectionA = {12436, 1676};
inline constexpr HalfBandCoeffs kSectionB = {19760, 4998};
/// First-order all-pass section in front of B.
inline constexpr int32_t kFirstOrderQ14 = 763;

/// Frames at the higher rate that low frequencies take down, and the same up again (measured).
inline constexpr double kHalfBandDelay = 2.45;

/// Delays of the three all-pass sections of a stage, each four times the section's value.
struct HalfBandState {
    int32_t apA1 = 0, apA2 = 0; // section A
    int32_t ap1 = 0;            // first-order section
    int32_t apB1 = 0, apB2 = 0; // section B

    bool operator==(const HalfBandState&) const = default;
};

/// The same of two stretches of sound at once: left and right of one, left and right of the other.
struct HalfBandLanes {
    int32_t apA1[4], apA2[4];
    int32_t ap1[4];
    int32_t apB1[4], apB2[4];
};

inline void setLane(HalfBandLanes& lanes, int lane, const HalfBandState& state)
{
    lanes.apA1[lane] = state.apA1;
    lanes.apA2[lane] = state.apA2;
    lanes.ap1[lane] = state.ap1;
    lanes.apB1[lane] = state.apB1;
    lanes.apB2[lane] = state.apB2;
}
inline HalfBandState laneOf(const HalfBandLanes& lanes, int lane)
{
    return {lanes.apA1[lane], lanes.apA2[lane], lanes.ap1[lane], lanes.apB1[lane],
            lanes.apB2[lane]};
}

/// A decimator also remembers where in a pair of samples the stream stands.
struct DecimatorState : HalfBandState {
    int32_t parity = 0;  // 1: an odd number of samples has come in
    int32_t pending = 0; // with parity 1: the sample at the even position waits for its partner
};

} // namespace vsp
